#include "tests/fakes.h"
#include "tests/live/Comparison.h"
#include "tests/live/Host.h"
#include "zfstools/ZfsDatasetEnumerator.h"
#include "zfstools/ZpoolsEnumerator.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <iterator>

namespace {

using inspect::Json;
using live::Compare;
using live::OutputOf;
using live::Quoted;
using live::Tally;
using live::Told;
using live::Truth;
using testing::HasSubstr;

/// What a host can hold of file systems, volumes and snapshots, with every property set somewhere;
/// below the pool $p, with files in the folder $m.
constexpr const char* makeDatasets = R"(
set -e
key() { echo 12345678 | zfs create -o keyformat=passphrase "$@"; }

zfs create -o atime=off -o site:dept=ops $p/a
zfs create -o compression=zstd-3 $p/a/b
head -c 3500000 /dev/urandom >$m/a/b/data
head -c 70000 /dev/urandom >$m/a/b/more
zfs snapshot -o site:reason=nightly $p/a/b@one
zfs clone -o site:dept=lab $p/a/b@one $p/clone
zfs create -o checksum=sha256 -o copies=2 -o devices=off -o exec=off -o logbias=throughput \
    -o nbmand=on -o primarycache=metadata -o recordsize=16K -o secondarycache=none -o setuid=off \
    -o snapdir=visible -o sync=always -o vscan=on -o xattr=dir -o aclmode=groupmask \
    -o aclinherit=passthrough-x -o quota=123456789 -o refquota=1.5G -o reservation=3M \
    -o refreservation=5000000 $p/options
zfs create $p/options/child
zfs create -o aclmode=restricted -o casesensitivity=mixed -o utf8only=on -o version=4 $p/created
zfs create -o canmount=noauto -o sharenfs=rw=@192.0.2.0/24 -o sharesmb=on $p/shared
zfs create -o canmount=off -o readonly=on -o zoned=on $p/zoned
zfs create -o mountpoint=legacy $p/legacy
zfs create -o mountpoint="$m/with blank" $p/blank
zfs create -o mountpoint=none -o dedup=on $p/none
zfs create $p/temporary
mount -o remount,ro,noatime $m/temporary

key -o encryption=on $p/encrypted
zfs create $p/encrypted/child
key -o encryption=aes-192-ccm $p/locked
zfs unmount $p/locked
zfs unload-key $p/locked

zfs create -o dedup=on $p/dedup
head -c 300000 /dev/urandom | tee $m/dedup/a >$m/dedup/b
zfs snapshot $p/dedup@s
zfs send -p $p/dedup@s | zfs receive -o site:dept=copy $p/received

zfs create -V 16M $p/thick
zfs create -V 20000000 -s -b 4K -o site:dept=volumes $p/sparse 2>/dev/null || \
    zfs create -V 20M -s -b 4K -o site:dept=volumes $p/sparse
zfs snapshot $p/thick@s

long=$(printf '%0118d' 7)
zfs create -o site:from=far $p/$long
zfs create $p/$long/child

zfs create $p/quotas
zfs set userquota@0=1G userquota@65534=123456789 userquota@1002=3.3T userquota@4711=2.3G \
    userobjquota@4713=1000 groupquota@4712=1G groupquota@1000=10M $p/quotas

zfs create $p/user
zfs set site:dash=- site:blank='two words' site:ends=' ends ' site:equals=a=b,c:d \
    site:utf8=$(printf 'gr\303\274n') site:bytes=$(printf '\377\376x') \
    site:most=$(printf '%08191d' 0) $p/user
zfs create $p/user/child
zpool sync
)";

class OnRichHost : public testing::Test {
protected:
    static void SetUpTestSuite() {
        host = std::make_unique<live::Host>();
        const auto disks = [](unsigned count) { return host->Disks(count, 64); };
        const std::string offline = disks(1);
        pool = host->MakePool("rich",
                              "mirror" + offline + disks(1) + " raidz1" + disks(3) + " raidz2" +
                                  disks(4) + " raidz3" + disks(5) + disks(1) + " log mirror" +
                                  disks(2) + disks(1) + " cache" + disks(2) + " spare" + disks(2) +
                                  " special mirror" + disks(2) + " dedup" + disks(1),
                              "-f");
        otherPool = host->MakePool("other", disks(1) + disks(1),
                                   "-o failmode=continue -o autoexpand=on -R " +
                                       (host->Folder() / "alt").string());
        OutputOf("zpool offline " + pool + offline);
        OutputOf("p=" + pool + " m=" + Quoted(host->Folder() / "rich") + "\n" + makeDatasets);
    }
    static void TearDownTestSuite() { host.reset(); }

    static std::string Inspect(const std::string& arguments) {
        return OutputOf(Quoted(std::getenv("ZFSINSPECT")) + " " + arguments);
    }

    /// What `tell` tells, and what is true; asked again while the host changes by itself.
    static std::pair<Told, Truth> Ask(const std::function<Told()>& tell) {
        const std::string pools = pool + " " + otherPool;
        for (int attempt = 0; attempt < 5; ++attempt) {
            Truth truth = live::ReadProperties(pool, pools);
            Told told = tell();
            if (truth.HasSameProperties(live::ReadProperties(pool, pools))) {
                live::ReadQuotasAndDevices(truth);
                return {std::move(told), std::move(truth)};
            }
        }
        throw std::runtime_error("the host does not come to rest");
    }

