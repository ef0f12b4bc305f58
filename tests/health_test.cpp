// The health of pools: what is read of `zpool status` and `zpool list`.

#include "executors/ReplayingExecutor.h"
#include "fakes.h"
#include "posix/CSimpleCmdExec.h"
#include "zfstools/PoolHealth.h"
#include "zfstools/PoolSpace.h"

#include <gmock/gmock.h>

using namespace zfslib;
using testing::ElementsAre;
using Clock = PoolHealth::Clock;

namespace {

std::string Dump(const std::optional<PoolHealth::Amount>& amount) {
    if (!amount)
        return "";
    const std::string value = amount->value ? std::to_string(*amount->value) : "?";
    return amount->text == value ? value : amount->text + "=" + value;
}

/// "mirror-0:mirror ONLINE 0,0,84 (a note)[...members...]"; "?" behind a state that is not known.
std::string Dump(const PoolHealth::Device& device) {
    static const char* const types[] = {"disk",     "file",   "mirror", "raidz",     "raidz1",
                                        "raidz2",   "raidz3", "draid",  "replacing", "spare",
                                        "indirect", "dspare", "group"};
    std::string text = device.name + ":" + types[static_cast<int>(device.type)];
    if (device.draid)
        for (const unsigned number : {device.draid->parity, device.draid->data,
                                      device.draid->children, device.draid->spares})
            text += "," + std::to_string(number);
    text += " " + device.stateText + (device.state == PoolHealth::State::Unknown ? "?" : "");
    for (const auto* errors : {&device.read, &device.write, &device.checksum, &device.slow})
        text += *errors ? (errors == &device.read ? " " : ",") + Dump(*errors) : "";
    text += device.note.empty() ? "" : " (" + device.note + ")";
    for (const PoolHealth::Device& member : device.devices)
        text += (&member == &device.devices.front() ? "[" : "; ") + Dump(member);
    return text + (device.devices.empty() ? "" : "]");
}

std::string DumpTable(const PoolHealth& health) {
    std::string text = health.root ? Dump(*health.root) : "";
    for (const PoolHealth::Section& section : health.sections) {
        text += " " + section.name + "{";
        for (const PoolHealth::Device& device : section.devices)
            text += (&device == &section.devices.front() ? "" : "; ") + Dump(device);
        text += "}";
    }
    return text;
}

std::string Dump(const char* title, const PoolHealth::Time& time) {
    const std::string seconds = time.seconds ? "@" + std::to_string(*time.seconds) : "";
    return time.text.empty() ? "" : title + ("=" + time.text) + seconds;
}

std::string Dump(const PoolHealth::Scan& scan) {
    static const char* const kinds[] = {"?", "none", "scrub", "resilver", "errorscrub"};
    static const char* const progress[] = {"?", "running", "paused", "finished", "cancelled"};
    std::string text = kinds[static_cast<int>(scan.kind)] + std::string(" ") +
                       progress[static_cast<int>(scan.progress)] + "|" + scan.device + "|";
    text += scan.percentDone ? std::to_string(static_cast<int>(*scan.percentDone * 100)) : "";
    text += "|" + scan.timeLeft + "|" + scan.duration + "|" + Dump(scan.repaired) + "|";
    text += (scan.errors ? std::to_string(*scan.errors) : "") + "|";
    return text + Dump("started", scan.started) + Dump("paused", scan.paused) +
           Dump("ended", scan.ended);
}

std::string TableOf(const std::string& rows) {
    return DumpTable(PoolHealth::Parse(" state: ONLINE\nconfig:\n\n" + rows + "\nerrors: none\n"));
}

} // namespace

