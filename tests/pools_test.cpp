// The pool record, pool enumeration, pool import, and how the health of pools is read.

#include "fakes.h"
#include "posix/CSimpleCmdExec.h"
#include "util/str.h"
#include "zfstools/PoolHealth.h"
#include "zfstools/Tools.h"
#include "zfstools/ZfsProperties.h"
#include "zfstools/Zpool.h"
#include "zfstools/ZpoolsEnumerator.h"

#include <algorithm>
#include <gmock/gmock.h>
#include <set>

using namespace zfslib;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// Virtual devices on one line: "mirror-0[Mirror: c1t0d0 c1t1d0]".
std::string Dump(const std::vector<Zpool::VirtualDevice>& devices) {
    std::string text;
    for (const Zpool::VirtualDevice& device : devices) {
        text += (text.empty() ? "" : " ") + device.name + "[" +
                Zpool::VirtualDeviceTypeToString(device.type) + ":";
        for (const Zpool::DeviceReference& reference : device.devices)
            text += " " + reference.name;
        text += "]";
    }
    return text;
}

std::string Dump(const ZpoolEnumerator::Config& config) {
    return Zpool::StateToString(config.state) + " " + Dump(config.devices) + " logs " +
           Dump(config.logs) + " caches " + Dump(config.caches) + " metas " + Dump(config.metas) +
           " spares " + Dump(config.spares);
}

std::string ParseStatus(const std::string& output) {
    ZpoolEnumerator::Config config;
    ZpoolEnumerator::ParseZpoolConfig(output, config);
    return Dump(config);
}

std::string StatusError(const std::string& output) {
    return ErrorOf([&] { ParseStatus(output); });
}

/// The device table of a pool whose lines stand at the given indentation.
std::string Table(const std::string& lines) {
    return "config:\n\n  NAME  STATE  READ WRITE CKSUM\n  tank  ONLINE 0 0 0\n" + lines +
           "\nerrors: No known data errors\n";
}

Zpool PoolOf(std::uint64_t size, std::uint64_t allocated, const char* dedupratio) {
    Zpool pool;
    pool.size = size;
    pool.allocated = allocated;
    if (dedupratio != nullptr)
        pool.properties.dedupratio.Set(dedupratio);
    return pool;
}

constexpr std::uint64_t GiB = std::uint64_t{1} << 30;

} // namespace

TEST(Zpool, DedupRatios) {
    using Properties = Zpool::Properties;
    EXPECT_EQ(Properties::StringToDedupratio(" 1.05x"), 1.05);
    for (const char* text : {"0.99x", "x", "", "-1"})
        EXPECT_EQ(ErrorOf([&] { Properties::StringToDedupratio(text); }),
                  std::string("Failed to parse deduplication ratio. Provided value: [") + text +
                      "].");
    EXPECT_EQ(Properties::DedupratioToString(1.5), "1.500000");
}

TEST(Zpool, SizesAreCorrectedByTheDedupRatio) {
    struct Row {
        const char* ratio;
        std::uint64_t max, allocated;
    };
    const Row rows[] = {{nullptr, 100 * GiB, 10 * GiB},
                        {"1.00x", 100 * GiB, 10 * GiB},
                        {"1.30x", 200 * GiB, 13 * GiB},
                        {"2.00x", 200 * GiB, 20 * GiB},
                        {"2.01x", 300 * GiB, 21582210662}};
    for (const Row& row : rows) {
        const Zpool pool = PoolOf(100 * GiB, 10 * GiB, row.ratio);
        EXPECT_EQ(pool.GetMaxSize(), row.max) << row.ratio;
        EXPECT_EQ(pool.GetAllocatedSize(), row.allocated) << row.ratio;
        EXPECT_EQ(pool.GetAvailableSize(), row.max - row.allocated) << row.ratio;
    }
    EXPECT_EQ(PoolOf(0, std::uint64_t{3} << 62, "1").GetAllocatedSize(), std::uint64_t{3} << 62);
    EXPECT_EQ(PoolOf(0, 1, "1e300").GetMaxSize(), 0U);
    EXPECT_EQ(ErrorOf([] { return PoolOf(1, 2, nullptr).GetAvailableSize(); }),
              "Contract violation at zfstools/Zpool:98 GetAvailableSize");
    const Zpool failed = PoolOf(1, 1, "0.9x");
    for (auto size : {&Zpool::GetMaxSize, &Zpool::GetAllocatedSize, &Zpool::GetAvailableSize})
        EXPECT_EQ(ErrorOf([&] { return (failed.*size)(); }),
                  "Error, getting property value that was mismatched: [dedupratio]:[0.9x]");
    Zpool tank, tank2, upper;
    tank.name = "tank", tank2.name = "tank2", upper.name = "Tank";
    EXPECT_TRUE(tank < tank2 && upper < tank && !(tank < tank));
}

