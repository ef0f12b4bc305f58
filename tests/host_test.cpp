// Whether the tools are there, and which dataset and pool hold a path.

#include "fakes.h"
#include "system/CRecoveryIsoDetector.h"
#include "zfstools/Tools.h"
#include "zfstools/logging.h"

#include <gmock/gmock.h>

using namespace zfslib;
using orvcommonlib::system::CRecoveryIsoDetector;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// A host with the given pools, all in perfect health.
FakeExecutor HostWith(const std::vector<std::string>& pools, const std::string& df) {
    const FakeExecutor fake({{"df -Z", df}});
    std::string listing = "NAME SIZE ALLOC\n";
    for (const std::string& pool : pools) {
        listing += pool + " 10G 1G\n";
        fake.Answer(commands::zpoolStatus + pool, " state: ONLINE\n");
        fake.Answer(commands::zpoolGet + pool, "H\n");
    }
    fake.Answer(commands::zpoolList, listing);
    return fake;
}

const char* const df = "/                  (rpool/ROOT/s11    ): 2326264 blocks   444933 files\n"
                       "/export            (rpool/export      ):59435344 blocks  3683313 files\n"
                       "/export(shadowed):59435344 blocks  3683313 files\n"
                       "/tank(tank):59435344 blocks\n"
                       "\n"
                       "/tank2             (tank2/x           ):5 blocks\n"
                       "/tmp               (swap              ):5 blocks\n";

} // namespace

TEST(ToolsPresence, IsTheSuccessOfThePackageQuery) {
    const std::string query = "/usr/bin/env -i pkginfo SUNWzfsu";
    const FakeExecutor fake({{query, "system SUNWzfsu ZFS"}});
    const InstalledExecutor installed(fake);
    Executors::SetDfExecutor(nullptr);
    Executors::SetZpoolExecutor(nullptr);
    LogCapture log;
    EXPECT_TRUE(IsZfsToolsInstalled());
    Executors::SetProcessExecutor(
        [](const std::string&) -> std::string { throw std::runtime_error("%1"); });
    EXPECT_FALSE(IsZfsToolsInstalled());
    Executors::SetProcessExecutor(nullptr);
    EXPECT_FALSE(IsZfsToolsInstalled());
    const std::string execute = "info: Execute command: [" + query + "]";
    EXPECT_THAT(log.lines,
                ElementsAre(execute, "info: Command output: [system SUNWzfsu ZFS]", execute,
                            "info: [%1]", execute, "info: [bad_function_call]"));
    EXPECT_THAT(log.sections, testing::Each("zfslib"));
    CRecoveryIsoDetector::SetDetector([] { return true; });
    log.lines.clear();
    EXPECT_TRUE(IsZfsToolsInstalled());
    EXPECT_THAT(log.lines, IsEmpty());
    CRecoveryIsoDetector::SetDetector({});
}

TEST(PathResolution, TakesTheLongestTextPrefixAndFallsBackToTheRoot) {
    const FakeExecutor host = HostWith({"rpool", "tank", "tank2"}, df);
    const InstalledExecutor installed(host);
    const std::pair<const char*, const char*> rows[] = {
        {"/export/home/a", "rpool/export"},
        {"/exportx", "rpool/export"},
        {"/usr", "rpool/ROOT/s11"},
        {"/", "rpool/ROOT/s11"},
        {"/tank", "tank"},
        {"/tank2/y", "tank2/x"},
        {"relative", "rpool/ROOT/s11"},
        {"", "rpool/ROOT/s11"},
        {"/tmp", "swap"},
    };
    for (const auto& [path, dataset] : rows)
        EXPECT_EQ(GetDatasetForPath(path), dataset) << path;
    EXPECT_EQ(GetDatasetForPath("/tank/" + std::string(10000, '\x01')), "tank");
    host.Commands();
    EXPECT_EQ(GetDatasetForPath("relative"), "rpool/ROOT/s11");
    EXPECT_THAT(host.Commands(), ElementsAre("df -Z", "df -Z"));
    host.Answer("df -Z", "/tank (tank)\n");
    EXPECT_EQ(ErrorOf([] { GetDatasetForPath("/usr"); }),
              "Unable to resolve filesystem for path [/].");
    host.Answer("df -Z", "/ (x)\n(word)\n");
    EXPECT_EQ(ErrorOf([] { GetDatasetForPath("/usr"); }),
              "Failed to parse 'df' output: \n /  x \n word \n");
}

TEST(PathResolution, PoolOfAPath) {
    const FakeExecutor host = HostWith({"tank", "tank2"}, df);
    const InstalledExecutor installed(host);
    Executors::SetProcessExecutor(nullptr); // neither df nor the pools are asked for through it
    EXPECT_TRUE(IsZfsDataset("/tank"));
    EXPECT_FALSE(IsZfsDataset("/usr"));
    host.Commands();
    EXPECT_EQ(GetAssociatedZpool("/tank2").name, "tank2") << "tank2/x is not in tank";
    const std::vector<std::string> asked = host.Commands();
    EXPECT_EQ(std::count(asked.begin(), asked.end(), "df -Z"), 3);
    EXPECT_EQ(std::count(asked.begin(), asked.end(), commands::zpoolList), 2);
    EXPECT_EQ(asked.front(), commands::zpoolList);
    EXPECT_EQ(ErrorOf([] { GetAssociatedZpool("/tmp"); }), "[/tmp] is not a ZFS file system.");

    // A pool that is exported, and a mount that changes, between the two looks.
    int listings = 0;
    Executors::SetZpoolExecutor([&](const std::string& command) -> std::string {
        return command.find("zpool list") != std::string::npos && ++listings % 2 == 0
                   ? "no pools available\n"
                   : host(command);
    });
    EXPECT_EQ(ErrorOf([] { GetAssociatedZpool("/tank"); }), "Cannot find a zpool for [/tank].");
}
