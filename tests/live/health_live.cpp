#include "tests/live/Host.h"
#include "util/str.h"

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <map>
#include <nlohmann/json.hpp>

namespace {

using Json = nlohmann::ordered_json; // devices have to stand in the tool's order
using live::OutputOf;

/// Lines and runs of blanks do not matter: `zpool status -j` keeps the line breaks of its texts.
std::string Folded(const Json& text) {
    std::string folded;
    for (const std::string& word : util::split(text.is_string() ? text.get<std::string>() : ""))
        folded += word + " ";
    return folded;
}

/// What both say of a device and those below it, from the tool's own JSON.
std::string ToldByTool(const Json& device) {
    static const std::map<std::string, std::string> words = {
        {"CANT_OPEN", "UNAVAIL"}, // a word of the JSON alone
        {"dspare", "distributedSpare"},
        {"root", "group"}};
    const auto word = [](const std::string& own) {
        const auto other = words.find(own);
        return other == words.end() ? own : other->second;
    };
    std::string told = device.at("name").get<std::string>() + " " + word(device.at("vdev_type")) +
                       " " + word(device.at("state"));
    for (const char* errors : {"read_errors", "write_errors", "checksum_errors", "slow_ios"})
        told += " " + device.value(errors, Json()).dump(); // spares have none
    for (const Json& member : device.value("vdevs", Json::array()))
        told += " [" + ToldByTool(member) + "]";
    return told;
}

/// The same from the JSON of zfsinspect.
std::string ToldByUs(const Json& device) {
    const std::string type = device.at("type");
    const bool isGroup = !device.at("devices").empty(); // the text has slow ones of groups as well
    std::string told = device.at("name").get<std::string>() + " " +
                       (util::str_is_starts_with(type, "raidz") ? "raidz" : type) + " " +
                       device.at("state").get<std::string>();
    for (const char* errors : {"readErrors", "writeErrors", "checksumErrors", "slowIos"})
        told +=
            " " + (isGroup && errors == std::string("slowIos") ? "null" : device.at(errors).dump());
    for (const Json& member : device.at("devices"))
        told += " [" + ToldByUs(member) + "]";
    return told;
}

class Health : public testing::Test {
protected:
    void TearDown() override {
        live::Run("zinject -c all; zpool clear " +
                  pool); // or a suspended pool could not be destroyed
        Set("zfs_scan_suspend_progress", 0);
        Set("zfs_removal_suspend_progress", 0);
    }

    /// A pool with something in it.
    void Pool(const std::string& name, const std::string& devices, unsigned megabytes = 4) {
        pool = host.MakePool(name, devices);
        file = host.Folder() / name / "file";
        OutputOf("dd if=/dev/urandom of=" + file +
                 " bs=1M status=none count=" + std::to_string(megabytes) + "; zpool sync " + pool);
    }

    static void Set(const std::string& parameter, int value) {
        OutputOf("echo " + std::to_string(value) + " > /sys/module/zfs/parameters/" + parameter);
    }

    static Json ToolStatus(const std::string& name, const std::string& options = "") {
        return Json::parse(OutputOf("zpool status -j --json-int " + options + name))
            .at("pools")
            .at(name);
    }

    static Json OurStatus(const std::string& pool) {
        const live::Outcome outcome =
            live::Run(std::string(std::getenv("ZFSINSPECT")) + " --json health " + pool);
        EXPECT_TRUE(outcome.status == 0 || outcome.status == 3) << outcome.status << outcome.errors;
        return Json::parse(outcome.output).at("pools").at(0);
    }

