#include "executors/HostWordsExecutor.h"
#include "fakes.h"
#include "posix/CSimpleCmdExec.h"
#include "zfstools/Tools.h"
#include "zfstools/ZfsDataset.h"

#include <gmock/gmock.h>

namespace zfslib::executors {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const std::string& bare = commands::env;
const std::string full = bare + "PATH=" + std::string(toolFolders) + " LC_ALL=C ";

/// A host that answers to `uname -s`, and with its mount table.
FakeExecutor Host(const std::string& system, const std::string& mounts) {
    return FakeExecutor({{"uname -s", system + "\n"},
                         {full + "cat /proc/self/mountinfo", system == "Linux" ? mounts : ""},
                         {full + "mount -p", system == "FreeBSD" ? mounts : ""}});
}

/// Recorded on Linux 6.1: mount points with blanks, a bind mount, an opened snapshot, tmpfs at the
/// same place as a dataset and above another.
const char* const recordedMounts = R"(1 1 0:2 / / rw - rootfs rootfs rw,size=1961260k
32 1 0:28 / /tank rw,relatime - zfs tank rw,xattr,noacl,casesensitive
33 32 0:29 / /tank/data rw,relatime - zfs tank/data rw,xattr,noacl,casesensitive
34 33 0:30 / /tank/data/sub rw,relatime - zfs tank/data/sub rw,xattr,noacl,casesensitive
35 1 0:31 / /srv/Data\040Store rw,relatime - zfs tank/store rw,xattr,noacl,casesensitive
36 35 0:32 / /srv/Data\040Store/in rw,relatime - zfs tank/store/in rw,xattr,noacl,casesensitive
37 32 0:33 / /tank/my\040data rw,relatime - zfs tank/my\040data rw,xattr,noacl,casesensitive
38 1 0:29 /dir /mnt/b rw,relatime - zfs tank/data rw,xattr,noacl,casesensitive
39 1 0:30 / /mnt/c(x) rw,relatime - zfs tank/data/sub rw,xattr,noacl,casesensitive
40 33 0:34 / /tank/data/.zfs/snapshot/s rw,relatime - zfs tank/data@s ro,xattr,noacl
41 34 0:35 / /tank/data/sub rw,relatime - tmpfs tmpfs rw,inode64
42 41 0:36 / /tank/data/sub/t rw,relatime - zfs tank/ontmp rw,xattr,noacl,casesensitive
43 1 0:37 / /hid/a rw,relatime - zfs tank/hid rw,xattr,noacl,casesensitive
46 43 0:39 / /hid/a/in rw,relatime - zfs tank/hid/in rw
44 1 0:38 / /hid rw,relatime - tmpfs hid rw,inode64
)";

/// The root and /g were moved to their places; the parent of the root is out of sight.
const char* const movedRoot = R"(22 25 0:20 / /sys rw shared:7 master:2 - sysfs sysfs rw
25 1 0:30 / / rw,relatime shared:1 - zfs rpool/ROOT/debian rw
60 25 0:31 / /a\040b rw - zfs rpool/a rw
61 25 8:1 / /a\040c rw - ext4 /dev/sda1 rw
62 22 0:33 / /sys/\040d rw - zfs rpool/d rw
63 25 0:34 / /e rw - nfs4 tank:/e rw
64 25 0:35 / /f rw - tmpfs  rw
66 65 0:37 / /g rw - zfs rpool/g2 rw
65 25 0:36 / /g rw - zfs rpool/g1 rw
)";

const char* const freeBsdMounts = "zroot/ROOT/default\t/\t\t\tzfs\trw,noatime,nfsv4acls\t0 0\n"
                                  "devfs\t\t\t/dev\t\tdevfs\trw\t\t0 0\n"
                                  "zroot/home\t\t/home\t\tzfs\trw,nfsv4acls\t0 0\n"
                                  "/home/j/x\t\t/jail\t\tnullfs\trw\t\t0 0\n"
                                  "/jail/y\t\t\t/jail2\t\tnullfs\trw\t\t0 0\n"
                                  "zroot/s t\t/s t\tzfs\trw\t0 0\n"
                                  "zroot/u\t/u\\040v\tzfs\trw\t0 0\n"
                                  "zroot/w\t/w/x\tzfs\trw\t0 0\n"
                                  "tmpfs\t/w\ttmpfs\trw\t0 0\n";

TEST(HostWords, ToolsAreFoundInTheSbinFolders) {
    const std::pair<std::string, std::string> rows[] = {
        {bare + "zfs set a:b='c d' 'p/x y' 2>&1", full + "zfs set a:b='c d' 'p/x y' 2>&1"},
        {bare + "ls -la /dev/zvol/dsk/p/v", full + "ls -la /dev/zvol/dsk/p/v"},
        {bare + "TZ=UTC0 zpool status t", full + "TZ=UTC0 zpool status t"},
        {full + "zpool list", full + "zpool list"},
        {bare + "zfsx list", bare + "zfsx list"},
        {bare + "-S zfs list", bare + "-S zfs list"},
        {"df -k", "df -k"},
    };
    for (const auto& [given, run] : rows) {
        const FakeExecutor host;
        host.Answer(run, "answer");
        // Around itself, too: nothing is put into other words twice.
        EXPECT_EQ("answer", HostWordsExecutor(HostWordsExecutor(host))(given));
        EXPECT_THAT(host.Commands(), ElementsAre(run));
    }
}