TEST(Zpool, SettersRunOneCommandForTheirOwnProperty) {
    const FakeExecutor fake({{"/usr/bin/env -i zpool set bootfs=tank/ROOT/be tank", ""},
                             {"/usr/bin/env -i zpool set failmode=panic tank", ""},
                             {"/usr/bin/env -i zpool set autoexpand=on tank", ""}});
    const InstalledExecutor installed(fake);
    Zpool::Properties properties;
    LogCapture log;
    Zpool::Properties::SetBootfs("tank", properties.bootfs.Set("tank/ROOT/be"));
    Zpool::Properties::SetFailmode("tank", properties.failmode.Set("panic"));
    Zpool::Properties::SetAutoexpand("tank", properties.autoexpand.Set("on"));
    EXPECT_EQ(fake.Commands().size(), 3U);
    EXPECT_THAT(log.lines, IsEmpty());
    EXPECT_EQ(ErrorOf([&] { Zpool::Properties::SetScrubInterval("tank", properties.cachefile); }),
              "Error: try to set [cachefile] property for pool [tank] via incorrect setter "
              "[scrubinterval]");
    EXPECT_EQ(ErrorOf([&] { Zpool::Properties::SetCachefile("tank", properties.bootfs); }),
              "Error: try to set [bootfs] property for pool [tank] via incorrect setter "
              "[cachefile]");
    EXPECT_EQ(ErrorOf([&] { Zpool::Properties::SetAutoreplace("tank", properties.autoexpand); }),
              "Error: try to set [autoexpand] property for pool [tank] via incorrect setter "
              "[autoreplace]");
    EXPECT_THAT(fake.Commands(), IsEmpty());
}

TEST(Zpool, RecordsHaveTheirMembersInOrder) {
    const auto [name, size, allocated, properties, state, devices, spares, logs, caches, metas] =
        Zpool();
    EXPECT_EQ(name + properties.guid.GetName() + util::str(size + allocated), "guid0");
    const Zpool::VirtualDevice device{"m", Zpool::VirtualDeviceType::Mirror, {{{}, "d"}}};
    EXPECT_EQ(Dump(ZpoolEnumerator::Config{state, {device}, logs, caches, metas, spares}),
              "UNAVAIL m[mirror: d] logs  caches  metas  spares ");
    const auto [unparsed, type, text, parent] = PropSource{1, PropSource::Type::Local, "t", "p"};
    EXPECT_EQ(util::str(unparsed) + PropSource::TypeToString(type) + text + parent, "1localtp");
    const auto [bytes, unit, kind] = ZfsProperties::SpaceSize::FromString("1.5K");
    EXPECT_EQ(util::str(bytes) + unit.Name(), "1536K");
    EXPECT_EQ(kind, ZfsProperties::SpaceSize::Kind::Value);
}