    /// Holds what zfsinspect says of a pool against what the tool itself does, field by field, and
    /// returns the former.
    static Json Compare(const std::string& pool) {
        const Json tool = ToolStatus(pool);
        const Json entry = OurStatus(pool);
        const Json& ours = entry.at("health");
        EXPECT_EQ(ours.at("state"), tool.at("state"));
        EXPECT_EQ(Folded(ours.at("status")), Folded(tool.value("status", "")));
        EXPECT_EQ(Folded(ours.at("action")), Folded(tool.value("action", "")));
        EXPECT_EQ(Folded(ours.at("see")), Folded(tool.value("moreinfo", "")));
        EXPECT_EQ(ours.at("dataErrors"), tool.at("error_count"));
        EXPECT_TRUE(ours.at("unread").empty() && ours.at("otherTexts").empty()) << ours;
        CompareScan(ours, tool);
        for (const auto& [text, stats] :
             {std::pair("remove", "removal_stats"), std::pair("checkpoint", "checkpoint_stats"),
              std::pair("expand", "raidz_expand_stats")})
            EXPECT_EQ(ours.at(text).is_null(), !tool.contains(stats)) << text;
        CompareDevices(ours, tool);
        return entry;
    }

private:
    static void CompareScan(const Json& ours, const Json& tool) {
        ASSERT_EQ(ours.at("scans").size(), tool.contains("scan_stats") ? 1U : 0U);
        if (!tool.contains("scan_stats"))
            return;
        const Json& scan = ours.at("scans")[0];
        const Json& stats = tool.at("scan_stats");
        const std::string state = stats.at("state");
        const bool isPaused = stats.at("scrub_pause") != 0;
        EXPECT_EQ(scan.at("kind"), stats.at("function") == "SCRUB" ? "scrub" : "resilver");
        EXPECT_EQ(scan.at("state"), state == "FINISHED"   ? "finished"
                                    : state == "CANCELED" ? "cancelled"
                                    : isPaused            ? "paused"
                                                          : "running");
        if (state == "SCANNING") {
            EXPECT_EQ(scan.at("started").at("seconds"), stats.at("start_time"));
            const double done = stats.at("issued").get<double>() * 100 /
                                std::max(1.0, stats.at("to_examine").get<double>() -
                                                  stats.at("skipped").get<double>());
            EXPECT_NEAR(scan.at("percentDone").get<double>(), done, 0.01);
        } else {
            EXPECT_EQ(scan.at("ended").at("seconds"), stats.at("end_time"));
        }
        if (state == "SCANNING" && isPaused) {
            EXPECT_EQ(scan.at("paused").at("seconds"), stats.at("scrub_pause"));
        }
        if (state == "FINISHED") {
            EXPECT_EQ(scan.at("errors"), stats.at("errors"));
        }
        if (state != "CANCELED") { // three digits
            const auto processed = stats.at("processed").get<double>();
            EXPECT_NEAR(scan.at("repaired").get<double>(), processed, processed / 100);
        }
    }

    static void CompareDevices(const Json& ours, const Json& tool) {
        std::map<std::string, std::string> tools, own; // by section
        tools[""] = ToldByTool(tool.at("vdevs").begin().value());
        for (const char* section : {"dedup", "special", "logs", "l2cache", "spares"})
            for (const auto& device : tool.value(section, Json::object()))
                tools[section == std::string("l2cache") ? "cache" : section] +=
                    ToldByTool(device) + "\n";
        own[""] = ToldByUs(ours.at("root"));
        for (const auto& section : ours.at("sections"))
            for (const auto& device : section.at("devices"))
                own[section.at("name")] += ToldByUs(device) + "\n";
        EXPECT_EQ(own, tools);
    }

protected:
    [[nodiscard]] std::string Disk(int number) const {
        return " " + (host.Folder() / ("disk" + std::to_string(number))).string();
    }

