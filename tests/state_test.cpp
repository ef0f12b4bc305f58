#include "restore/HostState.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace zfslib::restore;

TEST(HostState, FindsDatasetsInTheOrderOfTheTree) {
    const std::vector<std::string> names = {"a",     "a/b",  "a/b/c", "a/b c", "a/b c/d", "a/b-c",
                                            "a/b.c", "a/b0", "a b",   "b",     "\xc3\xa9"};
    std::vector<std::string> shuffled(names.rbegin(), names.rend());
    std::sort(shuffled.begin(), shuffled.end(), ComesBefore);
    EXPECT_EQ(shuffled, names);

    HostState state;
    for (const std::string& name : names)
        state.datasets.emplace_back().name = name;
    for (const std::string& name : names)
        EXPECT_EQ(state.FindDataset(name) - state.datasets.data(),
                  std::find(names.begin(), names.end(), name) - names.begin())
            << name;
    for (const char* name : {"", "a/", "a/b/", "a/b/d", "c", "z"})
        EXPECT_EQ(state.FindDataset(name), nullptr) << name;
}

TEST(HostState, CopiesKeepWhatTheyLookInto) {
    HostState copy;
    {
        const auto texts = std::make_shared<StateTexts>();
        HostState state;
        const ValueOrigin& origin = texts->Origin(PropertySource::Inherited, "tank/a");
        EXPECT_EQ(&origin, &texts->Origin(PropertySource::Inherited, "tank/a"));
        DatasetState& dataset = state.datasets.emplace_back();
        dataset.name = texts->Keep("x"); // short enough to stand inside of a string
        dataset.properties.push_back(texts->Make("u:a", "", "-", origin));
        dataset.properties.push_back(texts->Make("u:b", "\t\n", std::nullopt, origin));
        state.texts = texts;
        copy = HostState(std::move(state));
    }
    const DatasetState* dataset = copy.FindDataset("x");
    ASSERT_NE(dataset, nullptr);
    EXPECT_EQ(dataset->Find("u:a")->Value(), "");
    EXPECT_EQ(dataset->Find("u:a")->Received(), "-");
    EXPECT_EQ(dataset->Find("u:b")->Value(), "\t\n");
    EXPECT_EQ(dataset->Find("u:b")->Received(), std::nullopt);
    EXPECT_EQ(dataset->Find("u:b")->InheritedFrom(), "tank/a");
    EXPECT_EQ(dataset->Find("u:c"), nullptr);
}

TEST(HostState, ToolsTellWhatTheyTake) {
    ToolsState tools;
    tools.zfsUsage = {{"set", "[-u] <property=value> ... <filesystem|volume|snapshot> ..."},
                      {"create", "[-Pnpuv] [-o property=value] ... <filesystem>\n"
                                 "[-Pnpsv] [-b blocksize] ... -V <size> <volume>"},
                      {"get", "[-rHp] [-j [--json-int]] [-d max] [-t type[,...]] <dataset-x>"},
                      {"inherit", "[-rS] <property> <filesystem|volume|snapshot> ..."}};
    for (const auto& [command, option, taken] :
         std::vector<std::tuple<const char*, char, bool>>{{"set", 'u', true},
                                                          {"set", 'p', false},
                                                          {"create", 'u', true},
                                                          {"create", 's', true},
                                                          {"create", 'V', true},
                                                          {"create", 'x', false},
                                                          {"get", 't', true},
                                                          {"get", 'i', false},
                                                          {"get", 'x', false},
                                                          {"inherit", 'S', true},
                                                          {"none", 'S', false}})
        EXPECT_EQ(TakesOption(tools.zfsUsage, command, option), taken) << command << " -" << option;
    EXPECT_TRUE(tools.SetsSeveral());
    tools.zfsUsage["set"] = "<property=value> <filesystem|volume|snapshot> ...";
    EXPECT_FALSE(tools.SetsSeveral());

    for (const auto& [version, atLeast] :
         std::vector<std::pair<const char*, bool>>{{"zfs-2.2.0-1", true},
                                                   {"zfs-2.10.0", true},
                                                   {"zfs-3.0", true},
                                                   {"zfs-2.1.99", false},
                                                   {"zfs-0.8.6", false},
                                                   {"zfs-2", false},
                                                   {"", false}}) {
        tools.version = version;
        EXPECT_EQ(tools.AtLeast(2, 2), atLeast) << version;
    }

    tools.datasetProperties["quota"].isEditable = true;
    tools.datasetProperties["userquota@..."].isEditable = true;
    EXPECT_EQ(FindRule(tools.datasetProperties, "quota"), &tools.datasetProperties["quota"]);
    EXPECT_EQ(FindRule(tools.datasetProperties, "userquota@17"),
              &tools.datasetProperties["userquota@..."]);
    EXPECT_EQ(FindRule(tools.datasetProperties, "a:quota"), nullptr);
}

TEST(HostState, QuotasAreNamedAsTheyAreSet) {
    using Owner = Quota::Owner;
    EXPECT_EQ((Quota{Owner::User, false, "1001", 1}).PropertyName(), "userquota@1001");
    EXPECT_EQ((Quota{Owner::Group, true, "50", 1}).PropertyName(), "groupobjquota@50");
    EXPECT_EQ((Quota{Owner::Project, true, "7", 1}).PropertyName(), "projectobjquota@7");
}

} // namespace
