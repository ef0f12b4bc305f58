// zfsinspect, run as a child on recordings, and its parts.

#include "executors/Recording.h"
#include "fakes.h"
#include "inspect/Escape.h"
#include "inspect/Gather.h"
#include "inspect/HealthReport.h"
#include "inspect/Interruption.h"
#include "inspect/MissingTools.h"
#include "inspect/Operands.h"
#include "inspect/Progress.h"
#include "inspect/Size.h"
#include "inspect/Table.h"
#include "inspect/ToolWarnings.h"
#include "posix/CSimpleCmdExec.h"
#include "util/str.h"

#include <csignal>
#include <fstream>
#include <future>
#include <gmock/gmock.h>
#include <nlohmann/json.hpp>
#include <sstream>
#include <unistd.h>

using namespace inspect;
using posix::CCommandFailure;
using posix::CSimpleCmdExec;
using testing::HasSubstr;

namespace {

struct Outcome {
    int status = 0;
    std::string out;
    std::string err;
};

Outcome RunProgram(const std::string& program, const std::vector<std::string>& arguments) {
    Outcome outcome;
    try {
        CSimpleCmdExec::RunCommandAndGetOutput(program, arguments, outcome.err, outcome.out, false,
                                               60);
    } catch (const CCommandFailure& failure) {
        EXPECT_EQ(CCommandFailure::Kind::ExitStatus, failure.GetKind()) << failure.what();
        outcome = {failure.GetCode(), failure.GetOutput(), failure.GetErrorText()};
    }
    return outcome;
}

Outcome Inspect(const std::vector<std::string>& arguments) {
    return RunProgram(ZFSINSPECT, arguments);
}

/// On one of the hosts in recordings/, or on a recording of the test's own.
Outcome Replay(const std::string& recording, std::vector<std::string> arguments) {
    const bool isPath = recording.find('/') != std::string::npos;
    const std::string path =
        isPath ? recording : std::string(ZFSLIB_RECORDINGS) + "/" + recording + ".rec";
    arguments.insert(arguments.begin(), {"--replay", path});
    return Inspect(arguments);
}

nlohmann::json ReplayJson(const std::string& recording, std::vector<std::string> arguments) {
    arguments.emplace_back("--json");
    return nlohmann::json::parse(Replay(recording, arguments).out);
}

/// A file of the test that is gone at its end.
class TestFile {
public:
    explicit TestFile(const std::string& name)
        : path_(testing::TempDir() + std::to_string(getpid()) + name) {
        std::remove(path_.c_str());
    }
    ~TestFile() { std::remove(path_.c_str()); }
    TestFile(const TestFile&) = delete;
    TestFile& operator=(const TestFile&) = delete;
    const std::string& Path() const { return path_; }
    bool Exists() const { return std::ifstream(path_).good(); }
    void Record(const std::string& command, const std::string& output) const {
        std::ofstream(path_, std::ios::app) << zfslib::executors::FormatExchange(
            {"/usr/bin/env -i " + command, output, std::nullopt});
    }

private:
    std::string path_;
};

const std::string list = commands::zfsList.substr(commands::env.size());

} // namespace

TEST(Inspect, EndsAsThePlanSays) {
    const std::string saved = std::string(ZFSLIB_RECORDINGS) + "/files-state.rec";
    const TestFile same("same.rec"); // the saved state, asked for a plan of itself
    std::ofstream(same.Path()) << std::ifstream(saved).rdbuf();
    same.Record("zpool list -H -o name", "tank\n");
    struct Case {
        std::string live;
        std::vector<std::string> arguments;
        int status;
        std::string text;
    };
    const std::vector<Case> cases = {
        {same.Path(), {"--exit-code"}, 0, "\n\nnothing to do\n"},
        {same.Path(), {"tank/lun", "tank/none"}, 1, "[tank/none] was not saved in "},
        {"files-drift", {}, 0, "2 to create or add, 13 to set"},
        {"files-drift", {"--exit-code"}, 3, "\n    + create  -u "},
        {"files-lost", {"--exit-code"}, 4, "\nnothing to do, 1 that cannot be done"},
        {"files-lost", {"--disk", "=x"}, 2, "[=x] is refused"},
        {"files-lost", {"--rename", "tank=a", "--rename", "tank=b"}, 2, "has another one already"},
        {"files-lost", {"--rename", "tank"}, 2, "[tank] is refused"},
    };
    for (Case test : cases) {
        test.arguments.insert(test.arguments.begin(), {"plan", "--saved", saved});
        const Outcome outcome = Replay(test.live, test.arguments);
        EXPECT_EQ(test.status, outcome.status) << test.text << outcome.err;
        EXPECT_THAT(outcome.out + outcome.err, HasSubstr(test.text));
    }
}

