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

const std::string bare = "/usr/bin/env -i ";
const std::string full = bare + "PATH=" + std::string(toolFolders) + " LC_ALL=C ";
const std::string readMounts = full + "cat /proc/self/mountinfo";

/// Recorded on Linux 6.1: datasets with blanks, a bind mount, an opened snapshot, tmpfs at the same
/// place as a dataset and above another.
const char* const linuxMounts = R"(1 1 0:2 / / rw - rootfs rootfs rw,size=1961260k
22 1 0:20 / /proc rw,relatime - proc proc rw
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
44 1 0:38 / /hid rw,relatime - tmpfs hid rw,inode64
)";

/// The root was moved to its place after what is mounted in it; its own parent is out of sight.
const char* const movedRoot = R"(22 25 0:20 / /sys rw shared:7 master:2 - sysfs sysfs rw
25 1 0:30 / / rw,relatime shared:1 - zfs rpool/ROOT/debian rw
60 25 0:31 / /a\040b rw - zfs rpool/a rw
61 25 8:1 / /a\040c rw - ext4 /dev/sda1 rw
62 25 0:33 / /\040d rw - zfs rpool/d rw
63 25 0:34 / /e rw - nfs4 tank:/e rw
64 25 0:35 / /f rw - tmpfs  rw
65 25 0:36 / /g rw - zfs rpool/g1 rw
66 65 0:37 / /g rw - zfs rpool/g2 rw
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
    const struct {
        std::string given;
        std::string run;
    } rows[] = {
        {bare + "zpool list -o name,size,alloc", full + "zpool list -o name,size,alloc"},
        {bare + "zfs set a:b='c d' 'p/x y' 2>&1", full + "zfs set a:b='c d' 'p/x y' 2>&1"},
        {bare + "ls -la /dev/zvol/dsk/p/v", full + "ls -la /dev/zvol/dsk/p/v"},
        {bare + "mount -F hsfs x /y", full + "mount -F hsfs x /y"},
        {bare + "zpool", full + "zpool"},
        {bare + "TZ=UTC0 zpool status t", full + "TZ=UTC0 zpool status t"},
        {full + "zpool list", full + "zpool list"},
        {bare + "zfsx list", bare + "zfsx list"},
        {bare + "-S zfs list", bare + "-S zfs list"},
        {"df -k", "df -k"},
        {"", ""},
    };
    for (const auto& row : rows) {
        const FakeExecutor host;
        host.Answer(row.run, "answer to " + row.given);
        // Around itself, too: nothing is put into other words twice.
        EXPECT_EQ("answer to " + row.given, HostWordsExecutor(HostWordsExecutor(host))(row.given));
        EXPECT_THAT(host.Commands(), ElementsAre(row.run));
    }
}

TEST(HostWords, MountAndToolQuestionAreThoseOfTheSystem) {
    const std::string mount = "zfs tank/a /mnt";
    const std::string question = bare + "pkginfo SUNWzfsu";
    const struct {
        const char* system;
        std::string mount;
        std::vector<std::string> questions; ///< the last of which succeeds
    } rows[] = {
        {"SunOS", full + "mount -F ", {full + "pkginfo SUNWzfsu"}},
        {"SunOS", full + "mount -F ", {full + "pkginfo SUNWzfsu", full + "zpool list -H -o name"}},
        {"Linux", full + "mount -t ", {full + "zfs --help"}},
        {"FreeBSD", full + "mount -t ", {full + "zfs --help"}},
        {"Darwin", full + "mount -F ", {full + "zfs --help"}},
    };
    for (const auto& row : rows) {
        const FakeExecutor host;
        const InstalledExecutor installed(HostWordsExecutor(host));
        EXPECT_FALSE(IsZfsToolsInstalled());
        host.Answer("uname -s", std::string(row.system) + "\n");
        EXPECT_FALSE(IsZfsToolsInstalled());
        host.Answer(row.questions.back(), "");
        host.Commands();
        EXPECT_TRUE(IsZfsToolsInstalled());
        EXPECT_EQ(row.questions, host.Commands()) << row.system;
        host.Answer(row.mount + mount, "");
        EXPECT_EQ("", ErrorOf([] { ZfsDataset::MountLegacy("tank/a", "/mnt"); })) << row.system;
    }
}

