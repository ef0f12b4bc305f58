#include "tests/live/Host.h"
#include "util/str.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>

namespace {

using live::OutputOf;
using live::Quoted;

/// What zfsinspect shows and records, and how long it takes.
struct Answer {
    std::string shown;
    std::string recorded; ///< without the heads, which tell the time
    std::chrono::duration<double> duration{};
};

TEST(Prefetch, ShowsAndRecordsTheSameOnManyDatasets) {
    live::Host host;
    const std::string pool = host.MakePool("many", host.Disks(1, 512));
    OutputOf("half() { for n in $(seq $1 2 19); do zfs create -u " + pool +
             "/$n || exit 1; done; }; half 0 & half 1 && wait");
    OutputOf("zfs set userquota@1000=1G " + pool + "/7 && for n in $(seq 30); do zfs snapshot -r " +
             pool + "@$n || exit 1; done && zpool sync");

    const auto run = [&](const std::string& jobs) {
        const std::string file = Quoted(host.Folder() / ("recording" + jobs));
        Answer result;
        const auto start = std::chrono::steady_clock::now();
        result.shown = OutputOf(Quoted(std::getenv("ZFSINSPECT")) + " --jobs " + jobs +
                                " --record " + file + " datasets --properties --json " + pool);
        result.duration = std::chrono::steady_clock::now() - start;
        result.recorded = OutputOf("grep -av '^.begin ' " + file);
        return result;
    };
    const Answer one = run("1");
    EXPECT_EQ(util::split(OutputOf("zfs list -rH -o name -t all " + pool)).size(), 651U);
    const Answer two = run("2");
    // Not EXPECT_EQ: what is shown has megabytes.
    EXPECT_TRUE(two.shown == one.shown);
    EXPECT_TRUE(two.recorded == one.recorded);
    const double ratio = two.duration / one.duration;
    std::cout << "\nlive: 2 jobs take " << ratio << " of the " << one.duration.count()
              << " s of one" << std::endl;
    EXPECT_LT(ratio, 1.5);
}

} // namespace
