// The dataset's properties and operations, enumeration, quotas and the tree.

#include "exc/exc.h"
#include "fakes.h"
#include "system/CRecoveryIsoDetector.h"
#include "util/str.h"
#include "zfstools/ZfsDatasetEnumerator.h"

#include <algorithm>
#include <cstddef>
#include <gmock/gmock.h>
#include <locale>
#include <pthread.h>
#include <type_traits>

using namespace zfslib;
using testing::ElementsAre;
using testing::IsEmpty;
using Enumerator = ZfsDatasetEnumerator;
using Node = ZfsDatasetEnumerator::Node;

namespace {

const std::string& list = commands::zfsList;
const std::string& get = commands::zfsGet;
using commands::groupspace;
using commands::userspace;

std::vector<ZfsDataset> DatasetsOf(const std::vector<std::string>& names) {
    std::vector<ZfsDataset> datasets(names.size());
    for (std::size_t i = 0; i < names.size(); ++i)
        datasets[i].name = names[i];
    return datasets;
}

/// A tree on one line, children in the order of their keys: "pool(a=pool/a(@x=pool/a@x))".
std::string Dump(const Node& node) {
    std::map<std::string, std::shared_ptr<Node>> sorted(node.children.begin(), node.children.end());
    std::string children;
    for (const auto& [key, child] : sorted)
        children += (children.empty() ? "" : " ") + key + "=" + Dump(*child);
    return node.dataset.name + (children.empty() ? "" : "(" + children + ")");
}

std::string TreeOf(const std::vector<std::string>& names) {
    return Dump(Enumerator::GrowTree(DatasetsOf(names)));
}

std::string Dump(const std::vector<Property<std::string>>& properties) {
    std::string text;
    for (const auto& property : properties)
        text += property.GetName() + "=" + property.GetValue() + "(" + property.GetSource().text +
                (property.GetSource().inheritedFrom.empty() ? "" : " ") +
                property.GetSource().inheritedFrom + ") ";
    return text;
}

/// A deeper tree than the stack could take, dropped on a small one.
void* DropDeepTree(void* /*unused*/) {
    Node root;
    std::shared_ptr<Node> held;
    Node* node = &root;
    for (int depth = 0; depth < 5000; ++depth) {
        const auto child = std::make_shared<Node>();
        node->children.emplace("child", child);
        node = child.get();
        if (depth == 2500)
            held = child;
    }
    root = Node();
    return reinterpret_cast<void*>(held->children.size());
}

} // namespace

TEST(ZfsProperties, EveryMemberIsVisitedInOrder) {
    const ZfsProperties set;
    const char* end = reinterpret_cast<const char*>(&set);
    const auto isNext = [&end](const auto& member) { // with no room for one that is left out
        const char* const begin = reinterpret_cast<const char*>(&member);
        const auto gap = begin - std::exchange(end, begin + sizeof member);
        return gap >= 0 && gap < static_cast<std::ptrdiff_t>(alignof(std::max_align_t));
    };
    std::string defaults;
    ZfsProperties::ForEach(set, [&](const auto& property) {
        EXPECT_TRUE(isNext(property)) << property.GetName();
        EXPECT_EQ(property.GetState(), PropState::Unset);
        defaults += property.GetName() + "=" + property.GetText() + " ";
    });
    EXPECT_TRUE(isNext(set.userQuotas));
    EXPECT_EQ(
        defaults,
        "casesensitivity=sensitive encryption=off keysource=raw utf8only=off multilevel=off "
        "aclmode=discard canmount=on mountpoint= volsize=none mounted=no volblocksize= "
        "checksum=off primarycache= refreservation=none aclinherit=discard atime=off "
        "compression=off copies=1 dedup=off devices=off exec=off logbias=latency mlslabel=none "
        "nbmand=off quota=none readlimit=none writelimit=none defaultreadlimit=none "
        "defaultwritelimit=none sync=standard defaultuserquota=none defaultgroupquota=none "
        "readonly=off recordsize= refquota=none reservation=none rstchown=off "
        "secondarycache=none setuid=off shadow=none sharenfs=off sharesmb=off snapdir=hidden "
        "version=current vscan=off xattr=off zoned=off ");
    static_assert(std::is_nothrow_move_constructible_v<ZfsDataset> &&
                  std::is_nothrow_move_assignable_v<ZfsDataset>);
}

