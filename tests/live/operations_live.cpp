#include "tests/fakes.h"
#include "tests/live/Host.h"
#include "zfstools/Tools.h"
#include "zfstools/ZfsDataset.h"
#include "zfstools/Zpool.h"

#include <gmock/gmock.h>

#include <fstream>
#include <functional>

namespace {

using live::ValueOf;
using testing::HasSubstr;
using zfslib::Property;
using zfslib::ZfsDataset;
using zfslib::Zpool;

/// A property as a caller makes one to set it.
template <typename T>
Property<T> WithText(Property<T> property, const std::string& text) {
    property.Set(text);
    return property;
}

Property<std::string> Text(const std::string& name, const std::string& text) {
    return WithText(Property<std::string>(name, ""), text);
}

Property<std::string> Inherited(const std::string& name) {
    Property<std::string> property(name, "");
    property.SetSource("inherited", "parent");
    return property;
}

/// A call that has to fail, and words of the tool's reason.
struct Refusal {
    std::function<void()> call;
    const char* reason;
};

void ExpectRefused(const std::vector<Refusal>& refusals) {
    for (const Refusal& refusal : refusals)
        EXPECT_THAT(ErrorOf(refusal.call), HasSubstr(refusal.reason));
}

/// Two pools for all scenarios of the suite, one of them imported read-only; each scenario has a
/// file system of its own.
class Operations : public testing::Test {
protected:
    static void SetUpTestSuite() {
        host = std::make_unique<live::Host>();
        pool = host->MakePool("operations", "mirror" + host->Disks(2));
        frozenPool = host->MakePool("frozen", host->Disks(1));
        live::OutputOf("zfs create " + frozenPool + "/fs && zpool export " + frozenPool +
                       " && zpool import -o readonly=on -d " + host->Folder().string() + " " +
                       frozenPool);
    }
    static void TearDownTestSuite() { host.reset(); }

    /// A new file system, named after the scenario.
    static std::string MakeFilesystem(const std::string& options = "") {
        const std::string name =
            pool + "/" + testing::UnitTest::GetInstance()->current_test_info()->name();
        live::OutputOf("zfs create " + options + " " + name);
        return name;
    }
    /// The value and the source of a dataset's property: "off local".
    static std::string PropertyOf(const std::string& dataset, const std::string& property) {
        const auto row = live::RowsOf("zfs get -Hp -o value,source " + property + " " + dataset);
        return row.at(0).at(0) + " " + row.at(0).at(1);
    }
    static std::string PoolPropertyOf(const std::string& property) {
        return ValueOf("zpool get -Hp -o value " + property + " " + pool);
    }

    static inline std::unique_ptr<live::Host> host;
    static inline std::string pool;
    static inline std::string frozenPool;