TEST(PoolHealth, DeviceTables) {
    const std::string header = "\tNAME          STATE     READ WRITE CKSUM\n";
    const std::string slow = "\tNAME          STATE     READ WRITE CKSUM  SLOW\n";
    const std::pair<std::string, const char*> rows[] = {
        {"", ""},
        {slow + "\tt             DEGRADED     0     0     0     0\n"
                "\t  draid2:3d:9c:1s-0  ONLINE       0     0     0     -\n"
                "\t    spare-0   ONLINE       0 4.56K     0     -\n"
                "\t      a       SPLIT        9     0     0     3  was /dev/a\n"
                "\t      draid2-0-0  ONLINE       0     0     0     0\n"
                "\tdedup\t\n\t  raidz3-1    ONLINE       0     0     0     0\n"
                "\t    77        UNAVAIL      0     0     0     0  was /disks/u1\n"
                "\tnext year's\n\t  indirect-3  ONLINE       0     0     0     0\n"
                "\tspares\n\t  draid2-0-1  AVAIL   \n"
                "\t  c0          INUSE     currently in use\n",
         "t:group DEGRADED 0,0,0,0[draid2:3d:9c:1s-0:draid,2,3,9,1 ONLINE 0,0,0,-=?"
         "[spare-0:spare ONLINE 0,4.56K=4669,0,-=?[a:disk SPLIT? 9,0,0,3 (was /dev/a); "
         "draid2-0-0:dspare ONLINE 0,0,0,0]]] dedup{raidz3-1:raidz3 ONLINE 0,0,0,0"
         "[77:file UNAVAIL 0,0,0,0 (was /disks/u1)]} next year's{indirect-3:indirect ONLINE "
         "0,0,0,0} spares{draid2-0-1:dspare AVAIL; c0:disk INUSE (currently in use)}"},
        // Names: blanks, those of groups and sections, a device's that looks like a title.
        {header + "\tlogs          ONLINE       0     0     0\n"
                  "\t  mirror      ONLINE       0     0     0\n"
                  "\t  spare-pool  ONLINE       0     0     0\n"
                  "\t  m  ON d     FAULTED      0     0     0  too  many\n"
                  "\t  config: x   ONLINE       0     0     0\n"
                  "\t  raidz       ONLINE       0     0     0\n"
                  "\t    /dev/dsk/c1  ONLINE       0     0     0\n"
                  "\tlogs\n\t  /l x        ONLINE       0     0     0\n",
         "logs:group ONLINE 0,0,0[mirror:disk ONLINE 0,0,0; spare-pool:disk ONLINE 0,0,0; "
         "m  ON d:disk FAULTED 0,0,0 (too  many); config: x:disk ONLINE 0,0,0; "
         "raidz:raidz ONLINE 0,0,0[/dev/dsk/c1:disk ONLINE 0,0,0]] "
         "logs{/l x:file ONLINE 0,0,0}"},
        // Columns that were moved, closed up, or cut; a table without a header.
        {"    NAME                STATE     READ WRITE CKSUM\n"
         "      d                   DEGRADED     0     0     0\n"
         "        spare-4           DEGRADED     0     0     0\n"
         "            c5t3d0s0      FAULTED      0     0     0  too many errors\n"
         "          c3t6d0          ONLINE       0     0     0\n        c1              ONLINE\n",
         "d:group DEGRADED 0,0,0[spare-4:spare DEGRADED 0,0,0[c5t3d0s0:disk FAULTED 0,0,0 (too "
         "many errors); c3t6d0:disk ONLINE 0,0,0]; c1:disk ONLINE]"},
        {"NAME STATE READ WRITE CKSUM\nd ONLINE 0 0 0\nc4 ONLINE 0 1 0\ncache\nc5 ONLINE 0 0 0\n",
         "d:group ONLINE 0,0,0[c4:disk ONLINE 0,1,0] cache{c5:disk ONLINE 0,0,0}"},
        {"\t  m         FAULTED   corrupted data\n\t    c1      ONLINE\n\t    c2\n",
         "m:group FAULTED (corrupted data)[c1:disk ONLINE; c2:disk ?]"},
        {header + "\tt             ONLINE       0     0     0\n"
                  "\t  a           ONLINE       0     0     0  1.38G resilvered\n",
         "t:group ONLINE 0,0,0[a:disk ONLINE 0,0,0 (1.38G resilvered)]"},
    };
    for (const auto& [table, dump] : rows)
        EXPECT_EQ(TableOf(table), dump);
}

TEST(PoolHealth, Scans) {
    const std::string date = "Sun Nov  2 20:13:22 2026"; // 2026-11-02 as far as we are concerned
    const std::string ended = "ended=" + date + "@1793650402";
    const std::string started = "started=" + date + "@1793650402";
    const std::pair<std::string, std::string> rows[] = {
        {"none requested", "none ?|||||||"},
        {"scrub repaired 3.94M in 00:00:02 with 7 errors on " + date,
         "scrub finished||||00:00:02|3.94M=4131389|7|" + ended},
        {"scrub repaired 0 in 0 days 00:03:10 with 0 errors on " + date,
         "scrub finished||||0 days 00:03:10|0|0|" + ended},
        {"scrub completed after 0h5m with 2 errors on " + date,
         "scrub finished||||0h5m||2|" + ended},
        {"resilver completed with 0 errors on " + date, "resilver finished||||||0|" + ended},
        {"resilvered (mirror-0) 7B in 00:00:12 with 0 errors on " + date,
         "resilver finished|mirror-0|||00:00:12|7B=7|0|" + ended},
        {"scrubbed 12 error blocks in 00:00:12 on " + date,
         "errorscrub finished||||00:00:12|||" + ended},
        {"scrub canceled on " + date, "scrub cancelled|||||||" + ended},
        {"scrub in progress since " + date +
             "\n\t150M / 150M scanned, 36.7M / 150M issued at 36.7M/s\n"
             "\t0B repaired, 24.44% done, 2 days 00:00:03 to go",
         "scrub running||2444|2 days 00:00:03||0B=0||" + started},
        {"resilver (mirror-0) in progress since " + date +
             "\n\t0B resilvered, 0.00% done, no estimated completion time",
         "resilver running|mirror-0|0|||0B=0||" + started},
        {"error scrub paused since Sun Nov  2 21:13:22 2026\n\terror scrub started on " + date +
             "\n\t50.00% done, issued I/O for 5 error blocks",
         "errorscrub paused||5000|||||" + started + "paused=Sun Nov  2 21:13:22 2026@1793654002"},
        {"resilver in progress for 0h1m, 11.50% done, 0h11m to go",
         "resilver running||1150|0h11m|0h1m|||"},
        {"scrub canceled on Thu Feb 29 00:00:00 2024",
         "scrub cancelled|||||||ended=Thu Feb 29 00:00:00 2024@1709164800"},
        {"scrub canceled on Fri Jan 12 14:47:36 2007",
         "scrub cancelled|||||||ended=Fri Jan 12 14:47:36 2007@1168613256"},
        {"scrub canceled on Mon the 2nd", "scrub cancelled|||||||"},
        {"scrub canceled on Sun Nov 2 24:13:22 2026", "scrub cancelled|||||||"},
        {"polishing the disks", "? ?|||||||"},
    };
    for (const auto& [text, dump] : rows) {
        const PoolHealth health = PoolHealth::Parse("  scan: " + text + "\n", Clock::Utc);
        ASSERT_EQ(health.scans.size(), 1U) << text;
        EXPECT_EQ(Dump(health.scans[0]), dump) << text;
    }
    const PoolHealth twice = PoolHealth::Parse(" scrub: none requested\n  scan: scrub canceled on "
                                               "Sun Nov  2 20:13:22 2026\nconfig:\n");
    ASSERT_EQ(twice.scans.size(), 2U);
    EXPECT_FALSE(twice.scans[1].ended.seconds);
}