TEST(Inspect, ShowsThePoolsBesideASickOne) {
    const TestFile host("sick.rec");
    host.Record("zpool list -o name,size,alloc",
                "NAME SIZE ALLOC\nbad - -\nmy pool 1G 1M\nwell 1G 1M\n");
    host.Record("zpool status bad", " state: SUSPENDED\nstatus: Lost.\nconfig:\n\n"
                                    "\tNAME     STATE     READ WRITE CKSUM\n"
                                    "\tbad      UNAVAIL      0     0     0  no replicas\n"
                                    "\t  c0     UNAVAIL      3 4.56K     0  cannot open\n");
    host.Record("zpool status well",
                " state: ONLINE\nconfig:\n\n"
                "\tNAME               STATE     READ WRITE CKSUM\n"
                "\twell               ONLINE       0     0     0\n"
                "\t  draid1:2d:3c-0   ONLINE       0     0     0\n"
                "\t    c1             ONLINE       0     0     0\n"
                "\tspecial\t\n\t  c2               ONLINE       0     0     7\n");
    host.Record("zpool get all well", "H\nwell dedupratio 1.5x -\n");
    const Outcome outcome = Replay(host.Path(), {"pools"});
    EXPECT_EQ(R"(bad  SUSPENDED
    error     Incorrect zpool state value: SUSPENDED
    status    Lost.
    size       -
    allocated  -
    free       -
    devices
        c0   disk  UNAVAIL  read 3, write 4.56K  cannot open

my pool  unknown
    error     names with white space cannot be passed on to the tools
    size       1G
    allocated  1M
    free       1023M

well  ONLINE
    size       1G     2G corrected for deduplication
    allocated  1M     1.50M corrected for deduplication
    free       1023M  2.00G corrected for deduplication
    devices
        draid1:2d:3c-0  draid  ONLINE
            c1          disk   ONLINE
    special
        c2              disk   ONLINE  checksum 7
)",
              outcome.out);
    EXPECT_EQ("zfsinspect: 2 of 3 pools cannot be read\n", outcome.err);
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ(0, Replay(host.Path(), {"pools", "well"}).status);
    const auto json = ReplayJson(host.Path(), {"pools"}).at("pools");
    EXPECT_EQ("SUSPENDED", json.at(0).at("state"));
    EXPECT_EQ("draid", json.at(2).at("devices").at(0).at("type"));
    EXPECT_EQ(4669, json.at(0).at("health").at("root").at("devices").at(0).at("writeErrors"));
}

TEST(Inspect, JudgesHealth) {
    const struct {
        const char* status; ///< or the rest of it behind the state
        const char* reasons;
    } rows[] = {
        {" state: NEWWORD\n", "poolState"},
        {"config:\n", "?"},
        {" state: ONLINE\nconfig:\n\tt ONLINE 0 0 0\n\t  a OFFLINE 0 0 0\n\tspares\n"
         "\t  b AVAIL\n\t  c INUSE currently in use\n\t  d FAULTED corrupted data\n",
         "deviceState deviceState"},
        {" state: ONLINE\nconfig:\n\tt ONLINE 0 1 0\n\t  a ONLINE 0 0 2K\n\t  b ONLINE 0 0 0\n",
         "deviceErrors deviceErrors"},
        {" state: ONLINE\nerrors: List of errors unavailable\n", "dataErrors"},
        {" state: ONLINE\n  scan: resilvered 1K in 1 with 0 errors on never\n", ""},
        {" state: ONLINE\n  scan: scrub repaired 0 in 1 with 2 errors on never\n", "scanErrors"},
    };
    static const char* const kinds[] = {"poolState",  "deviceState", "deviceErrors", "dataErrors",
                                        "scanErrors", "capacity",    "scrubAge"};
    const auto judge = [](const std::string& status, const zfslib::PoolSpace& space,
                          const HealthLimits& limits, std::int64_t now) {
        using zfslib::PoolHealth;
        std::string text, error;
        for (const HealthReason& reason :
             Judge(PoolHealth::Parse(status, PoolHealth::Clock::Utc), space, limits, now, error))
            text += (text.empty() ? "" : " ") + std::string(kinds[static_cast<int>(reason.kind)]);
        return text + (error.empty() ? "" : "?");
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.reasons, judge(row.status, {}, {}, 0)) << row.status;
    zfslib::PoolSpace space;
    for (const std::uint64_t capacity : {89U, 90U}) {
        space.capacity = capacity;
        EXPECT_EQ(capacity == 90 ? "capacity" : "", judge(" state: ONLINE\n", space, {}, 0));
    }

    constexpr std::int64_t day = 86400;
    const std::string epoch = " since Thu Jan  1 00:00:00 1970",
                      end = " on Thu Jan  1 00:00:00 1970";
    const std::pair<std::string, const char*> scans[] = {
        {"none requested", "scrubAge scrubAge"},
        {"scrub repaired 0 in 1 with 0 errors" + end, " scrubAge"},
        {"scrub in progress" + epoch, " scrubAge"},
        {"resilver in progress for 0h1m", " "},
        {"scrub repaired 0 in 1 with 0 errors on Fri Jan  2 00:00:00 1970\n  scan: resilver (m) in "
         "progress" +
             epoch,
         " "},
    };
    for (const auto& [scan, reasons] : scans) {
        const std::string status = " state: ONLINE\n  scan: " + scan + "\n";
        const HealthLimits limits{90, 30};
        EXPECT_EQ(reasons, judge(status, {}, limits, 30 * day - 1) + " " +
                               judge(status, {}, limits, 30 * day))
            << scan;
    }
    using zfslib::PoolHealth;
    std::string error;
    const PoolHealth local =
        PoolHealth::Parse(" state: ONLINE\n  scan: scrub canceled" + end + "\n");
    EXPECT_TRUE(Judge(local, {}, {90, 30}, 0, error).empty());
    EXPECT_THAT(error, HasSubstr("time zone"));
}

