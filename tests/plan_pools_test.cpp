// What a plan has to know of the host it is for, and what it does for pools.

#include "executors/Recording.h"
#include "fakes.h"
#include "logging/logging.h"
#include "posix/CSimpleCmdExec.h"
#include "restore/HostStateReader.h"
#include "restore/LiveState.h"
#include "restore/Plan.h"

#include <gmock/gmock.h>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace zfslib::restore;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Device Leaf(const std::string& name, const std::string& deviceId = "") {
    Device device;
    device.name = name;
    device.path = "/dev/" + name + "1";
    device.isWholeDisk = true;
    device.deviceId = deviceId;
    if (name.front() == '/') {
        device.kind = Device::Kind::File;
        device.path = name;
        device.isWholeDisk.reset();
    }
    return device;
}

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
            return "no error";
        } catch (const std::exception& error) {
            return logging::Describe(error);
        }
    }
    void Answer(const std::string& command, const std::string& output) {
        executor.Answer(commands::env + command, output);
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
    // Without them it would be mounted over what is there.
    const auto noMounts = [&](const std::string& command) {
        if (command == commands::env + std::string("zfs mount"))
            throw posix::CCommandFailure(command, posix::CCommandFailure::Kind::TimeOut, 1, "", "");
        return executor(command);
    };
    EXPECT_THROW((void)ReadLiveState(saved, {}, noMounts), std::exception);

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
    Answer("zpool list -H -o guid,name", "21\tother\n");
    Answer("zpool status 'other'",
           "config:\n\n\tNAME      STATE\n\tother     ONLINE\n\t  c2t0d0s0  ONLINE\n"
           "\tspares\n\t  c3t0d0    AVAIL\n");
    for (const char* disk : {"c1t0d0s0", "c1t1d0s0", "c2t0d0s0", "c3t0d0s0"})
        Answer("ls -dL '/dev/dsk/" + std::string(disk) + "'", "");
    EXPECT_THAT(Read({}).destroyedDoubt, HasSubstr("no answer to")); // and all else is read
    Answer("zpool import -D", "  pool: rpool\n    id: 13\n state: DEGRADED (DESTROYED)\nconfig:\n\n"
                              "\trpool     DEGRADED\n\t  c8t0d0  UNAVAIL  invalid label\n");
    const LiveState live = Read({{}, {}, {{"c1t0d0", "c9t0d0"}}});
    EXPECT_THAT(live.missingRoots, ElementsAre("rpool"));
    EXPECT_EQ(live.destroyedDoubt, "");
    EXPECT_THAT(live.poolsByGuid, ElementsAre(testing::Pair("21", "other")));
    ASSERT_EQ(live.importablePools.size(), 2U);
    EXPECT_EQ(live.importablePools[1].state, "DEGRADED");
    EXPECT_TRUE(live.importablePools[1].isDestroyed && !live.importablePools[0].isDestroyed);
    EXPECT_THAT(live.importablePools[1].devices, ElementsAre("rpool")); // what it lacks is blank
    EXPECT_EQ(live.importablePools[0].name + live.importablePools[0].guid +
                  live.importablePools[0].state + live.importablePools[0].action,
              "rpool12ONLINEThe pool can be imported.");
    EXPECT_THAT(live.importablePools[0].devices, ElementsAre("pool:"));
    std::string disks;
    for (const DiskState& disk : live.disks)
        disks += disk.path + (disk.isThere ? "|there|" : "|missing|") + disk.usedBy +
                 (disk.isOnlySpare ? "|spare\n" : "|\n");
    EXPECT_EQ(disks, "c9t0d0|missing||\nc1t1d0s0|there||\nc2t0d0|there|other|\n"
                     "c3t0d0|there|other|spare\n");
    saved.pools[0].devices = {Leaf("/f/1")};
    Answer("ls -dL '/f/1'", "");
    Answer("ls -dL '/f'", "");
    Answer("zpool import -d '/f'", "   pool: rpool\n     id: 13\n  state: ONLINE\n");
    EXPECT_EQ(Read({}).importablePools.size(), 3U);
}

Device Top(Device::Use use, Device device, std::optional<unsigned> ashift = 12) {
    device.use = use;
    if (use != Device::Use::Cache && use != Device::Use::Spare)
        device.ashift = ashift;
    return device;
}

