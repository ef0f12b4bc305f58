#include "tests/live/Comparison.h"
#include "tests/live/Host.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>

namespace {

using inspect::Json;
using live::Compare;
using live::OutputOf;
using live::Quoted;
using live::Tally;
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

    static std::string InspectDatasets() { return Inspect("--json datasets --properties " + pool); }

    /// What is told, and what is true; asked again while the host changes by itself.
    static std::pair<Json, Truth> Ask() {
        const std::string pools = pool + " " + otherPool;
        for (int attempt = 0; attempt < 5; ++attempt) {
            Truth truth = live::ReadProperties(pool, pools);
            Json told = live::ByName(Json::parse(InspectDatasets()),
                                     Json::parse(Inspect("--json pools --properties " + pools)));
            if (truth.HasSameProperties(live::ReadProperties(pool, pools))) {
                live::ReadQuotasAndDevices(truth);
                return {std::move(told), std::move(truth)};
            }
        }
        throw std::runtime_error("the host does not come to rest");
    }

    static inline std::unique_ptr<live::Host> host;
    static inline std::string pool;
    static inline std::string otherPool;
};

TEST_F(OnRichHost, IsToldAsItIsAndWhatIsFalseIsFound) {
    const auto [told, truth] = Ask();
    const Tally tally = Compare(told, truth);
    std::cout << "\nlive: " << tally.Summary() << std::endl;
    for (const std::string& what : tally.wrong)
        ADD_FAILURE() << what;
    EXPECT_GT(tally.equal, 1500U); // a comparison of little would prove little
    EXPECT_GT(tally.rounded, 30U);
    EXPECT_THAT(told.at("warnings"),
                testing::UnorderedElementsAre(HasSubstr("user quota for [" + pool + "/locked]"),
                                              HasSubstr("group quota for [" + pool + "/locked]")));

    using Path = Json::json_pointer;
    const Path name = Path("/datasets") / (pool + "/a/b");
    const Path properties = name / "properties";
    const Path quotas = Path("/datasets") / (pool + "/quotas") / "quotas";
    const Path richPool = Path("/pools") / pool;
    const struct {
        const char* fault;
        Path path;
        Json value; ///< null: is left out
    } rows[] = {
        {"value", properties / "compression" / "value", "lz4"},
        {"source", properties / "compression" / "source", "default"},
        {"flag", properties / "atime" / "value", "on"},
        {"parent", properties / "atime" / "inheritedFrom", pool + "/ax"},
        {"failed", properties / "canmount" / "failed", true},
        {"no property", properties / "checksum", nullptr},
        {"too many", properties / "site:x", {{"value", "y"}}},
        {"no user property", properties / "site:dept", nullptr},
        {"size", name / "used", told.at(name / "used").get<std::uint64_t>() / 100 * 101},
        {"no size", name / "available", "x"},
        {"bytes", Path("/datasets") / (pool + "/thick") / "properties" / "volsize" / "bytes", 1},
        {"text", Path("/datasets") / (pool + "/options") / "properties" / "quota" / "value", "1M"},
        {"quota", quotas / "userquota@4711" / "value", "2G"},
        {"no quota", quotas / "groupquota@4712", nullptr},
        {"quota of nobody", Path("/datasets") / pool / "quotas" / "userquota@9", "2G"},
        {"no dataset", name, nullptr},
        {"false dataset", Path("/datasets") / (pool + "/a/bx"), Json::object()},
        {"state", richPool / "state", "OFFLINE"},
        {"parent of a dataset", name / "parent", pool},
        {"pool size", richPool / "rawSize", 1},
        {"free space", richPool / "available", 1},
        {"pool property", Path("/pools") / otherPool / "properties" / "failmode" / "value", "wait"},
        {"member", richPool / "devices" / std::size_t{0} / "devices", {"x"}},
        {"device", richPool / "devices", Json::array()},
        {"section", richPool / "logs", told.at(richPool / "caches")},
        {"no pool", Path("/pools") / otherPool, nullptr},
    };
    for (const auto& row : rows) {
        Json seeded = told;
        if (row.value.is_null())
            seeded.at(row.path.parent_pointer()).erase(row.path.back());
        else
            seeded[row.path] = row.value;
        EXPECT_GE(Compare(seeded, truth).wrong.size(), 1U) << row.fault;
    }
}

TEST_F(OnRichHost, BatchedUnbatchedAndReplayedRunsAgree) {
    const std::string recording = Quoted(host->Folder() / "recording");
    const std::string show = " datasets --properties " + pool;
    const std::string single = Inspect("--json --batch 0 --record " + recording + show);
    EXPECT_EQ(single, InspectDatasets());
    EXPECT_EQ(single, Inspect("--json --replay " + recording + show));

    const std::string pools = Inspect("--record " + recording + " pools --properties");
    EXPECT_EQ(pools, Inspect("--replay " + recording + " pools --properties"));
}

} // namespace