TEST(PoolHealth, TextsAndWhatIsLeft) {
    const PoolHealth health =
        PoolHealth::Parse("before\n  pool: my pool\n state: FROZEN SOLID\nstatus: One\n\ttwo: \n"
                          "\tthree\n  weather:\n\tfine\nremove: r\ncheckpoint: c\nexpand: e\n"
                          "config:\n\n\tmy pool  ONLINE\n\nerrors: Permanent errors in:\n\n"
                          "        /a  b\n          state: ONLINE\n\n        p/fs:<0x1>\n"
                          "  pool: other\n state: ONLINE\n");
    EXPECT_EQ(health.name, "my pool");
    EXPECT_EQ(health.stateText, "FROZEN SOLID");
    EXPECT_EQ(health.state, PoolHealth::State::Unknown);
    EXPECT_EQ(health.status, "One");
    EXPECT_EQ(health.remove + health.checkpoint + health.expand, "rce");
    ASSERT_EQ(health.otherTexts.size(), 2U);
    EXPECT_EQ(health.otherTexts[0].title + "=" + health.otherTexts[0].text, "two=three");
    EXPECT_EQ(health.otherTexts[1].title + "=" + health.otherTexts[1].text, "weather=fine");
    EXPECT_EQ(DumpTable(health), "my pool:group ONLINE");
    EXPECT_FALSE(health.dataErrors);
    EXPECT_THAT(health.damagedFiles, ElementsAre("/a  b", "  state: ONLINE", "p/fs:<0x1>"));
    EXPECT_THAT(health.unread, ElementsAre("before", "pool: other", " state: ONLINE"));
    EXPECT_EQ(PoolHealth::Parse("errors: No known data errors\n").dataErrors, 0U);
}

TEST(PoolHealth, IsReadByTheBestCommandThatWorks) {
    const std::string utc = "/usr/bin/env -i TZ=UTC0 zpool status ";
    const std::string plain = "/usr/bin/env -i zpool status ";
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

TEST(PoolSpace, ReadsAnyListThatHasAHeader) {
    const auto dump = [](const std::vector<PoolSpace>& pools) {
        std::string text;
        const auto number = [](const auto& value) {
            return "," + (value ? std::to_string(*value) : "");
        };
        for (const PoolSpace& pool : pools)
            text += pool.name + number(pool.size) + number(pool.allocated) + number(pool.free) +
                    number(pool.capacity) + number(pool.fragmentation) + number(pool.dedupratio) +
                    "," + pool.health + ";";
        return text;
    };
    const std::pair<std::string, const char*> rows[] = {
        {"no pools available\n", ""},
        {"NAME  SIZE\n", ""},
        {"NAME     SIZE    ALLOC     FREE  CAP  FRAG  DEDUP   HEALTH\n"
         "my  pool  117440512  21115392  96325120  17  15  1.07  DEGRADED\n"
         "sick        -      -      -      -  -  -  FAULTED\n\nodd 5\n",
         "my  pool,117440512,21115392,96325120,17,15,1.070000,DEGRADED;sick,,,,,,,FAULTED;"
         "odd 5,,,,,,,;"},
        {"NAME  SIZE  USED  AVAIL  CAP  HEALTH  ALTROOT\ntank 80.0G 22.3G 47.7G 28% ONLINE -\n",
         "tank,85899345920,23944442675,51217485004,28,,,ONLINE;"},
    };
    for (const auto& [output, expected] : rows)
        EXPECT_EQ(dump(PoolSpace::Parse(output)), expected);

    const auto recorded = executors::Replayer(ZFSLIB_RECORDINGS "/mirror-host.rec").Executor();
    EXPECT_EQ(dump(PoolSpace::Enumerate(recorded)),
              "backup,369098752,1331691,,,,,;tank,150994944,6983516,,,,,;");
}