TEST(PoolStatus, Layouts) {
    const std::pair<std::string, const char*> rows[] = {
        {"no table at all\n", "UNAVAIL  logs  caches  metas  spares "},
        // What stands in front of the first known line is no device.
        {"a\nb\n" + Table("    c\n"), "UNAVAIL c[disk: c] logs  caches  metas  spares "},
        {Table("    a ONLINE\n    b ONLINE\n"),
         "UNAVAIL a[disk: a] b[disk: b] logs  caches  metas  spares "},
        {Table("    raidz-0 X\n      a\n    raidz3-1\n      b\n    //dev/f\n    /var/f\n"),
         "UNAVAIL raidz-0[raidz: a] raidz3-1[raidz3: b] //dev/f[file: //dev/f] /var/f[disk: "
         "/var/f] logs  caches  metas  spares "},
        // A group inside a group is listed with its disks; what stands to the left belongs too.
        {Table("    mirror-0\n      spare-1\n        a\n      b\n   c\n"),
         "UNAVAIL mirror-0[mirror: spare-1 a b c] logs  caches  metas  spares "},
        {Table("    a\n  caches\n    x\n  cache\n    y\n  metas\n    m\n  special\n    s\n  "
               "spares\n    z AVAIL\n"),
         "UNAVAIL a[disk: a] logs  caches y[disk: y] metas m[disk: m] spares z[disk: z]"},
        {Table("    a\n  caches\n    x\n"),
         "UNAVAIL a[disk: a] logs  caches x[disk: x] metas  spares "},
        {Table("    a\n  logs\n    x\n  logs\n    y\n"),
         "UNAVAIL a[disk: a] logs y[disk: y] caches  metas  spares "},
        {"config:\n\n", "UNAVAIL  logs  caches  metas  spares "},
        {"config:\n  NAME STATE\n", "UNAVAIL  logs  caches  metas  spares "},
    };
    for (const auto& [output, dump] : rows)
        EXPECT_EQ(ParseStatus(output), dump) << output;
}

TEST(PoolStatus, Errors) {
    EXPECT_EQ(StatusError(" state: FAULTED\n"), "Incorrect zpool state value: FAULTED");
    EXPECT_EQ(StatusError(" state: ONLINE now\n"), "Parse zpool state failed:  state: ONLINE now");
    EXPECT_EQ(StatusError(Table("    mirror-0\n    mirror-1\n      a\n")),
              "Error. Empty virtual device parsed in zpool.");
    EXPECT_EQ(StatusError(Table("    a\n   \n    b\n")), "Empty line inappropriate!");
}

TEST(PoolProperties, RowsOfFourCells) {
    LogCapture log(logging::Level::info);
    Zpool::Properties properties;
    ZpoolEnumerator::ParseZpoolProperty("NAME PROPERTY VALUE SOURCE\n\n"
                                        "tank guid 12 -\ntank altroot - default\n"
                                        "tank failmode continue local\ntank dedupratio 0.5x -\n"
                                        "tank version - default\ntank comment x local\n"
                                        "tank autoexpand off local\ntank autoexpand on local\n",
                                        properties);
    EXPECT_EQ(properties.guid.GetValue(), "12");
    EXPECT_EQ(properties.altroot.GetState(), PropState::Initialized);
    EXPECT_EQ(properties.failmode.GetText(), "continue");
    EXPECT_EQ(properties.failmode.GetSource().type, PropSource::Type::Local);
    EXPECT_TRUE(properties.autoexpand.GetValue());
    EXPECT_EQ(properties.bootfs.GetState(), PropState::Unset);
    EXPECT_EQ(properties.dedupratio.GetState(), PropState::Failed);
    EXPECT_THAT(log.lines,
                ElementsAre("warning: stoul", "warning: Failed to parse deduplication ratio. "
                                              "Provided value: [0.5x]."));
    for (const char* row : {"tank comment a b local", "tank guid 12"})
        EXPECT_EQ(ErrorOf([&] {
                      ZpoolEnumerator::ParseZpoolProperty(std::string("H\n") + row, properties);
                  }),
                  "Failed to parse zpool get all");
}