    live::Host host;
    std::string pool; ///< the last that was made, and a file in it
    std::string file;
};

TEST_F(Health, OfflineAndScrubPausedAndCancelled) {
    Pool("h", "mirror" + host.Disks(2));
    EXPECT_TRUE(Compare(pool).at("healthy"));
    OutputOf("zpool offline " + pool + Disk(1));
    EXPECT_EQ(Compare(pool).at("reasons").size(), 3U);
    Set("zfs_scan_suspend_progress", 1);
    OutputOf("zpool scrub " + pool);
    Compare(pool);
    OutputOf("zpool scrub -p " + pool);
    Compare(pool);
    OutputOf("zpool scrub -s " + pool);
    EXPECT_EQ(Compare(pool).at("health").at("scans")[0].at("state"), "cancelled");
}

TEST_F(Health, ReplacedWhileResilvering) {
    Pool("h", "raidz1" + host.Disks(3));
    Set("zfs_scan_suspend_progress", 1);
    OutputOf("zpool replace " + pool + Disk(1) + host.Disks(1));
    const Json row = Compare(pool).at("health").at("root").at("devices")[0].at("devices")[1];
    EXPECT_EQ(row.at("type"), "replacing");
}

TEST_F(Health, ChecksumErrorsAndDamagedFile) {
    const std::string disks = host.Disks(2);
    Pool("h", "mirror" + disks);
    OutputOf("zinject -d" + Disk(1) + " -e corrupt -T read -f 100 " + pool + " && zpool scrub -w " +
             pool + " && zinject -c all");
    const Json reasons = Compare(pool).at("reasons");
    ASSERT_EQ(reasons.size(), 1U);
    EXPECT_EQ(reasons[0].at("kind"), "deviceErrors");

    Pool("d", host.Disks(1));
    OutputOf("zinject -t data -e io -f 100 " + file + " && zpool scrub -w " + pool);
    const Json files = Compare(pool).at("health").at("damagedFiles");
    EXPECT_EQ(files, ToolStatus(pool, "-v ").at("errlist"));
    EXPECT_EQ(files, Json::array({file}));
}

TEST_F(Health, FaultedLogAndRemovalAndCheckpoint) {
    const std::string disks = host.Disks(3, 128) + " log"; // disk0 to disk2
    Pool("h", disks + host.Disks(1), 20);
    OutputOf("zpool offline -f " + pool + Disk(3));
    EXPECT_EQ(Compare(pool).at("reasons").back().at("section"), "logs");
    Set("zfs_removal_suspend_progress", 1);
    OutputOf("zpool remove " + pool + Disk(1));
    Compare(pool);
    Set("zfs_removal_suspend_progress", 0);
    OutputOf("zpool wait -t remove " + pool);
    Compare(pool);
    OutputOf("zpool checkpoint " + pool);
    EXPECT_FALSE(Compare(pool).at("health").at("checkpoint").is_null());
}

TEST_F(Health, DraidWithDistributedSpare) {
    Pool("h", "draid1:2d:6c:1s" + host.Disks(6));
    const std::string disk = Disk(1);
    OutputOf("zpool offline -f " + pool + disk + " && zpool replace " + pool + disk +
             " draid1-0-0 && zpool wait -t resilver " + pool);
    const Json draid = Compare(pool).at("health").at("root").at("devices")[0];
    EXPECT_EQ(draid.at("draid").dump(), R"({"parity":1,"data":2,"children":6,"spares":1})");
}

TEST_F(Health, Suspended) {
    Pool("h", host.Disks(1));
    const std::string disk = Disk(0);
    OutputOf("zinject -d" + disk + " -e nxio -T all -f 100 " + pool + " && zinject -d" + disk +
             " -e io -T all -f 100 " + pool);
    // Whoever waits for the pool now waits until it is cleared, and cannot be killed.
    OutputOf("(zpool scrub " + pool + " >/dev/null 2>&1 &); (zpool sync " + pool +
             " >/dev/null 2>&1 &); timeout 30 sh -c 'until zpool list -Ho health " + pool +
             " | grep -q SUSPENDED; do :; done'");
    EXPECT_EQ(Compare(pool).at("reasons")[0].at("text"), "the pool is SUSPENDED");
}

/// The disks of this one are made by a kernel module, so that they can be taken away.
TEST_F(Health, RemovedDiskAndItsSpare) {
    if (live::Run(
            "modprobe scsi_debug dev_size_mb=96 add_host=4 per_host_store=1 && udevadm settle")
            .status != 0)
        GTEST_SKIP() << "no disks that can be taken away";
    const auto disks = live::RowsOf("grep -l scsi_debug /sys/block/*/device/model | cut -d/ -f4");
    ASSERT_GE(disks.size(), 3U);
    const std::string gone = disks[1][0], spare = disks[2][0];
    Pool("h", "mirror " + disks[0][0] + " " + gone + " spare " + spare);
    OutputOf("echo 1 > /sys/block/" + gone + "/device/delete; echo x > " + file +
             " && zpool sync " + pool);
    EXPECT_EQ(Compare(pool).at("health").at("root").at("devices")[0].at("devices")[1].at("state"),
              "REMOVED");
    OutputOf("zpool replace " + pool + " " + gone + " " + spare + " && zpool wait -t resilver " +
             pool);
    EXPECT_EQ(Compare(pool).at("health").at("sections")[0].at("devices")[0].at("state"), "INUSE");
}

} // namespace
