#include "executors/Recording.h"
#include "logging/logging.h"
#include "posix/CSimpleCmdExec.h"
#include "restore/HostState.h"
#include "restore/HostStateReader.h"
#include "restore/SavedState.h"
#include "restore/internal/PoolDevices.h"
#include "restore/internal/PropertyRows.h"
#include "util/str.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
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
    using Options = std::vector<std::pair<const char*, char>>;
    for (const auto& [command, option] :
         Options{{"set", 'u'}, {"create", 'u'}, {"create", 'V'}, {"get", 't'}, {"inherit", 'S'}})
        EXPECT_TRUE(TakesOption(tools.zfsUsage, command, option)) << command << " -" << option;
    for (const auto& [command, option] :
         Options{{"set", 'p'}, {"create", 'x'}, {"get", 'i'}, {"get", 'x'}, {"none", 'S'}})
        EXPECT_FALSE(TakesOption(tools.zfsUsage, command, option)) << command << " -" << option;
    EXPECT_TRUE(tools.SetsSeveral());
    tools.zfsUsage["set"] = "<property=value> <filesystem|volume|snapshot> ...";
    EXPECT_FALSE(tools.SetsSeveral());

    const auto isAtLeast22 = [&tools](const char* version) {
        tools.version = version;
        return tools.AtLeast(2, 2);
    };
    for (const char* version : {"zfs-2.2.0-1", "zfs-2.10.0", "zfs-3.0"})
        EXPECT_TRUE(isAtLeast22(version)) << version;
    for (const char* version : {"zfs-2.1.99", "zfs-0.8.6", "zfs-2", ""})
        EXPECT_FALSE(isAtLeast22(version)) << version;

    tools.datasetProperties["quota"].isEditable = true;
    tools.datasetProperties["userquota@..."].isEditable = true;
    EXPECT_EQ(FindRule(tools.datasetProperties, "quota"), &tools.datasetProperties["quota"]);
    EXPECT_EQ(FindRule(tools.datasetProperties, "userquota@17"),
              &tools.datasetProperties["userquota@..."]);
    EXPECT_EQ(FindRule(tools.datasetProperties, "a:quota"), nullptr);
}

/// What `zfs get` knows of some datasets, and prints.
struct Rows {
    struct Row {
        std::string name;
        std::string property;
        std::string value;
        std::string received; ///< "-" for none
        std::string source;
    };
    std::vector<Row> rows;
    int asked = 0;

    [[nodiscard]] std::string Skeleton() const {
        std::string text;
        for (const Row& row : rows)
            text += row.name + "\t" + row.property + "\t" + row.source + "\n";
        return text;
    }
    [[nodiscard]] std::string Values() const {
        std::string text;
        for (const Row& row : rows)
            text += row.name + "\t" + row.property + "\t" + row.value + "\t" + row.received + "\t" +
                    row.source + "\n";
        return text;
    }
    std::string Ask(std::string_view name, std::string_view property, std::string_view column) {
        ++asked;
        Rows own;
        for (const Row& row : rows)
            if (row.name == name && row.property == property)
                return (column == "value" ? row.value : row.received) + "\n";
            else if (row.name == name)
                own.rows.push_back(row);
        return own.Values();
    }
    /// What is read, on one line for each row.
    std::vector<std::string> Read(const std::string& values, const internal::SetAbove& above = {}) {
        StateTexts texts;
        asked = 0;
        std::vector<std::string> lines;
        for (const internal::ObjectRows& object : internal::ReadPropertyRows(
                 Skeleton(), values, true,
                 [this](auto name, auto property, auto column) {
                     return Ask(name, property, column);
                 },
                 above, texts))
            for (const PropertyValue& property : object.properties)
                lines.push_back(
                    Line(std::string(object.name), property.Name(), std::string(property.Value()),
                         std::string(property.Received().value_or("-")), property.InheritedFrom()) +
                    property.Doubt());
        return lines;
    }
    [[nodiscard]] std::vector<std::string> Truth() const {
        std::vector<std::string> lines;
        for (const Row& row : rows)
            lines.push_back(Line(row.name, row.property, row.value, row.received,
                                 row.source.size() > 15 ? row.source.substr(15) : ""));
        return lines;
    }
    static std::string Line(const std::string& name, const std::string& property,
                            const std::string& value, const std::string& received,
                            const std::string& inheritedFrom) {
        return name + "|" + property + "|" + value + "|" + received + "|" + inheritedFrom + "|";
    }
};