TEST(Inspect, SaysWhichPoolIsNotHealthyAndWhy) {
    const struct {
        const char* recording;
        std::vector<std::string> arguments;
        int status;
        std::string text;
    } rows[] = {
        {"solaris-host", {}, 0, "tank   ONLINE  34% full  never scrubbed"},
        {"solaris-host", {"--all"}, 0, "    cache\n        c3t2d0      disk    ONLINE\n"},
        {"solaris-host", {"--capacity", "34"}, 3, "    limit     34 percent of the space are allo"},
        {"solaris-host", {"tank", "nosuch"}, 1, "error     no such pool\n"},
        {"mirror-host", {"--scrub-age", "1", "backup"}, 3, "limit     the pool was never scrubbed"},
        {"solaris-host", {"--scrub-age", "1", "rpool"}, 1, "error     nobody knows the time zone"},
        {"mirror-host", {"tank"}, 3, "tank  DEGRADED  4% full  never scrubbed  no errors\n"},
        {"sick-health", {"damaged"}, 3, "    damaged\n        /damaged/x\n    scan      scrub"},
        {"sick-health",
         {"distributed"},
         3,
         "       draid1-0-0  distributedSpare  ONLINE\n    spare"},
    };
    for (const auto& row : rows) {
        std::vector<std::string> arguments = {"health"};
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        const Outcome outcome = Replay(row.recording, arguments);
        EXPECT_EQ(row.status, outcome.status) << row.text;
        EXPECT_THAT(outcome.out, HasSubstr(row.text));
    }
}

TEST(Inspect, MetricsHaveUniqueEscapedLabels) {
    const TestFile host("metrics.rec");
    host.Record("zpool list -o name,size,alloc", "NAME SIZE ALLOC\nt 4G 1G\n");
    host.Record("zpool status t",
                " state: FAULTED\nconfig:\n\n\tt ONLINE 0 0 0\n\t  raidz1 ONLINE 0 0 "
                "0\n\t    \"\\\xff ONLINE 1K 2 3\n\t  raidz1 ONLINE 0 0 0\n"
                "\t    c1 ONLINE 0 0 0\nerrors: 5 data errors, use '-v'\n");
    const Outcome metrics = Replay(host.Path(), {"health", "--metrics"});
    EXPECT_EQ(3, metrics.status);
    for (const char* sample :
         {"zfs_pool_capacity_ratio{pool=\"t\"} 0.25\n", "zfs_pool_data_errors{pool=\"t\"} 5\n",
          "group=\"raidz1\",device=\"\\\"\\\\\\\\\\\\xff\"} 1024\n",
          "group=\"raidz1#2\",device=\"c1\",state=\"ONLINE\"} 1\n"})
        EXPECT_THAT(metrics.out, HasSubstr(sample));
}

TEST(Inspect, SaysWhichSpaceCannotBeComputed) {
    const TestFile host("space.rec");
    host.Record("zpool list -o name,size,alloc", "NAME SIZE ALLOC\nt 1G 1M\n");
    host.Record("zpool status t", " state: ONLINE\n");
    host.Record("zpool get all t", "H\nt dedupratio many -\n");
    EXPECT_THAT(Replay(host.Path(), {"pools"}).out,
                HasSubstr("\n    size       1G     corrected for deduplication unknown: Error, "));
    const auto pool = ReplayJson(host.Path(), {"pools"}).at("pools").at(0);
    EXPECT_TRUE(pool.at("available").is_null());
    EXPECT_THAT(pool.at("spaceError"), HasSubstr("[dedupratio]:[many]"));
}

TEST(Inspect, OrdersTreesOfAnyRoot) {
    const struct {
        std::string root;
        std::vector<std::string> names;
        std::string tree;
    } rows[] = {
        {"t", {}, ""},
        {"t", {"t/b", "t/0", "t", "t@s", "t/a/c", "t/a-", "t/a", "t/b"}, "t(@s 0 a(c) a- b)"},
        {"t/d", {"t/d/x@s", "t/d/x", "t/d", "t/d@s"}, "t/d(@s x(@s))"},
        {"t/d@s", {"t/d@s"}, "t/d@s"},
        {"t", {"t", "t/v@1", "t/v@2", "t/v/w/x"}, "t(v!(@1 @2 w!(x)))"},
        {"t/d", {"t/d/x", "t/d/y"}, "t/d!(x y)"},
    };
    for (const auto& row : rows) {
        std::vector<std::vector<zfslib::ZfsDataset>> records(1);
        for (const std::string& name : row.names)
            records[0].emplace_back().name = name;
        std::string tree;
        std::size_t depth = 0;
        for (const DatasetEntry& entry : OrderAsTree(records, row.root)) {
            tree += std::string(depth > entry.depth ? depth - entry.depth : 0, ')');
            tree += entry.depth > depth ? "(" : tree.empty() ? "" : " ";
            tree += entry.label + (entry.dataset == nullptr ? "!" : "");
            depth = entry.depth;
        }
        EXPECT_EQ(row.tree, tree + std::string(depth, ')')) << row.tree;
    }
    zfslib::ZfsDataset stranger;
    stranger.name = "tank";
    EXPECT_THROW(static_cast<void>(OrderAsTree({{stranger}}, "t")), std::runtime_error);
}