TEST(HostWords, MountAndToolQuestionAreThoseOfTheSystem) {
    const struct {
        std::string system;
        std::string mount;
        std::vector<std::string> questions; ///< the last of which succeeds
    } rows[] = {
        {"SunOS", "mount -F ", {full + "pkginfo SUNWzfsu"}},
        {"SunOS", "mount -F ", {full + "pkginfo SUNWzfsu", full + "zpool list -H -o name"}},
        {"Linux", "mount -t ", {full + "zfs --help"}},
        {"FreeBSD", "mount -t ", {full + "zfs --help"}},
        {"Darwin", "mount -F ", {full + "zfs --help"}},
    };
    for (const auto& row : rows) {
        const FakeExecutor host = Host(row.system, "");
        const InstalledExecutor installed(HostWordsExecutor(host));
        EXPECT_FALSE(IsZfsToolsInstalled());
        host.Answer(row.questions.back(), "");
        host.Commands();
        EXPECT_TRUE(IsZfsToolsInstalled());
        EXPECT_EQ(row.questions, host.Commands()) << row.system;
        host.Answer(full + row.mount + "zfs tank/a /mnt", "");
        EXPECT_EQ("", ErrorOf([] { ZfsDataset::MountLegacy("tank/a", "/mnt"); })) << row.system;
    }
}

TEST(HostWords, MountTableLeadsToTheFileSystemThatAPathIsOn) {
    const struct {
        const char* system;
        const char* mounts;
        std::vector<std::string> places; ///< a path, its file system, the next path ...
    } rows[] = {
        {"Linux",
         recordedMounts,
         {"/f", "rootfs", "/tank/data/f", "tank/data", "/tank/data/sub/f", "tmpfs",
          "/tank/data/sub/t/f", "tank/ontmp", "/hid/a/in/f", "tmpfs",
          "/tank/data/.zfs/snapshot/s/f", "tank/data@s"}},
        {"Linux",
         recordedMounts,
         {"/mnt/b/f", "tank/data", "/mnt/c(x)/f", "tank/data/sub", "/tank/my data/f",
          "tank/my\\040data", "/tank/my/f", "tank", "/srv/Data Store/f", "tank/?"}},
        {"Linux",
         movedRoot,
         {"/sys/f", "sysfs", "/a b/f", "?", "/a/f", "rpool/ROOT/debian", "/sys/ d/f", "sysfs",
          "/e/f", "tank:/e", "/f/f", "tmpfs", "/g/f", "rpool/g2"}},
        {"FreeBSD",
         freeBsdMounts,
         {"/f", "zroot/ROOT/default", "/dev/f", "devfs", "/jail2/f", "zroot/home", "/s t/f",
          "zroot/s\\040t", "/u v/f", "zroot/u", "/w/x/f", "tmpfs"}},
    };
    for (const auto& row : rows) {
        const InstalledExecutor installed(HostWordsExecutor(Host(row.system, row.mounts)));
        for (std::size_t i = 0; i < row.places.size(); i += 2)
            EXPECT_EQ(row.places[i + 1], GetDatasetForPath(row.places[i])) << row.places[i];
    }
}

TEST(HostWords, MountTableHasTheShapeOfDfOrIsAnError) {
    const auto df = [](const std::string& system, const std::string& mounts) {
        return HostWordsExecutor(Host(system, mounts))("df -Z");
    };
    EXPECT_EQ("/t                 (t/u               ):       - blocks        - files\n",
              df("Linux", "1 0 0:1 / /t rw - zfs t/u x"));
    for (const char* line : {"1 0 0:1 / /t rw", "1 0 0:1 / t rw - zfs t x", "\n"})
        EXPECT_THAT(ErrorOf([&] { df("Linux", line); }), HasSubstr("parse '/proc/self/mountinfo'"));
    for (const char* line : {"tank /tank zfs rw", "/tank zfs rw 0 0", "\n"})
        EXPECT_THAT(ErrorOf([&] { df("FreeBSD", line); }), HasSubstr("parse 'mount -p' output"));
}

TEST(HostWords, SystemIsAskedForOnceAndFailuresKeepTheLibrarysCommand) {
    const FakeExecutor host;
    const CommandExecutor executor = HostWordsExecutor(host);
    EXPECT_EQ("no answer to uname -s", ErrorOf([&] { executor("df -Z"); }));
    host.Answer("uname -s", "SunOS\n");
    host.Answer("df -Z", "");
    EXPECT_EQ("", executor("df -Z") + executor("df -Z"));
    EXPECT_THAT(host.Commands(), ElementsAre("uname -s", "uname -s", "df -Z", "df -Z"));

    const CommandExecutor failing = HostWordsExecutor([](const std::string& command) {
        throw posix::CCommandFailure(command, posix::CCommandFailure::Kind::ExitStatus, 1, "x", "");
        return command;
    });
    EXPECT_EQ("Command [/usr/bin/env -i zpool status p] failed: exit status 1: x",
              ErrorOf([&] { failing(commands::zpoolStatus + "p"); }));
}

} // namespace
} // namespace zfslib::executors
