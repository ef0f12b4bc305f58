#include "inspect/Gather.h"

#include "logging/logging.h"
#include "util/str.h"
#include "zfstools/Tools.h"
#include "zfstools/ZfsDatasetEnumerator.h"
#include "zfstools/ZpoolsEnumerator.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <type_traits>
#include <unordered_set>
#include <utility>

namespace inspect {
namespace {

using zfslib::CommandExecutor;
using zfslib::Property;
using zfslib::PropState;
using zfslib::ZfsDataset;
using zfslib::ZfsProperties;
using zfslib::Zpool;
using Node = zfslib::ZfsDatasetEnumerator::Node;

template <typename T>
PropertyEntry MakePropertyEntry(const Property<T>& property) {
    PropertyEntry entry;
    entry.name = property.GetName();
    entry.text = property.GetText();
    entry.source = property.GetSource().text;
    entry.inheritedFrom = property.GetSource().inheritedFrom;
    entry.failed = property.GetState() == PropState::Failed;
    if constexpr (std::is_same_v<T, ZfsProperties::SpaceSize>)
        if (!entry.failed && property.GetValue().kind == ZfsProperties::SpaceSize::Kind::Value)
            entry.bytes = property.GetValue().bytes;
    return entry;
}

bool IsAtOrBelow(const std::string& name, const std::string& root) {
    return name == root || util::str_is_starts_with(name, root + "/") ||
           util::str_is_starts_with(name, root + "@");
}

/// Whether a property can be given to a dataset only when it is created. The tools print "-" for
/// its source, as for what they compute.
bool IsFixedAtCreation(const std::string& name) {
    static const std::unordered_set<std::string> names = {"casesensitivity", "encryption",
                                                          "multilevel", "utf8only", "volblocksize"};
    return names.count(name) != 0;
}

/// Whether a restore of everything below `root` has to set the property again. What is inherited
/// from inside comes back with the dataset it comes from; a temporary mount option is not kept by
/// the system either; a source that is not known could be any.
template <typename T>
bool IsChanged(const Property<T>& property, const std::string& root) {
    using Type = zfslib::PropSource::Type;
    const zfslib::PropSource& source = property.GetSource();
    if (source.unparsed != 0 || source.type == Type::Local || source.type == Type::Received)
        return true;
    if (source.type == Type::None && IsFixedAtCreation(property.GetName()))
        return property.GetState() == PropState::Failed ||
               !(property.GetValue() == property.GetDefault());
    return source.type == Type::Inherited && !IsAtOrBelow(source.inheritedFrom, root);
}

std::vector<PropertyEntry> SetQuotas(const ZfsProperties& properties) {
    std::vector<PropertyEntry> entries;
    for (const auto* quotas : {&properties.userQuotas, &properties.groupQuotas})
        for (const Property<std::string>& quota : *quotas)
            if (!quota.GetText().empty() && quota.GetText() != "none") {
                entries.push_back(MakePropertyEntry(quota));
                entries.back().source.clear(); // the tools print none
            }
    return entries;
}

PoolEntry MakePoolEntry(Zpool&& pool, bool withProperties) {
    PoolEntry entry;
    const auto compute = [&](std::optional<std::uint64_t>& target,
                             std::uint64_t (Zpool::*space)() const) {
        try {
            target = (pool.*space)();
        } catch (const std::exception& error) {
            entry.spaceError = error.what();
        }
    };
    compute(entry.size, &Zpool::GetMaxSize);
    compute(entry.allocated, &Zpool::GetAllocatedSize);
    compute(entry.available, &Zpool::GetAvailableSize);
    if (withProperties)
        Zpool::Properties::ForEach(pool.properties, [&entry](const auto& property) {
            if (property.GetState() != PropState::Unset)
                entry.properties.push_back(MakePropertyEntry(property));
        });
    entry.pool = std::move(pool);
    return entry;
}

Report GatherPools(const Options& options, const CommandExecutor& executor) {
    PoolsReport report;
    report.withProperties = options.properties != PropertyChoice::None;
    std::vector<std::string> missing = options.operands;
    for (Zpool& pool : zfslib::ZpoolEnumerator::Enumerate(executor)) {
        const auto& wanted = options.operands;
        if (!wanted.empty() && std::find(wanted.begin(), wanted.end(), pool.name) == wanted.end())
            continue;
        missing.erase(std::remove(missing.begin(), missing.end(), pool.name), missing.end());
        report.pools.push_back(MakePoolEntry(std::move(pool), report.withProperties));
    }
    std::string names;
    for (const std::string& name : missing)
        names += " [" + name + "]";
    if (!names.empty())
        throw std::runtime_error("no such pool:" + names);
    return report;
}

/// Adds a bare record for each dataset between `root` and the others that is not there; without
/// them two snapshots of a missing volume would lie below one another.
std::unordered_set<std::string> AddPlaceholders(std::vector<ZfsDataset>& datasets,
                                                const std::string& root) {
    std::unordered_set<std::string> present;
    for (const ZfsDataset& dataset : datasets) {
        if (!IsAtOrBelow(dataset.name, root))
            throw std::runtime_error("'zfs list' named [" + dataset.name +
                                     "], which does not lie below [" + root + "]");
        present.insert(dataset.name);
    }
    std::unordered_set<std::string> placeholders;
    const std::size_t count = datasets.size();
    for (std::size_t i = 0; i < count; ++i)
        for (std::string name = datasets[i].name; name != root;) {
            name = ParentName(name);
            if (!present.insert(name).second)
                break;
            placeholders.insert(name);
            datasets.emplace_back().name = name;
        }
    return placeholders;
}

std::vector<DatasetEntry> OrderByName(std::vector<ZfsDataset>&& datasets) {
    std::vector<DatasetEntry> entries;
    entries.reserve(datasets.size());
    for (ZfsDataset& dataset : datasets) {
        std::string label = dataset.name;
        entries.push_back({std::move(dataset), std::move(label)});
    }
    std::sort(entries.begin(), entries.end(),
              [](const DatasetEntry& a, const DatasetEntry& b) { return a.label < b.label; });
    return entries;
}

/// The keys of a node's children: the snapshots, then the datasets, each sorted.
std::vector<std::string> SortedKeys(const Node& node) {
    std::vector<std::string> keys;
    for (const auto& child : node.children)
        keys.push_back(child.first);
    std::sort(keys.begin(), keys.end(), [](const std::string& a, const std::string& b) {
        const bool aIsSnapshot = a.front() == '@';
        const bool bIsSnapshot = b.front() == '@';
        return aIsSnapshot == bIsSnapshot ? a < b : aIsSnapshot;
    });
    return keys;
}

Report GatherDatasets(const Options& options, const CommandExecutor& executor) {
    DatasetsReport report;
    report.root = options.operands.front();
    report.withProperties = options.properties != PropertyChoice::None;
    report.onlyChanged = options.properties == PropertyChoice::Changed;

    zfslib::ZfsDatasetEnumerator enumerator;
    std::vector<ZfsDataset> datasets;
    bool hasFilesystems = false;
    for (const ZfsDataset::Type type : options.types) {
        std::vector<ZfsDataset> part = enumerator.EnumerateType(report.root, type, executor);
        std::move(part.begin(), part.end(), std::back_inserter(datasets));
        hasFilesystems = hasFilesystems || type == ZfsDataset::filesystem;
    }
    report.warnings = enumerator.Warnings();
    report.datasets = options.flat || !hasFilesystems
                          ? OrderByName(std::move(datasets))
                          : OrderAsTree(std::move(datasets), report.root);
    return report;
}

Report GatherVolume(const Options& options) {
    VolumeReport report;
    report.volume = options.operands.front();
    report.device = ZfsDataset::GetZfsPseudoDevice(report.volume);
    report.device.erase(report.device.find_last_not_of(" \t\r\n") + 1);
    report.found = report.device != "pseudo@zfs";
    return report;
}

LocatedPath Locate(const std::string& path) {
    LocatedPath located;
    located.path = path;
    try {
        if (zfslib::IsZfsDataset(path)) {
            located.dataset = zfslib::GetDatasetForPath(path);
            located.pool = located.dataset.substr(0, located.dataset.find('/'));
        }
    } catch (const std::exception& error) {
        located.error = logging::Describe(error);
    }
    return located;
}

Report GatherLocations(const Options& options) {
    LocateReport report;
    for (const std::string& path : options.operands)
        report.paths.push_back(Locate(path));
    return report;
}

} // namespace

std::string ParentName(const std::string& name) {
    const std::size_t divider = name.find_last_of("/@");
    return divider == std::string::npos ? std::string() : name.substr(0, divider);
}

std::vector<DatasetEntry> OrderAsTree(std::vector<ZfsDataset>&& datasets, const std::string& root) {
    if (datasets.empty())
        return {};
    const auto placeholders = AddPlaceholders(datasets, root);
    const std::size_t count = datasets.size();
    // Names are placed relative to the pool: without its parent, `root` counts as one.
    const std::string parentPrefix = root.substr(0, root.rfind('/') + 1);
    for (ZfsDataset& dataset : datasets)
        dataset.name.erase(0, parentPrefix.size());
    Node tree = zfslib::ZfsDatasetEnumerator::GrowTree(std::move(datasets));

    struct Place {
        Node* node;
        std::string label;
        std::size_t depth;
    };
    std::vector<DatasetEntry> entries;
    entries.reserve(count);
    std::vector<Place> places{{&tree, root, 0}};
    while (!places.empty()) {
        Place place = std::move(places.back());
        places.pop_back();
        const std::vector<std::string> keys = SortedKeys(*place.node);
        for (auto key = keys.rbegin(); key != keys.rend(); ++key)
            places.push_back({place.node->children.at(*key).get(), *key, place.depth + 1});

        ZfsDataset& dataset = place.node->dataset;
        dataset.name.insert(0, parentPrefix);
        const bool isPlaceholder = placeholders.count(dataset.name) != 0;
        entries.push_back({std::move(dataset), std::move(place.label), place.depth, isPlaceholder});
    }
    return entries;
}

DatasetProperties DatasetsReport::Properties(const ZfsDataset& dataset) const {
    DatasetProperties shown;
    const auto add = [this](std::vector<PropertyEntry>& entries, const auto& property) {
        if (property.GetState() != PropState::Unset && (!onlyChanged || IsChanged(property, root)))
            entries.push_back(MakePropertyEntry(property));
    };
    // What `zfs get` calls local to a snapshot (volsize) cannot be set there.
    const bool cannotBeSet = onlyChanged && dataset.type == ZfsDataset::snapshot;
    if (withProperties && !cannotBeSet)
        ZfsProperties::ForEach(dataset.properties,
                               [&](const auto& property) { add(shown.native, property); });
    for (const Property<std::string>& property : dataset.properties.userProperties)
        add(shown.user, property);
    std::sort(shown.user.begin(), shown.user.end(),
              [](const PropertyEntry& a, const PropertyEntry& b) { return a.name < b.name; });
    shown.quotas = SetQuotas(dataset.properties);
    return shown;
}

Report Gather(const Options& options, const CommandExecutor& executor) {
    switch (options.command) {
    case Command::Pools:
        return GatherPools(options, executor);
    case Command::Tools:
        return ToolsReport{zfslib::IsZfsToolsInstalled()};
    case Command::Datasets:
        return GatherDatasets(options, executor);
    case Command::Volume:
        return GatherVolume(options);
    case Command::Locate:
        return GatherLocations(options);
    case Command::Importable:
        return ImportableReport{zfslib::EnumerateZpool4Import(executor)};
    }
    throw std::logic_error("a command without a meaning");
}

} // namespace inspect