TEST(Inspect, ShowsWhatARestoreHasToSetAgain) {
    const TestFile host("changed.rec");
    host.Record(list + "filesystem t/d", "t/d\t1K\t1K\t0\n");
    host.Record(list + "snapshot t/d", "t/d@s\t-\t0\t-\n");
    host.Record(list + "volume t/d", "");
    host.Record("zfs get all t/d", "H\nt/d exec on received\nt/d setuid on inherited from t\n"
                                   "t/d xattr on default\nt/d devices on inherited from t/d\n"
                                   "t/d mounted yes -\nt/d utf8only off -\n"
                                   "t/d readonly on temporary\nt/d copies 2 unheard-of\n"
                                   "t/d volsize auto local\nt/d normalization formD -\n"
                                   "t/d refreservation 1.5K local\nt/d canmount maybe local\n"
                                   "t/d z:own 1 local\nt/d a:outer 2 inherited from t\n");
    host.Record("zfs get all t/d@s", "H\nt/d@s volsize 1G local\nt/d@s z:own 3 local\n"
                                     "t/d@s a:b 4 inherited from t/d\n");
    host.Record("zfs userspace t/d", "TYPE NAME USED QUOTA SOURCE\nPOSIX User 7 1K 5M local\n"
                                     "POSIX User 8 1K none local\n");
    const Outcome outcome = Replay(host.Path(), {"datasets", "t/d", "--changed"});
    EXPECT_EQ(R"(NAME    TYPE        USED  AVAIL
t/d     filesystem    1K     1K
        canmount        maybe  local             (not understood)
        volsize         auto   local
        refreservation  1.50K  local
        copies          2      unheard-of
        exec            on     received
        setuid          on     inherited from t
        normalization   formD  -
        a:outer         2      inherited from t
        z:own           1      local
        userquota@7     5M
    @s  snapshot       0      -
            z:own  3  local
)",
              outcome.out);
    EXPECT_EQ("zfsinspect: warning: Failed to read ZFS group quota for [t/d]. This property will "
              "not be restored. Cause: The recording [" +
                  host.Path() +
                  "] has no answer to the command [/usr/bin/env -i zfs groupspace t/d].\n",
              outcome.err);

    const auto json = ReplayJson(host.Path(), {"datasets", "t/d", "--properties"});
    EXPECT_EQ(1, json.at("warnings").size());
    const auto& dataset = json.at("datasets").at(0);
    EXPECT_EQ(
        R"({"failed":true,"inheritedFrom":null,"name":"canmount","source":"local","value":"maybe"})",
        dataset.at("properties").at(1).dump());
    for (const auto& property : dataset.at("properties")) // "auto" is no number
        EXPECT_EQ(property.at("name") == "refreservation", property.contains("bytes"));
    EXPECT_EQ(1536, dataset.at("properties").at(4).at("bytes"));
    EXPECT_EQ("t/d", dataset.at("properties").at(6).at("inheritedFrom"));
    EXPECT_EQ(R"([{"name":"userquota@7","value":"5M"}])", dataset.at("quotas").dump());
}

TEST(Inspect, ShowsWhereAStateIsInheritedFrom) {
    const std::string state = Replay("nasty-state", {"--json", "state", "tank", "--all"}).out;
    EXPECT_THAT(state,
                HasSubstr("\"value\": \"for\\tall\\nbelow\",\n          \"received\": null,\n"
                          "          \"source\": \"inherited\",\n"
                          "          \"inheritedFrom\": \"tank\""));
}