Device Group(Device::Kind kind, const std::string& word, std::vector<Device> children) {
    Device device;
    device.kind = kind;
    device.name = word + "-0";
    if (kind != Device::Kind::Replacing && kind != Device::Kind::Spare)
        device.word = word;
    device.children = std::move(children);
    return device;
}

constexpr auto normal = Device::Use::Normal;
constexpr auto mirror = Device::Kind::Mirror;

/// A pair of pools under the name "p", of which the live one may be missing.
class PoolPair {
public:
    PoolPair() {
        for (ToolsState* tools : {&saved.tools, &live.state.tools}) {
            tools->system = "Linux";
            tools->version = "zfs-2.3.9-1";
            tools->zpoolUsage["create"] = "[-fnd] <pool> <vdev> ...";
            for (const char* name :
                 {"ashift", "autotrim", "bootfs", "cachefile", "comment", "compatibility",
                  "dedup_table_quota", "failmode", "version", "feature@..."})
                tools->poolProperties[name].isEditable = true;
        }
        saved.roots = {"p"};
        saved.texts = live.state.texts = texts;
        saved.datasets.emplace_back().name = "p";
    }

    /// "failmode=wait": nobody set it; "failmode:=wait": somebody did. "altroot=/a" is of the pool.
    void Add(HostState& state, const std::vector<std::string>& properties,
             std::vector<Device> devices) {
        PoolState& pool = state.pools.emplace_back();
        pool.name = "p";
        pool.guid = "1";
        pool.health = "ONLINE";
        pool.devices = std::move(devices);
        for (const std::string& property : properties) {
            const std::size_t equals = property.find('=');
            const bool isLocal = property[equals - 1] == ':';
            if (property.substr(0, equals) == "altroot")
                pool.altroot = texts->Keep(property.substr(equals + 1));
            pool.properties.push_back(texts->Make(
                property.substr(0, equals - (isLocal ? 1 : 0)), property.substr(equals + 1),
                std::nullopt,
                texts->Origin(isLocal ? PropertySource::Local : PropertySource::Default)));
        }
    }

    PropertyValue Set(const char* name, const char* value) const {
        return texts->Make(name, value, std::nullopt, texts->Origin(PropertySource::Local));
    }

    void Disks(const std::vector<std::string>& paths) {
        for (const std::string& path : paths)
            live.disks.push_back({path, true, "", false, path});
    }

    /// What concerns pools, but for their numbers: commands, "! " and what cannot be done, ": " and
    /// what is said.
    [[nodiscard]] std::string Plan(const PlanOptions& options = {}) const {
        std::string text;
        const zfslib::restore::Plan plan = MakePlan(saved, live, options);
        for (const Step& step : plan.steps) {
            if (step.words.front() != "zpool")
                continue;
            for (const std::string& word : step.words)
                text += word + (&word == &step.words.back() ? "\n" : " ");
        }
        for (const Cannot& cannot : plan.cannot)
            if (cannot.object == "p" && cannot.property != "guid")
                text += "! " + cannot.property + ": " + cannot.reason + "\n";
        for (const Mention& mention : plan.mentioned)
            text += ": " + mention.text + "\n";
        return text;
    }

    const std::shared_ptr<StateTexts> texts = std::make_shared<StateTexts>();
    HostState saved;
    LiveState live;
};