    static Told TellFromLibrary() {
        const InstalledExecutor installed{live::HostExecutor()};
        zfslib::ZfsDatasetEnumerator enumerator;
        auto [datasets, warnings] = enumerator.Enumerate(pool, live::HostExecutor());
        return live::TellFromRecords(
            datasets, zfslib::ZpoolEnumerator::Enumerate(live::HostExecutor()), warnings);
    }
    static Told TellFromInspect() {
        batched = Inspect("--json datasets --properties " + pool);
        const std::string pools = Inspect("--json pools --properties " + pool + " " + otherPool);
        return live::TellFromJson(Json::parse(batched), Json::parse(pools));
    }

    static void ExpectTrue(const Told& told, const Truth& truth) {
        const Tally tally = Compare(told, truth);
        std::cout << "\nlive: " << tally.Summary() << std::endl;
        for (const std::string& what : tally.wrong)
            ADD_FAILURE() << what;
        EXPECT_GT(tally.equal, 1500U); // a comparison of little would prove little
        EXPECT_GT(tally.rounded, 30U);
        EXPECT_THAT(told.warnings, testing::UnorderedElementsAre(
                                       HasSubstr("user quota for [" + pool + "/locked]"),
                                       HasSubstr("group quota for [" + pool + "/locked]")));
    }

    static inline std::unique_ptr<live::Host> host;
    static inline std::string pool;
    static inline std::string otherPool;
    static inline std::string batched; ///< the latest JSON of the datasets
};

TEST_F(OnRichHost, InspectTellsTheTruth) {
    const auto [told, truth] = Ask(TellFromInspect);
    ExpectTrue(told, truth);
}

TEST_F(OnRichHost, LibraryTellsTheTruthAndWhatIsFalseIsFound) {
    const auto [told, truth] = Ask(TellFromLibrary);
    ExpectTrue(told, truth);

    const std::string name = pool + "/a/b";
    const struct {
        const char* fault;
        std::function<void(Told&)> seed;
    } rows[] = {
        {"value", [&](Told& t) { t.datasets[name].properties["compression"].value = "lz4"; }},
        {"source", [&](Told& t) { t.datasets[name].properties["compression"].source = "default"; }},
        {"flag", [&](Told& t) { t.datasets[name].properties["atime"].value = "on"; }},
        {"parent", [&](Told& t) { t.datasets[name].properties["atime"].source += "x"; }},
        {"failed", [&](Told& t) { t.datasets[name].properties["canmount"].failed = true; }},
        {"no property", [&](Told& t) { t.datasets[name].properties.erase("checksum"); }},
        {"too many", [&](Told& t) { t.datasets[name].properties["site:x"].value = "y"; }},
        {"no user property", [&](Told& t) { t.datasets[name].properties.erase("site:dept"); }},
        {"size", [&](Told& t) { t.datasets[name].used += t.datasets[name].used / 100; }},
        {"no size", [&](Told& t) { t.datasets[name].available.reset(); }},
        {"bytes", [&](Told& t) { t.datasets[pool + "/thick"].properties["volsize"].bytes = 1; }},
        {"text", [&](Told& t) { t.datasets[pool + "/options"].properties["quota"].value = "1M"; }},
        {"quota",
         [&](Told& t) { t.datasets[pool + "/quotas"].quotas["userquota@4711"].value = "2G"; }},
        {"no quota",
         [&](Told& t) { t.datasets[pool + "/quotas"].quotas.erase("groupquota@4712"); }},
        {"quota of nobody", [&](Told& t) { t.datasets[pool].quotas["userquota@9"].value = "2G"; }},
        {"no dataset", [&](Told& t) { t.datasets.erase(name); }},
        {"false dataset", [&](Told& t) { t.datasets[name + "x"].type = "filesystem"; }},
        {"state", [&](Told& t) { t.pools[pool].state = "OFFLINE"; }},
        {"pool size", [&](Told& t) { t.pools[pool].size /= 2; }},
        {"pool property",
         [&](Told& t) { t.pools[otherPool].properties["failmode"].value = "wait"; }},
        {"member", [&](Told& t) { t.pools[pool].devices[0].members.pop_back(); }},
        {"device", [&](Told& t) { t.pools[pool].devices.pop_back(); }},
        {"section", [&](Told& t) { t.pools[otherPool].devices[1].section = "logs"; }},
        {"no pool", [&](Told& t) { t.pools.erase(otherPool); }},
    };
    for (const auto& row : rows) {
        Told seeded = told;
        row.seed(seeded);
        EXPECT_GE(Compare(seeded, truth).wrong.size(), 1U) << row.fault;
    }
}

TEST_F(OnRichHost, BatchedUnbatchedAndReplayedRunsAgree) {
    const std::string recording = Quoted(host->Folder() / "recording");
    const std::string show = " datasets --properties " + pool;
    const std::string single = Inspect("--json --batch 0 --record " + recording + show);
    if (batched.empty())
        TellFromInspect();
    EXPECT_EQ(single, batched);
    EXPECT_EQ(single, Inspect("--json --replay " + recording + show));

    const std::string pools = Inspect("--record " + recording + " pools --properties");
    EXPECT_EQ(pools, Inspect("--replay " + recording + " pools --properties"));
}

} // namespace