/// A parent, a tenant's dataset, and another that the tenant must not speak for. What the tenant
/// sets, and sends, is `hostile(i)`.
template <typename Hostile>
Rows Tenants(Hostile&& hostile) {
    Rows host;
    const std::string fromTop = "inherited from tank";
    host.rows = {
        {"tank", "type", "filesystem", "-", "-"},
        {"tank", "u:top", hostile(0), "-", "local"},
        {"tank/a", "type", "filesystem", "-", "-"},
        {"tank/a", "quota", "5", "7", "local"},
        {"tank/a", "mountpoint", hostile(1), "-", "local"},
        {"tank/a", "u:a", hostile(2), hostile(3), "local"},
        {"tank/a", "u:b", "-", "-", "received"},
        {"tank/a", "u:c", hostile(4), hostile(4), "received"},
        {"tank/a", "u:top", "", "-", fromTop},
        {"tank/b", "type", "volume", "-", "-"},
        {"tank/b", "quota", "1", "-", "local"},
        {"tank/b", "mountpoint", "/tank/b", hostile(7), "default"},
        {"tank/b", "u:own", hostile(5), "-", "local"},
        {"tank/b", "u:top", "", hostile(6), fromTop},
    };
    host.rows[8].value = host.rows.back().value = host.rows[1].value;
    return host;
}

TEST(PropertyRows, NoValueForgesARow) {
    std::mt19937 random(11); // NOLINT(cert-msc51-cpp): the same values each time
    const auto below = [&random](std::size_t n) { return random() % n; };
    const Rows plain = Tenants([](int) { return "v"; });
    const std::string known = plain.Values();
    int values = 0;
    int asked = 0;
    for (int round = 0; values < 10000; ++round) {
        Rows host = Tenants([&](int) {
            ++values;
            std::string value;
            for (std::size_t pieces = below(5); pieces > 0; --pieces) {
                const Rows::Row& row = plain.rows[below(plain.rows.size())];
                const std::size_t begin = known.find(row.name + "\t" + row.property);
                switch (below(5)) {
                case 0: // rows that are there, whole and with their ends
                    value += "\n" + known.substr(begin, below(known.size() - begin));
                    break;
                case 1:
                    value += "\t-\t" + row.source + "\n" + row.name + "\t" + row.property + "\t";
                    break;
                case 2:
                    value += known.substr(begin, below(40));
                    break;
                case 3:
                    value += "\t\n-\xff "[below(5)];
                    break;
                default:
                    value += "\tlocal\n";
                }
            }
            return value;
        });
        ASSERT_EQ(host.Read(host.Values()), host.Truth()) << "round " << round;
        asked += host.asked;
    }
    EXPECT_GT(asked, 0);
}

TEST(PropertyRows, OnlyWhatIsNotClearIsAskedFor) {
    const auto askedFor = [](const std::string& value) {
        Rows host = Tenants([&](int i) { return i == 2 ? value : std::string("v"); });
        EXPECT_EQ(host.Read(host.Values()), host.Truth());
        return host.asked;
    };
    EXPECT_EQ(askedFor(std::string(8191, 'x') + "\xf0\x9f\x98\x80 "), 0);
    EXPECT_EQ(askedFor("several\nlines\n\n"), 0);
    EXPECT_EQ(askedFor("a\tb"), 2) << "its value and what was received";
    EXPECT_EQ(askedFor("a\tb\nc"), 2);

    Rows host = Tenants([](int i) { return i == 0 ? "a\t\n" : "v"; });
    EXPECT_EQ(host.Read(host.Values()), host.Truth());
    EXPECT_LE(host.asked, 3) << "those below inherit it, but one has a received value";
}