TEST(PoolPlan, OfALivePoolSetsWhatDiffers) {
    const std::string blake = "feature@blake3=";
    struct Row {
        std::vector<std::string> saved, live;
        std::string expected;
    };
    for (const Row& row : std::vector<Row>{
             {{"failmode:=wait"}, {"failmode=wait"}, ""},
             {{"failmode=wait"}, {"failmode:=panic"}, "zpool set failmode=wait p\n"},
             {{"failmode=wait"},
              {"failmode=panic"},
              "! failmode: nobody set it, and the live tools have another default\n"},
             {{"failmode:=panic"}, {"failmode=wait"}, "zpool set failmode=panic p\n"},
             {{"comment=-"}, {"comment:="}, ""},
             {{"comment=-"}, {"comment:=x"}, "zpool set comment= p\n"},
             {{"dedup_table_quota:=0"},
              {"dedup_table_quota=auto"},
              "zpool set dedup_table_quota=none p\n"},
             {{"newer:=on"}, {}, ""}, // not of the tools it was saved with, either
             {{"u:a:=x y"}, {"u:b:=z"}, "zpool set u:a=x y p\nzpool set u:b= p\n"},
             {{"u:a=-"}, {}, ""},
             {{blake + "active"}, {blake + "enabled"}, ""},
             {{blake + "active"}, {blake + "disabled"}, "zpool set feature@blake3=enabled p\n"},
             {{blake + "active"},
              {},
              "! feature@blake3: the live tools do not know this feature\n"},
             {{blake + "disabled"},
              {blake + "active"},
              ": has features that were not enabled, and stay: blake3\n"},
             {{blake + "active", "compatibility:=off"},
              {blake + "disabled", "compatibility:=legacy"},
              "zpool set compatibility=off p\nzpool set feature@blake3=enabled p\n"},
             {{"compatibility:=legacy", blake + "active"},
              {blake + "disabled", "compatibility=off"},
              "zpool set feature@blake3=enabled p\nzpool set compatibility=legacy p\n"},
             {{"version:=30"}, {"version:=28"}, "zpool set version=30 p\n"},
             {{"version:=9"}, {"version=-"}, "! version: the version of a pool never goes down\n"},
             {{"version=-", blake + "active"},
              {"version:=28", blake + "disabled"},
              "zpool set feature@blake3=enabled p\n"},
             {{"cachefile:=none"}, {"cachefile=-"}, "zpool set cachefile=none p\n"},
             {{"cachefile:=none", "altroot=/mnt"},
              {"cachefile=-"},
              ": cachefile was none, which holds until a pool is exported\n"},
             {{"bootfs:=p"}, {"bootfs=-"}, "zpool set bootfs=p p\n"},
             {{"bootfs:=p/no"}, {}, "! bootfs: this dataset is not there, nor made\n"},
             {{"autotrim:=on", "failmode:=panic"},
              {"autotrim=off", "failmode=wait"},
              "zpool set failmode=panic p\nzpool set autotrim=on p\n"},
         }) {
        PoolPair pair;
        pair.live.state.datasets.emplace_back().name = "p";
        pair.Add(pair.saved, row.saved, {Top(normal, Leaf("sda"))});
        pair.Add(pair.live.state, row.live, {Top(normal, Leaf("sda"))});
        EXPECT_EQ(pair.Plan(), row.expected) << testing::PrintToString(row.saved);
    }
}

TEST(PoolPlan, LeavesDevicesAsTheyAre) {
    PoolPair pair;
    Device savedPair =
        Top(normal, Group(mirror, "mirror", {Leaf("sda", "id-a-part1"), Leaf("sdb")}));
    Device livePair =
        Top(normal, Group(mirror, "mirror", {Leaf("sdb"), Leaf("sdx", "id-a-part1")}), 9);
    savedPair.properties = {pair.Set("u:a", "1"), pair.Set("u:a", "1")};
    livePair.children[1].properties = {pair.Set("checksum_n", "5"), pair.Set("parity", "1")};
    pair.live.state.datasets.emplace_back().name = "p";
    pair.Add(pair.saved, {},
             {savedPair, Top(normal, Leaf("sdc")), Top(Device::Use::Spare, Leaf("sdd")),
              Top(Device::Use::Cache, Leaf("sdf"))});
    pair.Add(pair.live.state, {},
             {livePair, Top(normal, Leaf("sde")), Top(normal, Leaf("sdg")),
              Top(Device::Use::Cache, Leaf("sdh"))});
    EXPECT_EQ(pair.Plan({{}, {}, {{"sdf", "sdh"}}}),
              "zpool set u:a=1 p mirror-0\n"
              "zpool set checksum_n=none p sdx\n"
              "! ashift of mirror-0: a device keeps the sector size it was made with\n"
              "! parity of sdx: nobody had set it, and no command is known that leads back\n"
              "! sdc: the devices of a pool that is there are left as they are\n"
              "! sdd: the devices of a pool that is there are left as they are\n"
              ": has a device that was not saved: sdg\n");
    std::swap(pair.live.state.pools[0].devices[0], pair.live.state.pools[0].devices[1]);
    EXPECT_THAT(pair.Plan(), HasSubstr("! mirror-0: the devices")); // they have an order
    pair.saved.datasets.emplace_back().name = "p/x";
    EXPECT_EQ(pair.Plan({{"p/x"}, {}, {}}), ""); // the pool is not asked for
    pair.live.state.pools[0].health = "SUSPENDED";
    EXPECT_EQ(pair.Plan(), "! : nothing can be done with a pool in this state\n"
                           ": 2 datasets wait for it: make the plan again when it is there\n");
}