    const InstalledExecutor installed{live::HostExecutor()};
};

TEST_F(Operations, MountAndUnmount) {
    const std::string name = MakeFilesystem("-o overlay=off");
    const std::string folder = ValueOf("zfs get -H -o value mountpoint " + name);
    std::ofstream inUse(folder + "/in-use");
    ExpectRefused({
        {[&] { ZfsDataset::Mount(name); }, "filesystem already mounted"},
        {[&] { ZfsDataset::Mount(name + "x"); }, "dataset does not exist"},
        {[&] { ZfsDataset::Unmount(name); }, "busy"},
    });
    EXPECT_EQ(PropertyOf(name, "mounted"), "yes -");
    inUse.close();
    ZfsDataset::Unmount(name);
    EXPECT_EQ(PropertyOf(name, "mounted"), "no -");
    ZfsDataset::Unmount(name); // to unmount what is not mounted is a success

    std::ofstream(folder + "/in-the-way").close();
    ExpectRefused({{[&] { ZfsDataset::Mount(name); }, "directory is not empty"}});
    std::filesystem::remove(folder + "/in-the-way");
    ZfsDataset::Mount(name);
    EXPECT_EQ(PropertyOf(name, "mounted"), "yes -");
    EXPECT_TRUE(std::filesystem::exists(folder + "/in-use"));
}

TEST_F(Operations, MountLegacy) {
    const std::string name = MakeFilesystem("-o mountpoint=legacy");
    const std::string folder = host->Folder() / "legacy";
    std::filesystem::create_directory(folder);
    ExpectRefused({
        {[&] { ZfsDataset::MountLegacy(name + "x", folder); }, "unable to open the dataset"},
        {[&] { ZfsDataset::Mount(name); }, "legacy mountpoint"},
    });
    EXPECT_EQ(PropertyOf(name, "mounted"), "no -");

    ZfsDataset::MountLegacy(name, folder);
    EXPECT_EQ(ValueOf("findmnt -n -o SOURCE,FSTYPE --mountpoint " + folder), name + " zfs");
    ExpectRefused({
        {[&] { ZfsDataset::MountLegacy(name, folder); }, "busy"},
        {[&] { ZfsDataset::Unmount(name); }, "use umount(8)"}, // what the tool leaves to others
    });
    live::OutputOf("umount " + folder);
}

TEST_F(Operations, SetAndInherit) {
    const std::string name = MakeFilesystem("-V 8M -s");
    const auto refusedOn = [](const std::string& dataset, const char* reason) {
        ExpectRefused({
            {[&] { ZfsDataset::ModifyPoolProperty(dataset, "copies", "2"); }, reason},
            {[&] { ZfsDataset::InheritProperty(dataset, "copies"); }, reason},
            {[&] { ZfsDataset::SetUserProperty(dataset, Text("site:a", "b")); }, reason},
            {[&] { ZfsDataset::SetUserProperty(dataset, Inherited("site:a")); }, reason},
        });
    };
    refusedOn(name + "x", "dataset does not exist");
    refusedOn(frozenPool + "/fs", "read-only");
    {
        const InstalledExecutor unprivileged{live::UnprivilegedExecutor()};
        refusedOn(name, "permission denied");
    }
    ExpectRefused({
        {[&] { ZfsDataset::ModifyPoolProperty(name, "used", "1"); }, "readonly"},
        {[&] { ZfsDataset::InheritProperty(name, "volsize"); }, "cannot be inherited"},
    });
    EXPECT_EQ(PropertyOf(name, "copies"), "1 default");
    EXPECT_EQ(PropertyOf(name, "site:a"), "- -");

    ZfsDataset::ModifyPoolProperty(name, "copies", "2");
    EXPECT_EQ(PropertyOf(name, "copies"), "2 local");
    ZfsDataset::ModifyPoolProperty(name, "volsize", "16M");
    EXPECT_EQ(PropertyOf(name, "volsize"), "16777216 local");
    ZfsDataset::InheritProperty(name, "copies");
    EXPECT_EQ(PropertyOf(name, "copies"), "1 default");

    ZfsDataset::SetUserProperty(name, Text("site:a", "b=c:d"));
    EXPECT_EQ(PropertyOf(name, "site:a"), "b=c:d local");
    ZfsDataset::SetUserProperty(name, Inherited("site:a"));
    EXPECT_EQ(PropertyOf(name, "site:a"), "- -");
}

TEST_F(Operations, SetMountpoint) {
    const std::string name = MakeFilesystem();
    const std::string former = PropertyOf(name, "mountpoint");
    const std::string folder = host->Folder() / "elsewhere";
    {
        const std::ofstream inUse(former.substr(0, former.find(' ')) + "/in-use");
        ExpectRefused(
            {{[&] { ZfsDataset::SetMountpoint(name, Text("mountpoint", folder)); }, "busy"}});
        EXPECT_EQ(PropertyOf(name, "mountpoint"), former);
    }
    ZfsDataset::SetMountpoint(name, Text("mountpoint", folder));
    EXPECT_EQ(PropertyOf(name, "mountpoint"), folder + " local");
    EXPECT_TRUE(std::filesystem::exists(folder + "/in-use")); // mounted there
    ZfsDataset::SetMountpoint(name, Inherited("mountpoint"));
    EXPECT_EQ(PropertyOf(name, "mountpoint"), former);
}

TEST_F(Operations, SetPoolProperties) {
    using Properties = Zpool::Properties;
    const Properties fresh;
    const auto failmode = WithText(fresh.failmode, "continue");
    const std::string bootfs = MakeFilesystem();
    const std::string cachefile = host->Folder() / "pool.cache";

    Properties::SetAutoexpand(pool, WithText(fresh.autoexpand, "on"));
    Properties::SetAutoreplace(pool, WithText(fresh.autoreplace, "on"));
    Properties::SetFailmode(pool, failmode);
    Properties::SetBootfs(pool, Text("bootfs", bootfs));
    Properties::SetCachefile(pool, Text("cachefile", cachefile));
    EXPECT_EQ(PoolPropertyOf("autoexpand"), "on");
    EXPECT_EQ(PoolPropertyOf("autoreplace"), "on");
    EXPECT_EQ(PoolPropertyOf("failmode"), "continue");
    EXPECT_EQ(PoolPropertyOf("bootfs"), bootfs);
    EXPECT_EQ(PoolPropertyOf("cachefile"), cachefile);
    Properties::SetBootfs(pool, Text("bootfs", "")); // as it is on a pool without one
    EXPECT_EQ(PoolPropertyOf("bootfs"), "-");

    ExpectRefused({
        {[&] { Properties::SetScrubInterval(pool, Text("scrubinterval", "1w")); },
         "invalid property 'scrubinterval'"}, // only Solaris has it
        {[&] { Properties::SetBootfs(pool, Text("bootfs", pool + "/none")); },
         "no such pool or dataset"},
        {[&] { Properties::SetFailmode(frozenPool, failmode); }, "read-only"},
    });
}

TEST_F(Operations, Import) {
    const auto executor = live::HostExecutor(host->ImportPath());
    const auto names = [&] {
        std::vector<std::string> found;
        for (const zfslib::Pool4Import& candidate : zfslib::EnumerateZpool4Import(executor))
            found.push_back(candidate.name + " " + candidate.id);
        return found;
    };
    const std::string altRoot = host->Folder() / "alt";
    const std::string before = host->MakePool("before", host->Disks(1));
    const std::string after = std::string(live::poolPrefix) + "after";
    const std::string id = ValueOf("zpool get -Hp -o value guid " + before);
    live::OutputOf("zfs create " + before + "/fs");
    EXPECT_THAT(names(), testing::IsEmpty());
    live::OutputOf("zpool export " + before);
    EXPECT_THAT(names(), testing::ElementsAre(before + " " + id));

    const auto import = [&](const std::string& number, const std::string& name,
                            const std::string& root) {
        return [=, &before] { zfslib::ImportZfsPool({before, number}, name, root, executor); };
    };
    // "2>&1" sends the reason the way of an output: the error tells that.
    ExpectRefused({
        {import(id, pool, ""), "pool already exists"},
    });
    EXPECT_THAT(names(), testing::ElementsAre(before + " " + id));

    import(id, after, altRoot)();
    EXPECT_EQ(ValueOf("zpool get -H -o value altroot " + after), altRoot);
    EXPECT_EQ(ValueOf("zpool get -H -o value guid " + after), id);
    EXPECT_EQ(PropertyOf(after + "/fs", "mounted"), "no -");
    EXPECT_THAT(PropertyOf(after + "/fs", "mountpoint"), HasSubstr(altRoot + "/"));
    EXPECT_THAT(names(), testing::IsEmpty());
    ExpectRefused({{import(id, after, ""), "no such pool available"}}); // it is in use

    live::OutputOf("zpool export " + after);
    import(id, "", "")();
    EXPECT_EQ(ValueOf("zpool get -H -o value altroot " + after), "-");
}

TEST_F(Operations, AskTheHost) {
    EXPECT_TRUE(zfslib::IsZfsToolsInstalled());
    const std::string blank = host->Folder() / "with blank";
    const std::string bound = host->Folder() / "bound";
    const std::string name = MakeFilesystem("-o mountpoint=" + live::Quoted(blank));
    std::filesystem::create_directory(bound);
    live::OutputOf("mount --bind " + live::Quoted(blank) + " " + bound);
    EXPECT_EQ(zfslib::GetAssociatedZpool(bound).name, pool);
    EXPECT_EQ(zfslib::GetDatasetForPath(bound + "/file"), name);
    EXPECT_EQ(zfslib::GetDatasetForPath(blank + "/file"), name);
    EXPECT_EQ(zfslib::GetDatasetForPath(host->Folder() / "operations" / "file"), pool);
    for (const char* path : {"/proc/self", "/"})
        EXPECT_EQ(zfslib::GetDatasetForPath(path),
                  ValueOf(std::string("findmnt -n -o SOURCE --target ") + path));
    live::OutputOf("umount " + bound);
}

TEST_F(Operations, PseudoDeviceIsAStandInWhereThereIsNone) {
    EXPECT_EQ(ZfsDataset::GetZfsPseudoDevice(MakeFilesystem("-V 8M -s")), "pseudo@zfs");
}

} // namespace