TEST(PoolEnumeration, RunsListStatusAndGetInOrder) {
    using namespace commands;
    const FakeExecutor fake({{zpoolList, "NAME SIZE ALLOC\ntank 10G 1G\n\n  b 1T 5K extra\n"},
                             {zpoolStatus + "tank", Table("    c1t0d0\n")},
                             {zpoolGet + "tank", "H\ntank guid 5 -\n"},
                             {zpoolStatus + "b", " state: DEGRADED\n"},
                             {zpoolGet + "b", ""}});
    {
        LogCapture log;
        const std::vector<Zpool> pools = ZpoolEnumerator::Enumerate(fake);
        ASSERT_EQ(pools.size(), 2U);
        EXPECT_EQ(pools[0].name + Dump(pools[0].devices), "tankc1t0d0[disk: c1t0d0]");
        EXPECT_EQ(pools[0].size, 10 * GiB);
        EXPECT_EQ(pools[0].properties.guid.GetValue(), "5");
        EXPECT_EQ(pools[1].state, Zpool::State::Degraded);
        EXPECT_EQ(pools[1].allocated, 5120U);
        EXPECT_EQ(log.lines[0], "debug: Execute commnd: [" + zpoolList + "]");
        EXPECT_EQ(log.lines[1],
                  "debug: Command output: [NAME SIZE ALLOC\ntank 10G 1G\n\n  b 1T 5K extra\n]");
        EXPECT_EQ(log.lines[2], "debug: Prepare to execute zpool");
        EXPECT_EQ(log.lines[4], "debug: Zfs pool output line: config:");
        EXPECT_EQ(
            std::count(log.lines.begin(), log.lines.end(), "debug: Prepare to execute zpool get"),
            2);
        EXPECT_EQ(log.lines.back(), "debug: ") << "the output of the last command as it stands";
    }
    EXPECT_THAT(fake.Commands(), ElementsAre(zpoolList, zpoolStatus + "tank", zpoolGet + "tank",
                                             zpoolStatus + "b", zpoolGet + "b"));
    std::set<guid::guid_t> guids;
    for (int run = 0; run < 2; ++run)
        guids.insert(ZpoolEnumerator::Enumerate(fake)[0].devices[0].devices[0].guid);
    EXPECT_EQ(guids.size(), 2U);
    for (const char* empty : {"", "NAME SIZE ALLOC\n", "tank 1G 1G\nno pools available here\n"})
        EXPECT_THAT(ZpoolEnumerator::ExtractZpoolsFromOutput(empty, nullptr), IsEmpty()) << empty;
    EXPECT_EQ(ErrorOf([&] { ZpoolEnumerator::ExtractZpoolsFromOutput("H\ntank 1G", fake); }),
              "Failed to parse zpool output:\nH\ntank 1G");
    fake.Answer(zpoolList, "H\nmy pool 1G 1G\n");
    EXPECT_EQ(ErrorOf([&] { ZpoolEnumerator::Enumerate(fake); }),
              "no answer to /usr/bin/env -i zpool status my");
    EXPECT_THROW(ZpoolEnumerator::Enumerate(nullptr), std::bad_function_call);
}

TEST(PoolImport, ListsWhatHasItsIdentifierOnTheNextLine) {
    const FakeExecutor fake;
    fake.Answer("/usr/bin/env -i zpool import",
                "   pool: tank\n     id: 4711\n  state: ONLINE\n\n pool:\n"
                " pool: a\n state: ONLINE\n pool: b\n\n pool: c\n id:\n"
                " pool: d\n pool: e\n id: 1\n pool: two words\n id: 12 x\n pool: f");
    LogCapture log;
    std::string found;
    for (const Pool4Import& pool : EnumerateZpool4Import(fake))
        found += pool.name + "=" + pool.id + " ";
    EXPECT_EQ(found, "tank=4711 two=12 ");
    const std::string failure = "debug: zpool import output parsing failure: ";
    log.lines.erase(log.lines.begin() + 1);
    EXPECT_THAT(log.lines,
                ElementsAre("debug: Execute commnd: [/usr/bin/env -i zpool import]",
                            failure + "pool name is missing.",
                            failure + "pool [a] identifier not found, next line expected.",
                            failure + "pool [b] identifier line is empty.",
                            failure + "pool [c] cannot be parsed.",
                            failure + "pool [d] identifier not found, next line expected.",
                            failure + "failed to find pool [f] identifier."));
}