TEST(PoolPlan, MakesAPoolAsItWas) {
    PoolPair pair;
    Device replaced = Group(Device::Kind::Replacing, "replacing", {Leaf("sdx"), Leaf("sdb")});
    replaced.children[1].properties = {pair.Set("u:b", "2")};
    Device spare = Leaf("draid1-0-0");
    spare.kind = Device::Kind::Other;
    Device wide = Top(normal, Group(mirror, "mirror", {Leaf("sde"), Leaf("sdf")}), 12);
    wide.properties = {pair.Set("u:a", "1")};
    pair.Add(pair.saved,
             {"feature@lz4_compress=active", "feature@new=enabled", "feature@old=disabled",
              "ashift=0", "comment:=a b", "failmode=wait", "autotrim:=on", "u:n:=x", "bootfs:=p",
              "compatibility:=legacy", "cachefile:=none", "altroot=/mnt"},
             {Top(normal, Group(mirror, "mirror", {Leaf("sda", "id-a-part1"), replaced}), 9), wide,
              Top(normal, Group(Device::Kind::Raidz, "raidz2", {Leaf("/f/1"), Leaf("/f/2")})),
              Top(Device::Use::Spare, Leaf("sdg")), Top(Device::Use::Spare, spare),
              Top(Device::Use::Log, Leaf("sdh"), 9)});
    pair.live.features = {"lz4_compress", "old"};
    pair.Disks(
        {"/dev/disk/by-id/id-a", "/dev/newb", "/dev/sde", "/dev/sdf", "/f/1", "/f/2", "/dev/sdh"});
    const PlanOptions options = {{}, {}, {{"sdb", "/dev/newb"}}};
    pair.live.state.tools.datasetProperties["mountpoint"] = {true, true, ""};
    pair.saved.datasets[0].properties = {pair.texts->Make(
        "mountpoint", "/p", std::nullopt, pair.texts->Origin(PropertySource::Default))};
    EXPECT_EQ(
        pair.Plan(options),
        "zpool create -d -o feature@lz4_compress=enabled -o comment=a b -o ashift=9 -O "
        "canmount=noauto -m none "
        "p mirror /dev/disk/by-id/id-a /dev/newb\n"
        "zpool add --allow-ashift-mismatch -o ashift=12 p mirror /dev/sde /dev/sdf\n"
        "zpool add --allow-ashift-mismatch --allow-replication-mismatch -o ashift=12 p"
        " raidz2 /f/1 /f/2\n"
        "zpool add --allow-ashift-mismatch -o ashift=9 p log /dev/sdh\n"
        "zpool set compatibility=legacy p\nzpool set u:n=x p\nzpool set ashift=0 p\n"
        "zpool set u:b=2 p /dev/newb\nzpool set u:a=1 p mirror-1\nzpool set autotrim=on p\nzpool "
        "set bootfs=p p\n"
        "! sdg: the pool is made without it: sdg (/dev/sdg) is not there, --disk 'sdg=NEW' names"
        " another\n"
        "! feature@new: the live tools do not know this feature\n"
        ": was imported below /mnt, which is not repeated, nor the cachefile of none that comes "
        "with it\n");
    EXPECT_THROW((void)pair.Plan({{}, {}, {{"sdz", "/dev/newb"}}}), std::runtime_error);
    const Plan whole = MakePlan(pair.saved, pair.live, options);
    EXPECT_EQ(whole.steps[0].diskWords.size(), 2U);
    for (const Step& step : whole.steps) // a group's name is no disk
        EXPECT_TRUE(step.device.empty() || step.diskWords.empty() == (step.device == "mirror-1"));
    EXPECT_EQ(whole.steps[0].words[whole.steps[0].diskWords[1]], "/dev/newb");
    EXPECT_THAT(whole.steps[4].needs, testing::Contains(3U)); // all of the pool is there
    // Nothing is below it yet that would be mounted by the way; what it boots from is there later.
    EXPECT_EQ(whole.steps[9].phase, Phase::Datasets);
    EXPECT_THAT(whole.steps[9].words, ElementsAre("zfs", "inherit", "mountpoint", "p"));
    EXPECT_EQ(whole.steps.back().phase, Phase::Mounts);

    pair.live.disks[2].usedBy = "q";
    pair.live.disks[2].isOnlySpare = true;
    EXPECT_EQ(pair.Plan(), "! sdg: the pool is made without it: sdg (/dev/sdg) is not there, --disk"
                           " 'sdg=NEW' names another\n"
                           "! : its disks cannot all be had: sdb (/dev/sdb) is not there, --disk"
                           " 'sdb=NEW' names another; sde (/dev/sde) is used by the pool q, --disk"
                           " 'sde=NEW' names another\n"
                           ": 1 dataset waits for it: make the plan again when it is there\n");

    pair.live.disks[2].usedBy.clear();
    for (const char* name : {"id-a", "sda", "/dev/disk/by-id/id-a"}) {
        pair.live.importablePools = {{"q", "3", "ONLINE", "", {}, {name, "sdb"}}};
        EXPECT_THAT(pair.Plan(options),
                    HasSubstr("had: sda (/dev/disk/by-id/id-a) is part of the pool q (3), which"
                              " could be imported, --disk 'sda=NEW' names another\n"));
    }
    const std::string waits = ": 1 dataset waits for it: make the plan again when it is there\n";
    pair.live.importablePools = {{"p", "2", "ONLINE", "", {}, {}},
                                 {"x", "1", "FAULTED", "Buy.", {}, {}}};
    const std::string other =
        ": a pool that could be imported says that it is p, but is not the one"
        " that was saved (2, saved: 1)\n";
    EXPECT_EQ(pair.Plan(), "! : the saved pool is there but cannot be imported as it is, and is not"
                           " made anew in its place; the tool says: Buy.\n" +
                               other + waits);
    pair.live.importablePools.push_back({"x", "1", "DEGRADED", "", {"/f"}, {}});
    EXPECT_EQ(pair.Plan(), "zpool import -d /f -N 1 p\n" + other + waits);
    pair.live.importablePools.clear();
    pair.saved.pools[0].health = "SUSPENDED";
    EXPECT_EQ(pair.Plan(options), "! : it was SUSPENDED when it was saved, and did not tell its"
                                  " properties\n" +
                                      waits);
    pair.saved.pools[0].health = "ONLINE";

    // The tool makes pools of the disks of destroyed ones without a word.
    pair.live.disks[1].target = "/dev/sdz1";
    pair.live.importablePools = {{"q", "3", "ONLINE", "", {}, {"sdz"}, true}};
    EXPECT_THAT(pair.Plan(options), HasSubstr("had: sdb (/dev/newb) is part of the destroyed pool"
                                              " q (3), which `zpool import -D` could"));
    pair.live.importablePools = {{"p", "2", "ONLINE", "", {}, {}, true}};
    EXPECT_THAT(pair.Plan(options), HasSubstr("zpool create "));
    pair.live.importablePools.push_back({"x", "1", "UNAVAIL", "Buy.", {}, {}, true});
    pair.live.importablePools.push_back({"x", "1", "ONLINE", "", {"/f g"}, {}, true});
    pair.live.importablePools.push_back({"x", "1", "FAULTED", "", {}, {}});
    EXPECT_THAT(pair.Plan(options),
                HasSubstr("! : it was destroyed, and is not made anew while it is"
                          " there: `zpool import -D -d '/f g' -N 1 p`"));
    pair.live.importablePools.clear();
    pair.live.destroyedDoubt = "no idea";
    EXPECT_THAT(pair.Plan(options), HasSubstr(": whether it was destroyed and could be brought back"
                                              " is not known"));

    pair.live.poolsByGuid = {{"1", "new p"}};
    EXPECT_EQ(
        pair.Plan(options),
        "! : it is there under the name new p: `zpool export 'new p'` and `zpool import -d /f "
        "-N 1 p` give it this one; or plan with --rename 'p=new p'\n" +
            waits);
}