TEST(ZfsDataset, GetRows) {
    const std::pair<const char*, const char*> rows[] = {
        {"", ":old:old:old"},
        {"p creation Sun Nov 22 20:59 2026 -", ":old:old:old"},
        {"p creation x -", ":old:old:old"},
        {"p quota 1G local", "quota:1G:local:"},
        {"p a:b two words local", ":old:old:old"},
        {"p atime on inherited from q", "atime:on:inherited:q"},
        {"p atime on inherited from",
         "Failed to parse an inherited section of ZFS properties: parent not found."},
        {"a b c", "Failed to parse zfs get: raw size [3], row [a b c ]"},
    };
    for (const auto& [row, expected] : rows) {
        AuxPropValue out{"old", "old", "old"};
        std::string name;
        const std::string error = ErrorOf([&, cells = util::split(row)] {
            name = ZfsDataset::ParseDatasetPropOutputRow(cells, out);
        });
        const std::string read =
            name + ":" + out.value + ":" + out.source + ":" + out.inheritedFrom;
        EXPECT_EQ(error.empty() ? read : error, expected) << row;
    }
}

TEST(ZfsDataset, OperationsRunTheirCommands) {
    Property<std::string> mountpoint("mountpoint", "");
    mountpoint.Set("/x");
    Property<std::string> inherited = mountpoint;
    inherited.SetSource("inherited", "p");
    Property<std::string> odd = inherited;
    odd.SetSource("odd", ""); // the type is still Inherited, but nobody knows
    const Property<std::string> user("a:b", "-");
    Property<std::string> inheritedUser = user;
    inheritedUser.SetSource("inherited", "p");
    const Property<std::string> unset("quota", "");

    const std::pair<std::function<void()>, std::string> rows[] = {
        {[] { ZfsDataset::Mount("p/a"); }, "zfs mount p/a"},
        {[] { ZfsDataset::MountLegacy("p/a", "/mnt"); }, "mount -F zfs p/a /mnt"},
        {[] { ZfsDataset::InheritProperty("p/a", "quota"); }, "zfs inherit quota p/a"},
        {[] { ZfsDataset::ModifyPoolProperty("p/a", "quota", "1G"); }, "zfs set quota=1G p/a"},
        {[&] { ZfsDataset::SetMountpoint("p/a", mountpoint); }, "zfs set mountpoint=/x p/a"},
        {[&] { ZfsDataset::SetMountpoint("p/a", inherited); }, "zfs inherit mountpoint p/a"},
        {[&] { ZfsDataset::SetMountpoint("p/a", odd); }, "zfs set mountpoint=/x p/a"},
        {[&] { ZfsDataset::SetUserProperty("p/a", user); }, "zfs set a:b=- p/a"},
        {[&] { ZfsDataset::SetUserProperty("p/a", inheritedUser); }, "zfs inherit a:b p/a"},
    };
    std::vector<std::string> asked;
    const InstalledExecutor installed([&asked](const std::string& command) {
        asked.push_back(command);
        return std::string("done");
    });
    LogCapture log;
    for (const auto& [call, command] : rows) {
        call();
        EXPECT_THAT(std::exchange(asked, {}), ElementsAre(commands::env + command));
        EXPECT_THAT(log.lines,
                    ElementsAre("debug: Execute command: [" + commands::env + command + "]",
                                "debug: Command output: [done]"));
        log.lines.clear();
    }
    for (auto set : {&ZfsDataset::SetMountpoint, &ZfsDataset::SetUserProperty})
        EXPECT_EQ(ErrorOf([&] { set("p/a", unset); }),
                  "Failed to set user property [quota] for ZFS dataset [p/a]");
    EXPECT_THAT(asked, IsEmpty());
}