TEST(PropertyRows, WhatMovedBetweenIsNotRead) {
    const Rows host = Tenants([](int) { return "v"; });
    for (std::size_t gone = 0; gone < host.rows.size(); ++gone) {
        Rows later = host;
        later.rows.erase(later.rows.begin() + static_cast<std::ptrdiff_t>(gone));
        EXPECT_THROW(Rows(host).Read(later.Values()), internal::StateMoved) << gone;
        EXPECT_THROW(Rows(later).Read(host.Values()), internal::StateMoved) << gone;
        EXPECT_THROW(Rows(host).Read(host.Values().substr(0, gone * 10)), internal::StateMoved);
    }
    Rows tab = Tenants([](int i) { return i == 2 ? "a\tb" : "v"; });
    const std::string before = tab.Values();
    tab.rows[5].value = "a\tc";
    EXPECT_THROW(tab.Read(before), internal::StateMoved) << "asked for, it is another";
    EXPECT_THROW(Rows(host).Read("tank\ttype"), internal::StateMoved);
    EXPECT_THROW((void)internal::DescribeMoves("", "tank\tquota\n"), std::runtime_error);

    const std::string skeleton = "t\ttype\t-\nt\tquota\tlocal\nt\tused\t-\nt\tu:a\tlocal\n";
    for (const auto& [after, moves] : std::vector<std::pair<std::string, std::string>>{
             {skeleton, ""},
             {skeleton + "t\tused2\t-\n", ""},
             {"t\ttype\t-\nt\tquota\tlocal\nt\tu:a\tlocal\n", ""},
             {"t\ttype\t-\nt\tquota\tdefault\nt\tused\t-\nt\tu:a\tlocal\n",
              "t quota (default, was local)"},
             {skeleton + "t/a\ttype\t-\nt/a\tused\t-\n", "t/a (new)"},
             {"", "t (gone)"}})
        EXPECT_EQ(internal::DescribeMoves(skeleton, after), moves) << after;
}

TEST(PropertyRows, AnAncestorIsFoundWhoseNameIsCut) {
    const std::string top = "tank/" + std::string(110, 'x'); // 115 characters
    const std::string printed = "inherited from " + top.substr(0, 112);
    Rows host;
    host.rows = {{top, "u:a", "1", "-", "local"},
                 {top, "u:b", "1", "-", "local"},
                 {top + "/b", "u:a", "1", "-", printed},
                 {top + "/b", "u:b", "2", "3", "received"},
                 {top + "/b/c", "u:a", "1", "-", printed},
                 {top + "/b/c", "u:b", "2", "-", printed},
                 {top + "/b/c", "u:above", "2", "-", printed},
                 {top + "/b/c", "u:nowhere", "2", "-", printed},
                 {top + "/b/c", "u:wrong", "2", "-", "inherited from tank/y"}};
    const internal::SetAbove above = internal::ReadSetAbove(
        "tank\tu:above\tlocal\n" + top.substr(0, 115) + "\tu:above\tlocal\ntank\tu:a\tdefault\n");
    const std::vector<std::string> lines = host.Read(host.Values(), above);
    const auto end = [](const std::string& line) { return line.substr(line.find("|-|") + 3); };
    EXPECT_EQ(end(lines[2]), top + "|");
    EXPECT_EQ(end(lines[4]), top + "|");
    EXPECT_EQ(end(lines[5]), top + "/b|");
    EXPECT_EQ(end(lines[6]), top + "|");
    const std::string doubt = "|no dataset above with this name sets the property";
    EXPECT_EQ(end(lines[7]), top.substr(0, 112) + doubt);
    EXPECT_EQ(end(lines[8]), "tank/y" + doubt);
}

std::string Describe(const std::vector<Device>& devices, const std::string& indent = "") {
    std::string text;
    for (const Device& device : devices)
        text += indent + device.name + "|" + util::str(static_cast<int>(device.kind)) + "|" +
                util::str(static_cast<int>(device.use)) + "|" + device.word + "|" + device.path +
                "|" + (device.isWholeDisk ? util::str(int{*device.isWholeDisk}) : "?") + "|" +
                device.guid + "|" + device.state + "\n" + Describe(device.children, indent + " ");
    return text;
}

