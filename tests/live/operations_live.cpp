#include "tests/fakes.h"
#include "tests/live/Host.h"
#include "zfstools/Tools.h"
#include "zfstools/ZfsDataset.h"

#include <gmock/gmock.h>

namespace {

using live::ValueOf;
using testing::HasSubstr;
using zfslib::ZfsDataset;

/// One pool for all scenarios of the suite; each has a file system of its own in it.
class Operations : public testing::Test {
protected:
    static void SetUpTestSuite() {
        host = std::make_unique<live::Host>();
        pool = host->MakePool("operations", "mirror" + host->Disks(2));
    }
    static void TearDownTestSuite() { host.reset(); }

    /// A new file system, named after the scenario.
    static std::string MakeFilesystem() {
        const std::string name =
            pool + "/" + testing::UnitTest::GetInstance()->current_test_info()->name();
        live::OutputOf("zfs create " + name);
        return name;
    }
    static std::string PropertyOf(const std::string& dataset, const std::string& property) {
        return ValueOf("zfs get -Hp -o value " + property + " " + dataset);
    }

    static inline std::unique_ptr<live::Host> host;
    static inline std::string pool;

    const InstalledExecutor installed{live::HostExecutor()};
};

TEST_F(Operations, MountAndUnmount) {
    const std::string name = MakeFilesystem();
    EXPECT_THAT(ErrorOf([&] { ZfsDataset::Mount(name); }), HasSubstr("already mounted"));
    ZfsDataset::Unmount(name);
    EXPECT_EQ(PropertyOf(name, "mounted"), "no");
    ZfsDataset::Unmount(name); // what is not mounted is unmounted
    ZfsDataset::Mount(name);
    EXPECT_EQ(PropertyOf(name, "mounted"), "yes");
    EXPECT_THAT(ErrorOf([&] { ZfsDataset::Mount(name + "x"); }), HasSubstr("does not exist"));
    EXPECT_THAT(ErrorOf([&] { ZfsDataset::Unmount(name + "x"); }), HasSubstr("does not exist"));

    const InstalledExecutor unprivileged{live::UnprivilegedExecutor()};
    EXPECT_THAT(ErrorOf([&] { ZfsDataset::Unmount(name); }), HasSubstr("permission denied"));
    EXPECT_EQ(PropertyOf(name, "mounted"), "yes");
}

} // namespace