TEST(ZfsDataset, UnmountAndPseudoDevice) {
    const auto failWith = [](const std::string& text) {
        return [text](const std::string&) -> std::string { throw std::logic_error(text); };
    };
    {
        const InstalledExecutor installed(failWith("cannot unmount 'p': not currently mounted\n"));
        LogCapture log;
        EXPECT_NO_THROW(ZfsDataset::Unmount("p"));
        EXPECT_THAT(log.lines,
                    ElementsAre("debug: Execute command: [/usr/bin/env -i zfs unmount -f p]",
                                "debug: Command output: []"));
    }
    const InstalledExecutor busy(failWith("Device busy"));
    EXPECT_THROW(ZfsDataset::Unmount("p"), std::logic_error);
    LogCapture log;
    EXPECT_EQ(ZfsDataset::GetZfsPseudoDevice("p/v"), "pseudo@zfs");
    EXPECT_THAT(log.lines, ElementsAre("debug: Execute command: [/usr/bin/env -i ls -la "
                                       "/dev/zvol/dsk/p/v]",
                                       "debug: Error: Device busy",
                                       "debug: DevNode will be replaced on stub"));
    const FakeExecutor fake({{"/usr/bin/env -i ls -la /dev/zvol/dsk/p/v",
                              "l 1 root v -> ../../../..//devices/pseudo/zfs@0:1c\n"},
                             {"/usr/bin/env -i ls -la /dev/zvol/dsk/p/w", "w -> ../../zd16\n"}});
    const InstalledExecutor installed(fake);
    EXPECT_EQ(ZfsDataset::GetZfsPseudoDevice("p/v"), "/devices/pseudo/zfs@0:1c\n");
    EXPECT_EQ(ZfsDataset::GetZfsPseudoDevice("p/w"), "pseudo@zfs");
}

TEST(Quotas, RowsOfBothShapes) {
    const auto parse = [](const std::string& rows) {
        return Dump(
            Enumerator::parseDatasetQuotas("userquota", "TYPE  NAME  USED  QUOTA\n" + rows));
    };
    EXPECT_EQ(parse(""), "");
    EXPECT_EQ(parse("POSIX User  root  3K  none\nposix User 1001 1K 10G\n"),
              "userquota@0=none() userquota@1001=10G() ");
    EXPECT_EQ(
        parse("POSIX User 7 1K 2G local\nshort 4 5 6\n\nProject 12 3K 4G 9\nX 13 3K 4G s y\n"),
        "userquota@7=2G(local) userquota@12=4G() userquota@13=4G(s) ");
    EXPECT_EQ(Enumerator::generateQuotaName("42", "groupquota"), "groupquota@42");
    for (const auto& [name, type] : {std::pair{"no:such", "userquota"}, {"x", "projectquota"}})
        EXPECT_EQ(ErrorOf([n = name, t = type] { Enumerator::generateQuotaName(n, t); }),
                  std::string("Failed to generate ZFS quota name for [") + name + "].");
}

TEST(Quotas, WhatCannotBeReadBecomesAWarning) {
    const FakeExecutor fake({{userspace + "p", "cannot open 'p'"},
                             {groupspace + "p", "TYPE NAME USED QUOTA\nPOSIX Group 5 1K 1G\n"
                                                "POSIX Group no:such 1K 1G\n"},
                             {userspace + "q", "TYPE \n"}});
    Enumerator enumerator;
    LogCapture log;
    EXPECT_THAT(enumerator.readUserQuotaProperties("p", fake), IsEmpty());
    EXPECT_THAT(enumerator.readGroupQuotaProperties("p", fake), IsEmpty());
    EXPECT_THAT(enumerator.readUserQuotaProperties("q", fake), IsEmpty());
    const std::string tail = "[p]. This property will not be restored.";
    EXPECT_THAT(enumerator.Warnings(), ElementsAre("Failed to read ZFS user quota for " + tail,
                                                   "Failed to read ZFS group quota for " + tail));
    EXPECT_THAT(log.lines,
                ElementsAre("debug: Reading ZFS user quota for [p].",
                            "error: Failed to read ZFS user quota for " + tail +
                                ": Unexpected command output for [userquota]: [cannot open 'p'].",
                            "debug: Reading ZFS group quota for [p].",
                            "info: Failed to convert source value from string: [], expected values "
                            "are: [-, inherited, default, temporary, local]",
                            "error: Failed to read ZFS group quota for " + tail +
                                ": Failed to generate ZFS quota name for [no:such].: "
                                "Unknown group: [no:such].",
                            "debug: Reading ZFS user quota for [q].",
                            "debug: Done: Reading ZFS user quota for [q]."));
}