TEST(Inspect, AnswersTheSmallQuestions) {
    const std::string located = "/export/home/x  dataset rpool/export/home  pool rpool\n"
                                "/tmp            not on ZFS\n";
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string out;
    } rows[] = {
        {{"tools"}, 0, "The ZFS tools are installed.\n"},
        {{"volume", "tank/vol"}, 0, "/devices/pseudo/zfs@0:3c\n"},
        {{"volume", "tank/gone"}, 0, "pseudo@zfs\n"},
        {{"importable"}, 0, "depot  9035714406219357228\nvault  14420871362905518467\n"},
        {{"locate", "/export/home/x", "/tmp"}, 1, located},
        {{"--version"}, 0, "zfsinspect " ZFSINSPECT_VERSION "\n"},
    };
    for (const auto& row : rows) {
        const Outcome outcome = Replay("solaris-host", row.arguments);
        EXPECT_EQ(row.out, outcome.out) << row.arguments[0];
        EXPECT_EQ(row.status, outcome.status) << row.arguments[0];
    }
    EXPECT_THAT(Inspect({"pools", "--help"}).out, HasSubstr("every command (zfsinspect --help)"));
    EXPECT_EQ(R"({"device":"pseudo@zfs","found":false,"volume":"tank/gone"})",
              ReplayJson("solaris-host", {"volume", "tank/gone"}).dump());
    EXPECT_EQ(R"({"paths":[{"dataset":null,"error":null,"path":"/tmp","pool":null}]})",
              ReplayJson("solaris-host", {"locate", "/tmp"}).dump());
    const TestFile without("without-tools.rec");
    std::ofstream(without.Path()) << "$ /usr/bin/env -i pkginfo SUNWzfsu\n! no\n";
    EXPECT_EQ(R"({"installed":false})", ReplayJson(without.Path(), {"tools"}).dump());
}

TEST(Inspect, FailsWithOneLineAndRunsNothingAfterAUsageError) {
    const TestFile recording("unwritten.rec");
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string reason;
    } rows[] = {
        {{}, 2, "a command is missing"},
        {{"pool"}, 2, "[pool] is no command or option; did you mean \"pools\"?"},
        {{"imp"}, 2, "did you mean \"importable\"?"},
        {{"dtaset"}, 2, "did you mean \"datasets\"?"},
        {{"--json", "destroy"}, 2, "[destroy] is no command or option (see"},
        {{"pools", "--propertys"}, 2, "--propertys"},
        {{"pools", "a b"}, 2, "white space"},
        {{"pools", "[tank]"}, 2, "brackets"},
        {{"datasets"}, 2, "ROOT is required"},
        {{"datasets", "tank;reboot"}, 2, "[tank;reboot] is refused"},
        {{"datasets", "tank", "--type", "pool"}, 2, "pool not in"},
        {{"datasets", "tank", "--changed", "--properties"}, 2, "excludes"},
        {{"volume", "tank/\x1b[2J\n"}, 2, "[tank/\\e[2J ] is refused"},
        {{"volume", std::string(10000, 'a')}, 2, "longer than 255"},
        {{"locate", "/a", "b"}, 2, "[b] is refused: the path is not absolute"},
        {{"--timeout", "-1", "tools"}, 2, "digits"},
        {{"--replay", "x", "tools"}, 2, "excludes"},
        {{"health", "--metrics", "--json"}, 2, "excludes"},
        {{"health", "--capacity", "x"}, 2, "digits"},
        {{"datasets", "nosuch"}, 1, " zfs "},
    };
    for (const auto& row : rows) {
        std::vector<std::string> arguments = {"--record", recording.Path()};
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        const Outcome outcome = Inspect(arguments);
        EXPECT_EQ(row.status, outcome.status) << row.reason;
        EXPECT_EQ("", outcome.out) << row.reason;
        EXPECT_THAT(outcome.err, testing::StartsWith("zfsinspect: ")) << row.reason;
        EXPECT_THAT(outcome.err, HasSubstr(row.reason));
        EXPECT_EQ(outcome.err.size() - 1, outcome.err.find('\n')) << row.reason;
        EXPECT_EQ(row.status == 1, recording.Exists()) << row.reason;
    }
    const Outcome missing = Replay("mirror-host", {"pools", "tank", "nosuch"});
    EXPECT_EQ(1, missing.status);
    EXPECT_EQ("zfsinspect: no such pool: [nosuch]\n", missing.err);
    EXPECT_EQ("", missing.out);
}

TEST(Inspect, SendsNothingFromOutsideRaw) {
    const TestFile host("hostile.rec");
    const std::string name = "t/\x1b]0;x\x07\x9b"
                             "2J\xe2\x80\xae";
    host.Record(list + "filesystem t", "t\t1K\t1K\t0\n" + name + "\t1K\t1K\t0\n");
    host.Record("zfs get all t", "H\n");
    host.Record("zfs userspace t", "TYPE \n");
    host.Record("zfs get all " + name, "H\nn \x1b:p \x1b[31mred local\n");
    for (const char* option : {"--verbose", "--json", "--flat"}) {
        const Outcome outcome =
            Replay(host.Path(), {"datasets", "t", "--changed", option, "--type", "fs"});
        EXPECT_EQ(0, outcome.status) << outcome.err;
        const std::string all = outcome.out + outcome.err;
        EXPECT_EQ(std::string::npos, all.find_first_of("\x1b\x07\x9b\xe2")) << option << all;
        EXPECT_THAT(outcome.err, HasSubstr("for [t/\\e]0;x\\x07\\x9b2J\\xe2\\x80\\xae]."))
            << option;
    }
}