TEST(PoolPlan, MakesAPoolForOneDatasetOfIt) {
    PoolPair pair;
    pair.live.state.tools.datasetProperties["mountpoint"] = {true, true, ""};
    pair.saved.datasets[0].name = "p/x";
    pair.saved.datasets[0].isMounted = true;
    pair.saved.datasets[0].properties = {pair.texts->Make(
        "mountpoint", "/p/x", std::nullopt, pair.texts->Origin(PropertySource::Default))};
    pair.Add(pair.saved, {}, {Top(normal, Leaf("sda"))});
    pair.Disks({"/dev/sda"});
    std::string lines;
    for (const Step& step : MakePlan(pair.saved, pair.live).steps)
        lines += step.words[1] + " " + step.words[step.words.size() - 2] + "\n";
    EXPECT_THAT(lines, HasSubstr("set mountpoint=/p/x\nmount ")); // the pool was made with -m none
}

TEST(PoolPlan, MakesOnlyWhatTheToolsTake) {
    const auto planOf = [](std::vector<Device> devices, const std::string& version) {
        PoolPair pair;
        pair.live.state.tools.version = version;
        pair.Add(pair.saved, {"version=-"}, std::move(devices));
        for (const char* name : {"a", "b", "c", "d", "e"})
            pair.Disks({std::string("/dev/sd") + name, std::string("/f/") + name});
        return pair.Plan();
    };
    const std::string old = "zfs-2.2.0";
    const Device two = Top(normal, Group(mirror, "mirror", {Leaf("sda"), Leaf("sdb")}));
    const Device lone = Top(normal, Leaf("sdc"));
    const auto raid = [](const char* word) {
        return Top(normal, Group(Device::Kind::Raidz, word, {Leaf("/f/a"), Leaf("/f/b")}));
    };
    EXPECT_THAT(planOf({two, raid("raidz1")}, old), HasSubstr("/dev/sdb raidz1 /f/a /f/b\n"));
    EXPECT_THAT(
        planOf({two, raid("raidz2")}, old),
        HasSubstr("zpool create -f -d -o ashift=12 -O canmount=noauto -m none p mirror /dev/sda"));
    EXPECT_THAT(planOf({two, lone}, old), HasSubstr("! : its devices differ in redundancy"));
    EXPECT_THAT(planOf({two, lone}, "zfs-2.3.0"),
                HasSubstr("zpool add --allow-replication-mismatch -o ashift=12 p /dev/sdc\n"));
    EXPECT_THAT(planOf({two, Top(normal, Leaf("sdc"), 9)}, old),
                HasSubstr("! : its devices differ"));
    EXPECT_THAT(planOf({lone, Top(normal, Leaf("sda"), 9)}, old),
                HasSubstr("zpool add -o ashift=9 p /dev/sda\n"));
    EXPECT_THAT(planOf({Top(normal, Group(mirror, "mirror", {Leaf("sda"), Leaf("/f/b")}))}, ""),
                HasSubstr("! : its devices differ"));
    EXPECT_THAT(
        planOf({two, Top(Device::Use::Log, Group(mirror, "mirror", {Leaf("/f/a"), Leaf("/f/b")})),
                Top(Device::Use::Log, Leaf("sdc")), Top(Device::Use::Special, Leaf("sdd"))},
               "zfs-2.3.0"),
        HasSubstr("zpool add --allow-replication-mismatch -o ashift=12 p special /dev/sdd"
                  " log mirror /f/a /f/b\n"
                  "zpool add -o ashift=12 p log /dev/sdc\n"));
    EXPECT_THAT(planOf({Top(normal, Group(Device::Kind::Draid, "draid1:1d:2c:0s",
                                          {Leaf("sda"), Leaf("sdb")}))},
                       old),
                HasSubstr("! : it has a draid"));
    EXPECT_THAT(planOf({lone, Top(Device::Use::Meta, Leaf("sda"))}, old), HasSubstr("! : nobody"));
    EXPECT_THAT(planOf({lone, lone}, old), HasSubstr("is to be used twice"));
    EXPECT_THAT(
        planOf({lone, Top(Device::Use::Spare, Leaf("sdc"))}, old),
        HasSubstr("! sdc: the pool is made without it: sdc (/dev/sdc) is to be used twice"));

    PoolPair both; // are not made of the same disk
    both.Add(both.saved, {}, {lone});
    both.Add(both.saved, {}, {lone});
    both.saved.pools[1].name = both.saved.datasets.emplace_back().name = "q";
    both.saved.roots.emplace_back("q");
    both.Disks({"/dev/sdc"});
    EXPECT_THAT(both.Plan(), testing::Not(HasSubstr(" q ")));
}

} // namespace