TEST(PoolDevices, AreReadWithWhatMakingThemAgainNeeds) {
    // With several names of one width in place of %.
    const auto table = [](const std::vector<std::string>& names) {
        std::string text = "  pool: my pool\n state: DEGRADED\nstatus: One\n\tor more\nconfig:\n\n"
                           "\tNAME              STATE     READ WRITE CKSUM\n"
                           "\tmy pool           DEGRADED     0     0     0\n"
                           "\t  %  DEGRADED     0     0     0\n"
                           "\t    %  ONLINE       0     0     0\n"
                           "\t    %  UNAVAIL      0     0     0  was /dev/a b1\n"
                           "\t    %  DEGRADED     0     0     0\n"
                           "\t      %  ONLINE       0     0     0  (resilvering)\n"
                           "\t  %  ONLINE       0     0     0\n"
                           "\tspecial\t\n"
                           "\t  %  ONLINE       0     0     0\n"
                           "\tspares\n"
                           "\t  %  AVAIL\n"
                           "\t  %  INUSE     currently in use\n"
                           "\nerrors: No known data errors\n";
        for (const std::string& name : names)
            text.replace(text.find('%'), 1, name);
        return text;
    };
    const std::string byName =
        table({"raidz2-0      ", "sda         ", "123456789   ", "replacing-1 ", "nvme0n1   ",
               "draid1:2d:5c-1", "/files/my file", "draid1-0-0    ", "sdb1          "});
    const std::string byPath =
        table({"raidz2-0      ", "/dev/sda1   ", "123456789   ", "replacing-1 ", "/d/nvme0n1p1",
               "draid1:2d:5c-1", "/files/my file", "draid1-0-0    ", "/dev/sdb1     "});
    const std::string byGuid =
        table({"11            ", "12          ", "13          ", "14          ", "15        ",
               "16            ", "17            ", "18            ", "19            "});
    const auto rows = [](const std::string& text) { return internal::ReadStatusRows(text); };
    EXPECT_EQ(Describe(internal::ReadDevices(rows(byName), rows(byPath), rows(byGuid), "Linux")),
              "raidz2-0|3|0|raidz2||?|11|DEGRADED\n"
              " sda|0|0||/dev/sda1|1|12|ONLINE\n"
              " 123456789|0|0||/dev/a b1|?|13|UNAVAIL\n"
              " replacing-1|5|0|||?|14|DEGRADED\n"
              "  nvme0n1|0|0||/d/nvme0n1p1|1|15|ONLINE\n"
              "draid1:2d:5c-1|4|0|draid1:2d:5c||?|16|ONLINE\n"
              "/files/my file|1|1||/files/my file|?|17|ONLINE\n"
              "draid1-0-0|7|6|||?|18|AVAIL\n"
              "sdb1|0|6||/dev/sdb1|0|19|INUSE\n");
    std::string inUse = byName;
    inUse.replace(inUse.find("replacing-1"), 11, "spare-1    ");
    EXPECT_THAT(Describe(internal::ReadDevices(rows(inUse), {}, {}, "Linux")),
                testing::HasSubstr("\n spare-1|6|0|||?||DEGRADED\n"));
    std::string other = byGuid;
    other.erase(other.find("\t    12"), other.find("\t    13") - other.find("\t    12"));
    EXPECT_THROW((void)internal::ReadDevices(rows(byName), rows(byPath), rows(other), "Linux"),
                 internal::StateMoved);
    EXPECT_THROW((void)internal::ReadDevices(rows("no such pool"), {}, {}, "Linux"),
                 std::runtime_error);
}

/// The written Solaris host, with some answers changed.
class SolarisState : public testing::Test {
protected:
    using Change = std::function<void(const std::string& command, std::string& answer)>;

    /// Reads its state; `change` sees every answer.
    HostState Read(const Change& change, const std::vector<std::string>& roots = {"rpool"}) {
        return ReadHostState(roots, [&](const std::string& command) {
            const auto exchange =
                std::find_if(recorded.begin(), recorded.end(),
                             [&](const auto& known) { return known.command == command; });
            if (exchange == recorded.end() || exchange->failure)
                throw std::runtime_error("refused: " + command);
            std::string answer = exchange->output;
            change(command, answer);
            return answer;
        });
    }
    std::string ErrorOf(const Change& change, const std::vector<std::string>& roots = {"rpool"}) {
        try {
            Read(change, roots);
        } catch (const std::exception& error) {
            return logging::Describe(error);
        }
        return "no error";
    }
    static bool Has(const std::string& text, const char* part) {
        return text.find(part) != std::string::npos;
    }

    const std::vector<zfslib::executors::Exchange> recorded =
        zfslib::executors::ReadRecording(ZFSLIB_RECORDINGS "/solaris-state.rec").exchanges;
};

TEST_F(SolarisState, WhatMovesIsReadAgainTwice) {
    const std::string local = "rpool/export\tquota\tlocal";
    int left = 0;
    int skeletons = 0;
    const Change move = [&](const std::string& command, std::string& answer) {
        if (Has(command, "-o name,property,source") && ++skeletons % 2 == 0 && left-- > 0)
            answer.replace(answer.find(local), local.size(), "rpool/export\tquota\tdefault");
    };
    for (int moves = 0; moves < 3; ++moves) {
        left = moves;
        skeletons = 0;
        const HostState state = Read(move);
        EXPECT_EQ(state.datasets.size(), 3U);
        EXPECT_EQ(state.snapshots.size(), 1U);
        EXPECT_EQ(skeletons, 2 * (moves + 1));
    }
    left = 3;
    EXPECT_EQ(ErrorOf(move), "Cannot read what is below [rpool]: it changed each of 3 times: "
                             "rpool/export quota (default, was local).");
    left = 0;
    int gone = 0;
    EXPECT_THAT(ErrorOf([&](const std::string& command, std::string&) {
                    if (Has(command, "zfs holds"))
                        throw std::runtime_error("not there: " + util::str(++gone));
                }),
                testing::HasSubstr("not there: 3"));
}

