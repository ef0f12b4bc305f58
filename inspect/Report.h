#pragma once

#include "inspect/HealthReport.h"
#include "inspect/PlanReport.h"
#include "inspect/StateReport.h"
#include "zfstools/Tools.h"
#include "zfstools/ZfsDataset.h"
#include "zfstools/Zpool.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <variant>
#include <vector>

/// What the commands find out, before it is put into words: the text and the JSON are made from
/// these alone.
namespace inspect {

/// A property that is to be shown.
struct PropertyEntry {
    std::string name;
    std::string text;                   ///< of the value; of a failed one, what the tool printed;
                                        ///< a size is rounded, as the tools print it
    std::optional<std::uint64_t> bytes; ///< the value of a size
    std::string source;                 ///< as the tool printed it
    std::string inheritedFrom;          ///< empty when it is not inherited
    bool failed = false;                ///< the text was not understood
};

struct PoolEntry {
    std::string name;
    /// What `zpool list` prints: the name, size and allocated space.
    zfslib::PoolSpace space;
    /// Missing when the enumeration fails at it, for the reason in `error`.
    std::optional<zfslib::Zpool> pool;
    std::string error;
    /// Missing when `zpool status` failed.
    std::optional<zfslib::PoolHealth> health;
    /// Bytes with the deduplication correction; what cannot be computed is missing, for the reason
    /// in `spaceError`.
    std::optional<std::uint64_t> size;
    std::optional<std::uint64_t> allocated;
    std::optional<std::uint64_t> available;
    std::string spaceError;
    std::vector<PropertyEntry> properties;
};

struct PoolsReport {
    bool withProperties = false;
    std::vector<PoolEntry> pools;
};

struct ToolsReport {
    bool installed = false;
};

/// A line in the list of datasets.
struct DatasetEntry {
    /// One of the report's records. None stands only for the place of others: it is of a type that
    /// was not asked for.
    const zfslib::ZfsDataset* dataset = nullptr;
    std::string label; ///< what a tree calls it: the name of the root, a key below that
    std::size_t depth = 0;
};

/// What is to be shown of one dataset's properties.
struct DatasetProperties {
    std::vector<PropertyEntry> native;
    std::vector<PropertyEntry> user;
    std::vector<PropertyEntry> quotas;
};

struct DatasetsReport {
    DatasetsReport() = default;
    DatasetsReport(DatasetsReport&&) = default; // a copy's entries would be of the other's records
    DatasetsReport& operator=(DatasetsReport&&) = default;

    std::string root;
    bool withProperties = false;
    bool onlyChanged = false;
    /// The records, a list for each type. They are large, so they stay where they were read.
    std::vector<std::vector<zfslib::ZfsDataset>> records;
    std::vector<DatasetEntry> datasets; ///< the records in the order in which they are shown
    std::vector<std::string> warnings;
    std::vector<std::string> warningCauses; ///< of each warning, folded
    std::vector<std::string> warningLines;  ///< for people: those of one kind are one line
    /// Some quotas were not read because time was up, so that they may well be there.
    bool quotasTimedOut = false;
    /// By dataset: what the tools print as well, and ZfsProperties has no member for.
    std::unordered_map<std::string, zfslib::Property<std::string>> normalization;

    /// The properties of one of the datasets that are to be shown.
    [[nodiscard]] DatasetProperties Properties(const zfslib::ZfsDataset& dataset) const;
};

struct VolumeReport {
    std::string volume;
    std::string device;
    bool found = false; ///< else the device is a stand-in
};

struct LocatedPath {
    std::string path;
    std::string dataset; ///< empty when the path is not on ZFS, or nobody knows
    std::string pool;
    std::string error; ///< why nobody knows
};

struct LocateReport {
    std::vector<LocatedPath> paths;
};

struct ImportableReport {
    std::vector<zfslib::Pool4Import> pools;
};

using Report = std::variant<PoolsReport, HealthReport, ToolsReport, DatasetsReport, VolumeReport,
                            LocateReport, ImportableReport, StateReport, PlanReport>;

} // namespace inspect
