// Each command of a full enumeration fails in turn: the error comes out, or a warning stands in its
// place; and the next run is clean.

#include "executors/ReplayingExecutor.h"
#include "fakes.h"
#include "zfstools/ZfsDatasetEnumerator.h"
#include "zfstools/ZpoolsEnumerator.h"

#include <gtest/gtest.h>

using namespace zfslib;

namespace {

/// All that an enumeration tells, as lines; the warnings at the end.
std::string Enumerate(ZfsDatasetEnumerator& enumerator, const CommandExecutor& executor) {
    const InstalledExecutor installed(executor);
    std::string text;
    const auto add = [&text](const auto& property) {
        text +=
            property.GetName() + "=" + property.GetText() + "(" + property.GetSource().text + ") ";
    };
    for (const Zpool& pool : ZpoolEnumerator::Enumerate(executor)) {
        text += pool.name + " " + Zpool::StateToString(pool.state) + " ";
        Zpool::Properties::ForEach(pool.properties, add);
    }
    const auto [datasets, warnings] = enumerator.Enumerate("tank", executor);
    for (const ZfsDataset& dataset : datasets) {
        text += "\n" + dataset.name + " ";
        ZfsProperties::ForEach(dataset.properties, add);
        for (const auto* quotas : {&dataset.properties.userQuotas, &dataset.properties.groupQuotas})
            for (const auto& quota : *quotas)
                add(quota);
    }
    for (const std::string& warning : warnings)
        text += "\n" + warning;
    return text;
}

} // namespace

TEST(FaultInjection, EveryCommandOfAnEnumeration) {
    const CommandExecutor host =
        executors::Replayer(ZFSLIB_RECORDINGS "/mirror-host.rec").Executor();
    ZfsDatasetEnumerator enumerator;
    std::vector<std::string> commands;
    const std::string whole = Enumerate(enumerator, [&](const std::string& command) {
        commands.push_back(command);
        return host(command);
    });
    ASSERT_EQ(commands.size(), 56U);
    for (const std::string& command : commands) {
        const bool isQuota = command.find("space ") != std::string::npos;
        const std::string error = ErrorOf([&] {
            const std::string rest = Enumerate(enumerator, [&](const std::string& asked) {
                return asked == command ? throw std::domain_error("the fault") : host(asked);
            });
            EXPECT_NE(rest.find("\nFailed to read ZFS "), std::string::npos) << command;
        });
        EXPECT_EQ(error, isQuota ? "" : "the fault") << command;
        EXPECT_EQ(Enumerate(enumerator, host), whole) << "the run after " << command;
    }
}
