// Each command of a full enumeration in turn goes wrong, in four ways: either the documented error
// comes out, or all that the other commands told stays as it was.

#include "executors/ReplayingExecutor.h"
#include "fakes.h"
#include "util/str.h"
#include "zfstools/ZfsDatasetEnumerator.h"
#include "zfstools/ZpoolsEnumerator.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace zfslib;

namespace {

const std::string poolList = "/usr/bin/env -i zpool list -o name,size,alloc";
const std::string poolStatus = "/usr/bin/env -i zpool status ";
const std::string poolGet = "/usr/bin/env -i zpool get all ";
const std::string list = "/usr/bin/env -i zfs list -rH -o name,avail,used,usedrefreserv -t ";
const std::string get = "/usr/bin/env -i zfs get all ";
const std::string userspace = "/usr/bin/env -i zfs userspace ";
const std::string groupspace = "/usr/bin/env -i zfs groupspace ";

/// What each command told, by the command.
using Told = std::map<std::string, std::string>;

const auto dump = [](const auto& property) {
    return property.GetName() + "=" + property.GetText() + "(" + property.GetSource().text + ") ";
};

template <typename Properties>
std::string Dump(const Properties& properties) {
    std::string text;
    Properties::ForEach(properties, [&text](const auto& property) { text += dump(property); });
    return text;
}

Told Enumerate(ZfsDatasetEnumerator& enumerator, const CommandExecutor& executor) {
    const InstalledExecutor installed(executor);
    Told told;
    for (const Zpool& pool : ZpoolEnumerator::Enumerate(executor)) {
        told[poolList] += util::str_format("%1 %2 %3\n", pool.name, pool.size, pool.allocated);
        told[poolGet + pool.name] = Dump(pool.properties);
        std::string& status = told[poolStatus + pool.name] = Zpool::StateToString(pool.state);
        for (const auto* section : {&pool.devices, &pool.logs, &pool.caches, &pool.spares})
            for (const Zpool::VirtualDevice& device : *section)
                for (const Zpool::DeviceReference& reference : device.devices)
                    status += " " + device.name + ":" + reference.name;
    }
    const auto [datasets, warnings] = enumerator.Enumerate("tank", executor);
    for (const auto& [name, type, avail, used, usedrefreserv, properties] : datasets) {
        told[list + ZfsDataset::TypeToString(type) + " tank"] +=
            util::str_format("%1 %2 %3 %4\n", name, avail, used, usedrefreserv);
        told[get + name] = Dump(properties);
        std::string& userQuotas = told[userspace + name] = "";
        for (const auto& quota : properties.userQuotas)
            userQuotas += dump(quota);
        std::string& groupQuotas = told[groupspace + name] = "";
        for (const auto& quota : properties.groupQuotas)
            groupQuotas += dump(quota);
    }
    for (const std::string& warning : warnings)
        told[warning] = "a warning";
    return told;
}

/// The faults: it throws; the output is empty, cut in the middle of a late line, doubled.
std::string Disturb(const std::string& output, std::size_t fault) {
    if (fault == 0)
        throw std::domain_error("the fault");
    const std::size_t line = output.rfind('\n', output.size() * 3 / 4) + 1;
    const std::size_t middle = (line + output.find('\n', line)) / 2;
    return fault == 1 ? "" : fault == 2 ? output.substr(0, middle) : output + output;
}

const std::string userWarning =
    "Failed to read ZFS user quota for [%1]. This property will not be restored.";
const std::string groupWarning =
    "Failed to read ZFS group quota for [%1]. This property will not be restored.";

/// What becomes of what a disturbed command told, by the fault: "!" and the beginning of an error,
/// a warning about its operand, or how it differs.
const std::pair<const std::string&, std::vector<std::string>> rows[] = {
    // Doubled: below the second header stands a pool that nobody knows.
    {poolList, {"!the fault", "gone", "!Failed to parse zpool output:\n", "!The recording ["}},
    {poolStatus, {"!the fault", "UNAVAIL", "shorter", "same"}},
    {poolGet, {"!the fault", Dump(Zpool::Properties()), "!Failed to parse zpool get all", "same"}},
    {list, {"!the fault", "gone", "!Failed to parse zfs output:\n", "twice"}},
    {get, {"!the fault", Dump(ZfsProperties()), "!Failed to parse zfs get: raw size [", "same"}},
    // Cut: a short row is passed over. Doubled: the second header names an unknown owner.
    {userspace, {userWarning, userWarning, "shorter", userWarning}},
    {groupspace, {groupWarning, groupWarning, "shorter", groupWarning}},
};

/// The lowest free descriptor, which rises with every one that is leaked.
int FreeDescriptor() {
    const int descriptor = dup(STDERR_FILENO);
    close(descriptor);
    return descriptor;
}

} // namespace

TEST(FaultInjection, EveryCommandOfAnEnumeration) {
    const CommandExecutor host =
        executors::Replayer(ZFSLIB_RECORDINGS "/mirror-host.rec").Executor();
    ZfsDatasetEnumerator enumerator;
    std::vector<std::string> commands;
    const Told whole = Enumerate(enumerator, [&](const std::string& command) {
        commands.push_back(command);
        return host(command);
    });
    ASSERT_EQ(commands.size(), 56U);
    const int descriptor = FreeDescriptor();

    for (std::size_t i = 0; i < commands.size() * 4; ++i) {
        const std::string& command = commands[i / 4];
        SCOPED_TRACE(command + ", fault " + util::str(i % 4));
        const auto* row = std::find_if(std::begin(rows), std::end(rows), [&](const auto& each) {
            return util::str_is_starts_with(command, each.first);
        });
        ASSERT_NE(row, std::end(rows));
        const std::string& outcome = row->second[i % 4];
        try {
            Told told = Enumerate(enumerator, [&](const std::string& asked) {
                return asked == command ? Disturb(host(asked), i % 4) : host(asked);
            });
            Told expected = whole;
            if (outcome == "gone") { // with what is asked about each of the names
                const auto names =
                    std::count(whole.at(command).begin(), whole.at(command).end(), '\n');
                const std::size_t gone =
                    1 + static_cast<std::size_t>(names) * (command == poolList ? 2 : 3);
                EXPECT_EQ(told.size(), whole.size() - gone);
                EXPECT_TRUE(std::includes(whole.begin(), whole.end(), told.begin(), told.end()));
                expected = told;
            } else if (outcome == "twice") {
                expected[command] += expected[command];
            } else if (outcome == "shorter") {
                expected[command].resize(told[command].size());
            } else if (util::str_is_starts_with(outcome, "Failed")) {
                expected[command] = "";
                expected[util::str_format(outcome, command.substr(row->first.size()))] =
                    "a warning";
            } else if (outcome != "same") {
                expected[command] = outcome;
            }
            EXPECT_EQ(told, expected);
        } catch (const std::exception& error) {
            EXPECT_EQ("!" + std::string(error.what()).substr(0, outcome.size() - 1), outcome);
            EXPECT_EQ(dynamic_cast<const std::domain_error*>(&error) != nullptr, i % 4 == 0);
        }
        EXPECT_EQ(Enumerate(enumerator, host), whole) << "the next run";
    }
    EXPECT_EQ(FreeDescriptor(), descriptor);
}