TEST(Inspect, SaysWhatARecordingLacks) {
    const struct {
        std::string text;
        std::vector<std::string> arguments;
        std::string reason;
    } rows[] = {
        {"# nothing\n", {"tools"}, "is empty."},
        {"$ x\n", {"tools"}, "has no answer to the command [/usr/bin/env -i pkginfo SUNWzfsu]."},
        {"$ x\n", {"volume", "t/v"}, "has no answer to the command [/usr/bin/env -i ls -la "},
        {"\\begin x\n$ x\n\\.\n$ y\n", {"pools"}, ":4: the answer to [y] is cut short\n"},
        {"$ x\n" + std::string(1 << 20, 'x'), {"--limit", "1", "pools"}, "longer than 1048576 b"},
    };
    for (const auto& row : rows) {
        const TestFile recording("lacking.rec");
        std::ofstream(recording.Path()) << row.text;
        const Outcome outcome = Replay(recording.Path(), row.arguments);
        EXPECT_EQ(1, outcome.status) << row.reason;
        EXPECT_THAT(outcome.err, HasSubstr(row.reason));
    }
}

TEST(Inspect, FailsWhenStandardOutputIsClosed) {
    const TestFile recording("closed.rec");
    const Outcome outcome = RunProgram("/bin/sh", {"-c", "exec \"$@\" >&-", "sh", ZFSINSPECT,
                                                   "--record", recording.Path(), "tools"});
    EXPECT_EQ(1, outcome.status);
    EXPECT_EQ("zfsinspect: cannot write to standard output\n", outcome.err);
    const auto recorded = zfslib::executors::ReadRecording(recording.Path());
    ASSERT_EQ(1, recorded.exchanges.size()); // no text went there
    EXPECT_EQ("/usr/bin/env -i pkginfo SUNWzfsu", recorded.exchanges[0].command);
    EXPECT_EQ(zfslib::executors::Recording::End::Ended, recorded.end);
}

TEST(InspectParts, EndBySignalAfterTheirChildren) {
    const auto interrupted = [] {
        std::signal(SIGINT, SIG_DFL);
        std::signal(SIGHUP, SIG_IGN);
        const Interruption interruption;
        std::raise(SIGHUP);
        if (Interruption::Signal() != 0)
            return;
        try {
            CSimpleCmdExec::RunCommand("echo $$; kill -INT $PPID; exec sleep 100");
        } catch (const CCommandFailure& failure) {
            const pid_t child = std::stoi(failure.GetOutput());
            if (failure.GetKind() == CCommandFailure::Kind::Stopped && kill(-child, 0) != 0 &&
                Interruption::Signal() == SIGINT)
                Interruption::EndBy(SIGINT);
        }
    };
    EXPECT_EXIT(interrupted(), testing::KilledBySignal(SIGINT), "");
}

TEST(InspectParts, TellAHostWithoutToolsFromOneWhereTheyFail) {
    using Kind = CCommandFailure::Kind;
    const std::string folders =
        " in /usr/sbin, /usr/bin, /sbin, /bin, /usr/local/sbin, /usr/local/bin";
    const std::tuple<std::string, Kind, int, std::string> rows[] = {
        {"TZ=UTC0 zpool status", Kind::CannotStart, ENOENT,
         "no ZFS tools on the host: no zpool" + folders},
        {"pkginfo SUNWzfsu", Kind::CannotStart, ENOENT, "host: no zfs" + folders},
        {"ls x", Kind::CannotStart, ENOENT, "ls x"},
        {"zfs list", Kind::CannotStart, EACCES, "zfs list"},
        {"zfs list", Kind::ExitStatus, ENOENT, "zfs list"},
    };
    for (const auto& [command, kind, code, error] : rows) {
        const auto failing = [kind = kind, code = code](const auto& line) -> std::string {
            throw CCommandFailure(line, kind, code, "", "");
        };
        EXPECT_THAT(ErrorOf([&, &line = command] {
                        NamingMissingTools(failing)("/usr/bin/env -i " + line);
                    }),
                    HasSubstr(error));
    }
    Options options;
    options.operands = {"/tank"};
    for (const Command command : {Command::Volume, Command::Locate, Command::State}) {
        options.command = command;
        const auto missing = [](const std::string&) -> std::string { throw MissingTools("x"); };
        const InstalledExecutor installed(missing);
        EXPECT_THROW((void)Gather(options, missing), MissingTools);
    }
}

TEST(InspectParts, FindTheDeviceOfAVolume) {
    Options options;
    options.command = Command::Volume;
    options.operands = {"t/v"};
    const std::string device = "/dev/zvol/t/v";
    const std::pair<std::string, std::string> rows[] = {
        {"lrwxrwxrwx 1 root root 9 Nov 23 08:59 /dev/zvol/t/v -> ../../zd0\n", device},
        {"crw-r-----  1 root operator 0x6e Nov 23 08:59 /dev/zvol/t/v\n", device},
        {"total 0\ndrwxr-xr-x 2 root root 80 Nov 23 08:59 .\n", "pseudo@zfs"},
        {"", "pseudo@zfs"},
    };
    for (const auto& [answer, expected] : rows) {
        const FakeExecutor host;
        host.Answer("/usr/bin/env -i ls -la " + device, answer);
        const InstalledExecutor installed(host);
        EXPECT_EQ(expected, std::get<VolumeReport>(Gather(options, host)).device) << answer;
    }
}