TEST(Enumeration, RunsItsCommandsInOrderThroughTheRightExecutor) {
    const FakeExecutor given({{list + "filesystem p", "p\t1K\t2K\t0B\n\np/a 1 2 3 more\n"},
                              {list + "snapshot p", "p@s - 5 -\n"},
                              {list + "volume p", "no datasets available\n"},
                              {get + "p", "H\np type filesystem -\np x:y v local\n"},
                              {get + "p/a", "H\np/a x:y v inherited from p\np/a quota 1G local\n"
                                            "p/a quota 2G local\np/a encryption aes-256-gcm -\n"},
                              {get + "p@s", "H\n"}});
    const FakeExecutor process({{userspace + "p", "TYPE NAME\nPOSIX User 7 1K 2G\n"},
                                {groupspace + "p", "TYPE NAME\n"},
                                {userspace + "p/a", "TYPE NAME\n"}});
    const InstalledExecutor installed(process);
    Enumerator enumerator;
    for (int run = 0; run < 2; ++run) {
        const auto [datasets, warnings] = enumerator.Enumerate("p", given);
        ASSERT_EQ(datasets.size(), 3U);
        EXPECT_EQ(datasets[0].used, 2048U);
        EXPECT_EQ(Dump(datasets[0].properties.userQuotas), "userquota@7=2G() ");
        EXPECT_EQ(Dump(datasets[0].properties.userProperties), "x:y=v(local) ");
        EXPECT_EQ(Dump(datasets[1].properties.userProperties), "x:y=v(inherited p) ");
        EXPECT_EQ(datasets[1].properties.quota.GetValue(), "2G") << "the later row counts";
        EXPECT_EQ(datasets[1].properties.encryption.GetState(), PropState::Failed);
        EXPECT_EQ(datasets[1].properties.encryption.GetValue(), ZfsProperties::Encryption::Off);
        EXPECT_EQ(datasets[2].name, "p@s");
        EXPECT_EQ(datasets[2].type, ZfsDataset::snapshot);
        EXPECT_EQ(datasets[2].avail, 0U);
        EXPECT_THAT(warnings, ElementsAre("Failed to read ZFS group quota for [p/a]. This property "
                                          "will not be restored."));
        EXPECT_THAT(given.Commands(),
                    ElementsAre(list + "filesystem p", get + "p", get + "p/a", list + "snapshot p",
                                get + "p@s", list + "volume p"));
        EXPECT_THAT(process.Commands(), ElementsAre(userspace + "p", groupspace + "p",
                                                    userspace + "p/a", groupspace + "p/a"));
    }
    using orvcommonlib::system::CRecoveryIsoDetector;
    CRecoveryIsoDetector::SetDetector([] { return true; });
    EXPECT_THAT(enumerator.Enumerate("p", given).second, IsEmpty());
    EXPECT_THAT(process.Commands(), IsEmpty());
    CRecoveryIsoDetector::SetDetector({});
    EXPECT_FALSE(CRecoveryIsoDetector::IsUnderRecoveryIso());
}