TEST(PoolImport, ImportsByIdentifier) {
    const std::string plain = "/usr/bin/env -i zpool import -f -N 4711 2>&1";
    const std::string full = "/usr/bin/env -i zpool import -f -N -R /a 4711 newtank 2>&1";
    const FakeExecutor fake;
    fake.Answer(plain, "out");
    fake.Answer(full, "");
    LogCapture log;
    ImportZfsPool({"tank", "4711"}, "", "", fake);
    EXPECT_THAT(log.lines, ElementsAre("debug: Execute commnd: [" + plain + "]",
                                       "debug: Command output: [out]"));
    ImportZfsPool({"tank", "4711"}, "newtank", "/a", fake);
    EXPECT_THAT(fake.Commands(), ElementsAre(plain, full));
}

TEST(PoolImport, TakesNoOperandThatAShellActsUpon) {
    for (const char* good : {"9035714406219357228", "tank", "/mnt/a.b", "t/d@2026-11-20_1:2"})
        EXPECT_TRUE(IsSafeOperand(good)) << good;
    for (const char* bad : {"", "-f", "1;reboot", "1 2", "$(x)", "1\n", "1\xc3\xa9", "a|b", "`a`"})
        EXPECT_FALSE(IsSafeOperand(bad)) << bad;
}

TEST(PoolHealth, IsReadByTheBestCommandThatWorks) {
    const std::string utc = commands::env + "TZ=UTC0 zpool status ";
    const std::string& plain = commands::zpoolStatus;
    const std::string damaged = " state: ONLINE\n  scan: scrub canceled on Sun Nov  2 20:13:22 "
                                "2026\nerrors: 40 data errors, use '-v' for a list\n";
    const FakeExecutor fake;
    fake.Answer(plain + "t", damaged);
    const PoolHealth fromRecording = PoolHealth::Read("t", fake);
    EXPECT_THAT(fake.Commands(),
                ElementsAre(utc + "-ps t", utc + "t", plain + "t", plain + "-v t"));
    EXPECT_EQ(fromRecording.dataErrors, 40U);
    EXPECT_FALSE(fromRecording.scans.at(0).ended.seconds);
    EXPECT_THAT(fromRecording.unread, ElementsAre("no answer to " + plain + "-v t"));

    fake.Answer(utc + "t", damaged);
    fake.Answer(plain + "-v t", "errors: Permanent errors:\n\n        /f\n");
    const PoolHealth solaris = PoolHealth::Read("t", fake);
    EXPECT_EQ(solaris.dataErrors, 40U);
    EXPECT_THAT(solaris.damagedFiles, ElementsAre("/f"));
    EXPECT_TRUE(solaris.scans.at(0).ended.seconds);
    fake.Commands();

    fake.Answer(utc + "-ps t", " state: SUSPENDED\nerrors: No known data errors\n");
    EXPECT_EQ(PoolHealth::Read("t", fake).state, PoolHealth::State::Suspended);
    EXPECT_THAT(fake.Commands(), ElementsAre(utc + "-ps t"));

    int commands = 0;
    using posix::CCommandFailure;
    const auto fail = [&commands](CCommandFailure::Kind kind) {
        commands = 0;
        const std::string error = ErrorOf([&] {
            PoolHealth::Read("t", [&](const std::string& command) -> std::string {
                ++commands;
                throw CCommandFailure(command, kind, 2, "", "");
            });
        });
        return std::to_string(commands) + " " + error;
    };
    EXPECT_EQ(fail(CCommandFailure::Kind::TimeOut).front(), '1');
    EXPECT_EQ(fail(CCommandFailure::Kind::ExitStatus),
              "3 Command [" + plain + "t] failed: exit status 2");
}