TEST_F(SolarisState, WhatCannotBeReadIsSaid) {
    const Change none = [](const std::string&, std::string&) {};
    for (const char* root : {"", "-r", "/rpool", "rpool@install", "rpool#b", "rpool\n", "a\tb"})
        EXPECT_THAT(ErrorOf(none, {"rpool", root}), testing::HasSubstr("is no name of a pool"));
    EXPECT_THAT(ErrorOf(none, {}), testing::HasSubstr("nothing to read"));
    EXPECT_EQ(Read(none, {"rpool", "rpool/export", "rpool"}).datasets.size(), 3U);

    const auto failure = [&](const char* of, posix::CCommandFailure::Kind kind) {
        return [=](const std::string& command, std::string&) {
            if (Has(command, of))
                throw posix::CCommandFailure(command, kind, 1, "because\n", "");
        };
    };
    using Kind = posix::CCommandFailure::Kind;
    EXPECT_THAT(ErrorOf(failure("zpool status", Kind::TimeOut)),
                testing::StartsWith("Cannot read the pool [rpool]: Command"));
    EXPECT_THAT(ErrorOf(failure("userspace", Kind::TimeOut)),
                testing::StartsWith("Cannot read the quotas of [rpool]: Command"));
    EXPECT_THAT(ErrorOf([](const std::string& command, std::string& answer) {
                    if (Has(command, "zpool get 2>&1"))
                        answer = "sh: zpool: not found\n";
                }),
                testing::HasSubstr("`zpool get` does not say how it is used: [sh: zpool: not"));

    const HostState state = Read(failure("userspace", Kind::ExitStatus));
    EXPECT_EQ(state.FindDataset("rpool/export")->quotasDoubt, "because");
    const HostState other = Read(failure("zfs allow 'rpool/export'", Kind::ExitStatus));
    EXPECT_EQ(other.FindDataset("rpool/export")->permissionsDoubt, "because");
    EXPECT_EQ(other.FindDataset("rpool")->permissionsDoubt, "") << "rpool/dump tells of it";
    const HostState untold = Read(failure("zfs allow", Kind::ExitStatus));
    EXPECT_NE(untold.FindDataset("rpool")->permissionsDoubt, "");
    const HostState faulted = Read([](const std::string& command, std::string& answer) {
        if (Has(command, "zpool get all"))
            answer.replace(answer.find("ONLINE"), 6, "FAULTED");
    });
    EXPECT_EQ(faulted.pools[0].doubts.size(), 1U);
    for (const char* forged : {"rpool@other\tx\tday\n", "rpool@install\tx\tday\n", "x\n"}) {
        const HostState held = Read([&](const std::string& command, std::string& answer) {
            if (Has(command, "zfs holds"))
                answer += forged;
        });
        EXPECT_NE(held.FindSnapshot("rpool@install")->holdsDoubt, "") << forged;
        EXPECT_TRUE(held.FindSnapshot("rpool@install")->holds.empty()) << forged;
    }
}

TEST(SavedState, FindsItsRootsInTheRecording) {
    using zfslib::executors::ReadRecording;
    const std::string folder = ZFSLIB_RECORDINGS;
    auto nasty = ReadRecording(folder + "/nasty-state.rec");
    auto solaris = ReadRecording(folder + "/solaris-state.rec");
    EXPECT_THAT(ReadSavedState(folder + "/nasty-state.rec").state.roots,
                testing::ElementsAre("tank", "my pool"));
    const SavedState alone = ReadSavedState(solaris, "alone");
    EXPECT_THAT(alone.warnings, testing::IsEmpty());
    // As if one had been recorded behind the other.
    nasty.exchanges.insert(nasty.exchanges.end(), solaris.exchanges.begin(),
                           solaris.exchanges.end());
    const SavedState last = ReadSavedState(nasty, "both");
    EXPECT_EQ(last.state.roots, alone.state.roots);
    EXPECT_EQ(last.state.tools.system, "SunOS");
    EXPECT_THAT(last.warnings, testing::ElementsAre(testing::HasSubstr("[both] holds 2 states")));

    solaris.exchanges.resize(solaris.exchanges.size() / 2);
    EXPECT_ANY_THROW((void)ReadSavedState(solaris, "half"));
    EXPECT_ANY_THROW((void)ReadSavedState(folder + "/mirror-host.rec"));
}

} // namespace