TEST(InspectParts, WarnOnceOfWhatToolsWriteToStandardError) {
    std::vector<std::string> printed;
    {
        ToolWarnings warnings([&printed](const std::string& text) { printed.push_back(text); });
        for (const char* text : {"ld.so: b\n", "no pools available\n", "a\nno datasets available\n",
                                 "\nno pools available to import\n", "ld.so: b", "a\n", "\n"})
            warnings.Add(text);
        EXPECT_TRUE(printed.empty());
    }
    EXPECT_THAT(printed, testing::ElementsAre("ld.so: b\n", "a\n"));
}

TEST(InspectParts, DrawProgressOnOneLineAndEraseIt) {
    std::ostringstream terminal;
    const std::string longName = "t/\x1b" + std::string(200, 'n');
    std::size_t width = 80;
    {
        Progress progress(terminal, [&width] { return width; });
        const auto executor =
            progress.Watch([&](const std::string&) { return "t\n" + longName + "\n"; });
        executor("/usr/bin/env -i zfs get all before");
        executor("/usr/bin/env -i " + list + "volume t");
        executor("/usr/bin/env -i zfs userspace t");
        EXPECT_EQ("", terminal.str());
        executor("/usr/bin/env -i zfs get all " + longName);
        EXPECT_EQ("volume 1 of 2: t/\\e" + std::string(60, 'n'), terminal.str());
        width = 20;
    }
    EXPECT_THAT(terminal.str(), testing::EndsWith("n\r" + std::string(19, ' ') + "\r"));
}

TEST(InspectParts, NameTheCommandThatIsWaitedFor) {
    struct Screen : std::stringbuf { // tells of the first text that is shown
        std::promise<std::string> shown;
        int sync() override {
            if (!std::exchange(isOld, true))
                shown.set_value(str());
            return 0;
        }
        bool isOld = false;
    } screen;
    std::ostream terminal(&screen);
    Progress progress(
        terminal, [] { return 25; }, std::chrono::milliseconds(1));
    std::future<std::string> shown = screen.shown.get_future();
    progress.Watch([&shown](const std::string&) {
        const bool isShown = shown.wait_for(std::chrono::minutes(1)) == std::future_status::ready;
        EXPECT_EQ("waiting 0 s: zpool impor", isShown ? shown.get() : "");
        return "";
    })("/usr/bin/env -i zpool import");
    EXPECT_THAT(screen.str(), testing::EndsWith("\r" + std::string(24, ' ') + "\r"));
}

TEST(InspectParts, EscapeAndFold) {
    const std::pair<std::string, std::string> rows[] = {
        {"plain ~", "plain ~"},
        {"\n\t\r\x1b\x01\x7f", R"(\n\t\r\e\x01\x7f)"},
        {R"(\n)", R"(\\n)"},
        {"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80", "é€😀"},
        {"\x80\x9b\xff", R"(\x80\x9b\xff)"},
        {"\xc2\x9b\xc2\xa0", "\\xc2\\x9b\xc2\xa0"},
        {"\xe2\x80\xaa\xe2\x80\xae", R"(\xe2\x80\xaa\xe2\x80\xae)"},
        {"\xe2\x81\xa6\xe2\x81\xa9", R"(\xe2\x81\xa6\xe2\x81\xa9)"},
        {"\xc2\x9f\xd8\x9c", R"(\xc2\x9f\xd8\x9c)"},
        {"\xe2\x80\x8a\xe2\x80\x8e\xe2\x80\x8f\xe2\x80\x90",
         "\u200a\\xe2\\x80\\x8e\\xe2\\x80\\x8f\u2010"},
        {"\u2027\xe2\x80\xa8\xe2\x80\xa9\u202f", "\u2027\\xe2\\x80\\xa8\\xe2\\x80\\xa9\u202f"},
        {"a\xef\xb8\x8f\xef\xbb\xbf", R"(a\xef\xb8\x8f\xef\xbb\xbf)"},
        {"\xf3\xa0\x80\x81\xf3\xa0\x87\xaf", R"(\xf3\xa0\x80\x81\xf3\xa0\x87\xaf)"},
        {"\xc0\xaf", R"(\xc0\xaf)"},
        {"\xe0\x9f\xbf", R"(\xe0\x9f\xbf)"},
        {"\xed\xa0\x80", R"(\xed\xa0\x80)"},
        {"\xf4\x90\x80\x80", R"(\xf4\x90\x80\x80)"},
        {"\xe2\x82", R"(\xe2\x82)"},
        {"\xe2\x82x", R"(\xe2\x82x)"},
        {"", ""},
        {std::string(1, '\0'), R"(\x00)"},
    };
    for (const auto& [text, escaped] : rows)
        EXPECT_EQ(escaped, Escape(text)) << escaped;
    EXPECT_EQ(3, Columns("é€😀"));
    EXPECT_EQ("é€", CutToColumns("é€😀", 2));
    EXPECT_EQ("a: b c", Fold("\na:\r\n\n b \nc\n"));
    const std::string cut = Fold(std::string(5000, 'h') + std::string(500, 't'));
    EXPECT_EQ(std::string(1500, 'h') + " ... " + std::string(500, 't'), cut);
}