TEST(HostWords, MountTableLeadsToTheFileSystemThatAPathIsOn) {
    const struct {
        const char* mounts;
        const char* path;
        const char* filesystem;
    } rows[] = {
        {linuxMounts, "/", "rootfs"},
        {linuxMounts, "/proc/1", "proc"},
        {linuxMounts, "/tank/data/f", "tank/data"},
        {linuxMounts, "/tank/data/sub/f", "tmpfs"},
        {linuxMounts, "/tank/data/sub/t/f", "tank/ontmp"},
        {linuxMounts, "/tank/data/.zfs/snapshot/s/f", "tank/data@s"},
        {linuxMounts, "/mnt/b/f", "tank/data"},
        {linuxMounts, "/mnt/c(x)/f", "tank/data/sub"},
        {linuxMounts, "/mnt/c/f", "rootfs"},
        {linuxMounts, "/hid/a/f", "tmpfs"},
        {linuxMounts, "/tank/my data/f", "tank/my\\040data"},
        {linuxMounts, "/tank/my/f", "tank"},
        {linuxMounts, "/srv/Data Store/in/f", "tank/?"},
        {movedRoot, "/sys/f", "sysfs"},
        {movedRoot, "/a b/f", "?"},
        {movedRoot, "/a/f", "rpool/ROOT/debian"},
        {movedRoot, "/ d/f", "rpool/ROOT/debian"},
        {movedRoot, "/e/f", "tank:/e"},
        {movedRoot, "/f/f", "tmpfs"},
        {movedRoot, "/g/f", "rpool/g2"},
        {freeBsdMounts, "/f", "zroot/ROOT/default"},
        {freeBsdMounts, "/dev/f", "devfs"},
        {freeBsdMounts, "/jail/f", "zroot/home"},
        {freeBsdMounts, "/jail2/f", "zroot/home"},
        {freeBsdMounts, "/s t/f", "zroot/s\\040t"},
        {freeBsdMounts, "/u v/f", "zroot/u"},
        {freeBsdMounts, "/w/x/f", "tmpfs"},
    };
    for (const auto& row : rows) {
        const bool isLinux = row.mounts != freeBsdMounts;
        const FakeExecutor host;
        host.Answer("uname -s", isLinux ? "Linux\n" : "FreeBSD\n");
        host.Answer(isLinux ? readMounts : full + "mount -p", row.mounts);
        const InstalledExecutor installed(HostWordsExecutor(host));
        EXPECT_EQ(row.filesystem, GetDatasetForPath(row.path)) << row.path;
    }
}

TEST(HostWords, MountTableHasTheShapeOfDf) {
    const FakeExecutor host({{"uname -s", "Linux\n"}, {readMounts, "1 0 0:1 / /t rw - zfs t/u x"}});
    const CommandExecutor executor = HostWordsExecutor(host);
    EXPECT_EQ("/t                 (t/u               ):       - blocks        - files\n",
              executor("df -Z"));
    for (const char* line : {"1 0 0:1 / /t rw", "1 0 0:1 / t rw - zfs t x", "x", "\n"}) {
        host.Answer(readMounts, line);
        EXPECT_THAT(ErrorOf([&] { executor("df -Z"); }), HasSubstr("/proc/self/mountinfo"));
    }
    for (const char* line : {"tank /tank zfs rw", "/tank zfs rw 0 0", "x", "\n"}) {
        const FakeExecutor other({{"uname -s", "FreeBSD\n"}, {full + "mount -p", line}});
        EXPECT_THAT(ErrorOf([&] { HostWordsExecutor(other)("df -Z"); }), HasSubstr("'mount -p'"));
    }
    const FakeExecutor solaris({{"uname -s", "SunOS\n"}, {"df -Z", "as it is"}});
    EXPECT_EQ("as it is", HostWordsExecutor(solaris)("df -Z"));
}

TEST(HostWords, SystemIsAskedForOnceAndFailuresKeepTheLibrarysCommand) {
    const FakeExecutor host;
    const CommandExecutor executor = HostWordsExecutor(host);
    EXPECT_EQ("no answer to uname -s", ErrorOf([&] { executor("df -Z"); }));
    host.Answer("uname -s", "Linux\n");
    host.Answer(readMounts, "");
    EXPECT_EQ("", executor("df -Z") + executor("df -Z"));
    EXPECT_THAT(host.Commands(), ElementsAre("uname -s", "uname -s", readMounts, readMounts));

    const CommandExecutor failing = HostWordsExecutor([](const std::string& command) {
        throw posix::CCommandFailure(command, posix::CCommandFailure::Kind::ExitStatus, 1,
                                     "no such pool", "");
        return std::string();
    });
    EXPECT_EQ("Command [/usr/bin/env -i zpool status p] failed: exit status 1: no such pool",
              ErrorOf([&] { failing("/usr/bin/env -i zpool status p"); }));
}

} // namespace
} // namespace zfslib::executors
