// What a plan has to know of the host it is for, and what it does for pools.

#include "executors/Recording.h"
#include "fakes.h"
#include "logging/logging.h"
#include "restore/HostStateReader.h"
#include "restore/LiveState.h"
#include "restore/Plan.h"

#include <gmock/gmock.h>
#include <map>
#include <string>
#include <vector>

namespace {

using namespace zfslib::restore;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

/// The written Solaris host, and what else it is asked for.
class LiveHost : public testing::Test {
protected:
    LiveHost() {
        for (const auto& exchange :
             zfslib::executors::ReadRecording(ZFSLIB_RECORDINGS "/solaris-state.rec").exchanges)
            if (!exchange.failure)
                executor.Answer(exchange.command, exchange.output);
        saved = ReadHostState({"rpool"}, executor);
    }
    LiveState Read(const PlanOptions& options) { return ReadLiveState(saved, options, executor); }
    std::string ErrorOf(const PlanOptions& options) {
        try {
            (void)Read(options);
        } catch (const std::exception& error) {
            return logging::Describe(error);
        }
        return "no error";
    }
    void Answer(const std::string& command, const std::string& output) {
        executor.Answer("/usr/bin/env -i " + command, output);
    }

    FakeExecutor executor;
    HostState saved;
};

TEST_F(LiveHost, IsReadUnderTheNewNames) {
    EXPECT_THAT(ErrorOf({{"rpool/none"}, {}, {}}), HasSubstr("[rpool/none] was not saved"));
    EXPECT_THAT(ErrorOf({{}, {{"none", "x"}}, {}}), HasSubstr("[none], which"));
    EXPECT_THAT(ErrorOf({{}, {{"rpool", "-x"}}, {}}), HasSubstr("is no name"));
    EXPECT_THAT(ErrorOf({}), HasSubstr("zpool list")); // a failure is no missing pool
    Answer("zpool list -H -o name", "other pool\nrpool\n");
    const LiveState there = Read({});
    EXPECT_THAT(there.state.roots, ElementsAre("rpool"));
    EXPECT_THAT(there.missingRoots, IsEmpty());
    EXPECT_THAT(there.snapshots, ElementsAre("rpool@install"));
    EXPECT_EQ(there.state.datasets.size(), saved.datasets.size());
    EXPECT_EQ(there.state.pools.size(), 1U);

    const PlanOptions below = {{"rpool/export"}, {{"rpool/export", "rpool/a/b"}}, {}};
    EXPECT_THAT(ErrorOf(below), HasSubstr("zfs list -rH -t filesystem,volume -o name 'rpool'"));
    Answer("zfs list -rH -t filesystem,volume -o name 'rpool'", "rpool\nrpool/ab\n");
    Answer("zfs get -Hp -o name,property,source all 'rpool'",
           "rpool\ttype\t-\nrpool\tquota\tlocal\n");
    Answer("zfs get -Hp -o name,property,value,source all 'rpool'",
           "rpool\ttype\tfilesystem\t-\nrpool\tquota\t5\tlocal\n");
    const LiveState missing = Read(below);
    EXPECT_THAT(missing.missingRoots, ElementsAre("rpool/a/b"));
    EXPECT_THAT(missing.state.datasets, IsEmpty());
    EXPECT_EQ(missing.state.pools.size(), 1U);
    ASSERT_EQ(missing.above.size(), 1U);
    EXPECT_EQ(missing.above[0].Find("quota")->Value(), "5");
}

TEST_F(LiveHost, IsSearchedForWhatAMissingPoolIsMadeOf) {
    Answer("zpool list -H -o name", "other\n");
    Answer("zpool import", "no pools available to import\n"
                           "   pool: rpool\n     id: 12\n  state: ONLINE\n action: The pool can\n"
                           "\tbe imported.\ncomment:   pool: x\n config:\n\n\t  pool: y\n"
                           "  pool: bad\n    id: x1\n state: ONLINE\n");
    Answer("zpool status 'other'",
           "config:\n\n\tNAME      STATE\n\tother     ONLINE\n\t  c2t0d0s0  ONLINE\n"
           "\tspares\n\t  c3t0d0    AVAIL\n");
    for (const char* disk : {"c1t0d0s0", "c1t1d0s0", "c2t0d0s0", "c3t0d0s0"})
        Answer("ls -dL '/dev/dsk/" + std::string(disk) + "'", "");
    const LiveState live = Read({{}, {}, {{"c1t0d0", "c9t0d0"}}});
    EXPECT_THAT(live.missingRoots, ElementsAre("rpool"));
    ASSERT_EQ(live.importablePools.size(), 1U);
    EXPECT_EQ(live.importablePools[0].name + live.importablePools[0].guid +
                  live.importablePools[0].state + live.importablePools[0].action,
              "rpool12ONLINEThe pool can be imported.");
    std::string disks;
    for (const DiskState& disk : live.disks)
        disks += disk.path + (disk.isThere ? "|there|" : "|missing|") + disk.usedBy +
                 (disk.isOnlySpare ? "|spare\n" : "|\n");
    EXPECT_EQ(disks, "c9t0d0|missing||\nc1t1d0s0|there||\nc2t0d0|there|other|\n"
                     "c3t0d0|there|other|spare\n");
}

} // namespace