TEST(InspectParts, TablesGrowWithTheirTextOnly) {
    Table table({1});
    table.Add({"short", "1"});
    table.Add({std::string(5000, 'n'), "23"});
    EXPECT_EQ("short" + std::string(115, ' ') + "   1", table.Line(0));
    EXPECT_EQ(std::string(5000, 'n') + "  23", table.Line(1));
    EXPECT_EQ(8, Indentation(2));
    EXPECT_EQ(200, Indented(8000, "n").find('n'));
}

TEST(InspectParts, WarningsOfOneKindAreOneLine) {
    using Kind = CCommandFailure::Kind;
    Options options;
    options.command = Command::Datasets;
    options.properties = PropertyChoice::Read;
    options.operands = {"t"};
    options.types = {zfslib::ZfsDataset::filesystem};
    Kind kind = Kind::ExitStatus;
    zfslib::Executors::SetProcessExecutor([&kind](const std::string& command) -> std::string {
        if (command.find("groupspace") != std::string::npos)
            return "TYPE \n";
        throw CCommandFailure(command, kind, 1, "cannot read " + util::split(command).back(), "");
    });
    const auto host = [](const std::string& command) -> std::string {
        return command.find(" list ") == std::string::npos ? "H\n"
                                                           : "t 1 1 1\nt/a 1 1 1\nt/b 1 1 1\n";
    };
    const Report report = Gather(options, host);
    const auto& datasets = std::get<DatasetsReport>(report);
    EXPECT_EQ(3, datasets.warnings.size());
    EXPECT_THAT(datasets.warningCauses, testing::Contains(testing::EndsWith("cannot read t/b")));
    EXPECT_THAT(
        datasets.warningLines,
        testing::ElementsAre("Failed to read ZFS user quota for [t]. This property will not be "
                             "restored. Cause: Command [/usr/bin/env -i zfs userspace t] failed: "
                             "exit status 1: cannot read t (the first of 3 alike)"));
    EXPECT_EQ("", Incompleteness(report));
    kind = Kind::TimeOut;
    EXPECT_NE("", Incompleteness(Gather(options, host)));
    zfslib::Executors::SetProcessExecutor(&zfslib::Executors::ChildProcessExecute);
}

TEST(InspectParts, DocumentsListWhatOnlyACreationSets) {
    std::vector<std::string> names = {"normalization"};
    const zfslib::ZfsProperties properties;
    zfslib::ZfsProperties::ForEach(properties, [&names](const auto& property) {
        if (zfslib::ZfsProperties::IsSetAtCreation(property.GetName()))
            names.push_back(property.GetName());
    });
    ASSERT_EQ(7, names.size());
    std::sort(names.begin(), names.end());
    std::string listed;
    for (const std::string& name : names)
        listed += (listed.empty() ? "" : ", ") + name;
    for (const char* document : {"docs/json.md", "docs/host-guide.md", "inspect/zfsinspect.1"}) {
        std::ifstream file(std::string(ZFSLIB_SOURCE) + "/" + document);
        std::string text;
        for (std::string word; file >> word; text += word + " ")
            word.erase(std::remove(word.begin(), word.end(), '`'), word.end());
        EXPECT_THAT(text, HasSubstr(listed)) << document;
    }
}

TEST(InspectParts, FormatSizesLikeTheTools) {
    const std::pair<std::uint64_t, const char*> rows[] = {
        {0, "0"},           {1023, "1023"},      {1024, "1K"},        {1536, "1.50K"},
        {10500, "10.3K"},   {13946060, "13.3M"}, {150994944, "144M"}, {1048575, "1024K"},
        {1ULL << 60, "1E"}, {~0ULL, "16.0E"},
    };
    for (const auto& [bytes, text] : rows)
        EXPECT_EQ(text, FormatSize(bytes)) << bytes;
}

TEST(InspectParts, CheckOperands) {
    for (const char* good : {"tank", "Big-Pool_1.x:y", "z/Z", "t/a.b/0", "t/d@2026-11-20", "a@s"})
        EXPECT_EQ("", RefusedDataset(good)) << good;
    for (const char* bad :
         {"",    "/",    "1a",  "-a",  "@s",  "a/",  "/a",    "a//b",     "a/b@", "a@b@c", "a@b/c",
          "a b", "a\tb", "a;b", "a$b", "a'b", "a%b", "a\x1b", "\xc3\xa9", "a/..", "a/./b", "a@.."})
        EXPECT_NE("", RefusedDataset(bad)) << bad;
    EXPECT_EQ("", RefusedDataset("t/" + std::string(253, 'a')));
    EXPECT_NE("", RefusedDataset("t/" + std::string(254, 'a')));
    EXPECT_EQ("", RefusedPool("tank"));
    for (const char* bad : {"tank/a", "tank@a", "", "2"})
        EXPECT_NE("", RefusedPool(bad)) << bad;
    EXPECT_EQ("", RefusedPath("/a b;$(c)\n"));
    EXPECT_NE("", RefusedPath(""));
}