TEST(Enumeration, OddListings) {
    Enumerator enumerator;
    const FakeExecutor none;
    for (const char* output : {"", "\n", " \t\n \n", "x\nno datasets available\ny"})
        EXPECT_THAT(enumerator.extractDatasetFromOutput(output, ZfsDataset::volume, none),
                    IsEmpty());
    EXPECT_EQ(
        ErrorOf([&] { enumerator.extractDatasetFromOutput("a 1 2\n", ZfsDataset::volume, none); }),
        "Failed to parse zfs output:\na 1 2\n");
    EXPECT_THAT(none.Commands(), IsEmpty());
    LogCapture log;
    const FakeExecutor fake({{get + "v", "%1"}});
    EXPECT_EQ(
        ErrorOf([&] { enumerator.extractDatasetFromOutput("v 1 x 2", ZfsDataset::volume, fake); }),
        "Failed to parse space value: [x].");
    EXPECT_THAT(log.lines, ElementsAre("debug: Prepare to execute zfs get", "debug: %1",
                                       "debug: Try to parse dataset values for dataset: v:1 x 2"));
}

TEST(Enumeration, DoesNotDependOnTheLocale) {
    struct CommaPunctuation : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    const std::locale former =
        std::locale::global(std::locale(std::locale(), new CommaPunctuation));
    EXPECT_EQ(Enumerator::ParseDatasetFields("p", "1.5K", "-", "-", ZfsProperties()).avail, 1536U);
    EXPECT_THROW(Enumerator::ParseDatasetFields("p", "1,5K", "-", "-", ZfsProperties()),
                 std::runtime_error);
    EXPECT_EQ(ZfsProperties::SpaceSize::ToString(ZfsProperties::SpaceSize::FromString("12345.5K")),
              "12345.500000K");
    std::locale::global(former);
}

TEST(Tree, PlacesDatasetsByName) {
    std::vector<std::string> names{"pool", "pool/a", "pool/a@s1", "pool/b", "pool@s", "pool/a-b"};
    const char* tree = "pool(@s=pool@s a=pool/a(@s1=pool/a@s1) a-b=pool/a-b b=pool/b)";
    EXPECT_EQ(TreeOf(names), tree);
    std::reverse(names.begin(), names.end());
    EXPECT_EQ(TreeOf(names), tree);
    const std::pair<std::vector<std::string>, const char*> rows[] = {
        {{}, ""},
        {{"pool"}, "pool"},
        {{"pool", "pool/a", "pool/a"}, "pool(a=pool/a)"},
        {{"pool", "pool/a", "pool/a/b/c"}, "pool(a=pool/a(b=pool/a/b/c))"},
        {{"pool/a", "pool/a/b"}, "pool/a(a=pool/a/b)"},
        {{"pool", "pool//x"}, "pool(=pool//x)"},
        {{"pool", "pool/a@x@y"}, "pool(a=pool/a@x@y)"},
        {{"pool", "pool/a", "pool/a@x@y"}, "pool(a=pool/a(@x@y=pool/a@x@y))"},
        {{"a", "b", "b/c"}, "a(c=b/c)"},
    };
    for (const auto& [datasets, dump] : rows)
        EXPECT_EQ(TreeOf(datasets), dump);
    EXPECT_EQ(ErrorOf([] { TreeOf({"", ""}); }), "Incorrect zfs filesystem name: ");
}

TEST(Tree, IsTakenApartWithoutRecursionAndMovesItsRecords) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 256UL * 1024);
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, &attributes, DropDeepTree, nullptr), 0);
    void* childrenOfHeld = nullptr;
    pthread_join(thread, &childrenOfHeld);
    pthread_attr_destroy(&attributes);
    EXPECT_EQ(reinterpret_cast<std::size_t>(childrenOfHeld), 1U) << "others still hold that part";

    auto datasets = DatasetsOf({"p/a", "p"});
    datasets[0].properties.quota.Set("a quota too long for the small string buffer");
    const char* text = datasets[0].properties.quota.GetText().data();
    Node root = Enumerator::GrowTree(std::move(datasets));
    EXPECT_EQ(root.children.at("a")->dataset.properties.quota.GetText().data(), text);
    root = Node(*root.children.at("a"));
    root = Node{root.dataset, {{"b", std::make_shared<Node>(root)}}};
    root = *root.children.at("b");
    EXPECT_EQ(Dump(root), "p/a") << "replaced by a node below it";
}
