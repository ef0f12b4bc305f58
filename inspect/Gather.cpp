#include "inspect/Gather.h"

#include "executors/ReplayingExecutor.h"
#include "inspect/Escape.h"
#include "inspect/HealthGather.h"
#include "inspect/MissingTools.h"
#include "inspect/Operands.h"
#include "inspect/Size.h"
#include "logging/logging.h"
#include "posix/CSimpleCmdExec.h"
#include "restore/HostStateReader.h"
#include "restore/LiveState.h"
#include "restore/SavedState.h"
#include "util/str.h"
#include "zfstools/Tools.h"
#include "zfstools/ZfsDatasetEnumerator.h"
#include "zfstools/ZpoolsEnumerator.h"

#include <algorithm>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace inspect {
namespace {

using posix::CCommandFailure;
using zfslib::CommandExecutor;
using zfslib::Property;
using zfslib::PropState;
using zfslib::ZfsDataset;
using zfslib::ZfsProperties;
using zfslib::Zpool;
using zfslib::restore::HostState;
using zfslib::restore::LiveState;
using zfslib::restore::SavedState;

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
    if (entry.bytes)
        entry.text = FormatSize(*entry.bytes);
    return entry;
}

bool IsAtOrBelow(const std::string& name, const std::string& root) {
    return name == root || util::str_is_starts_with(name, root + "/") ||
           util::str_is_starts_with(name, root + "@");
}

/// Whether somebody can have chosen the property although the tools print "-" for its source: one
/// that only the creation of a dataset can give it, or the quota of those who have none of their
/// own.
bool IsChosenWithoutSource(const std::string& name) {
    return ZfsProperties::IsSetAtCreation(name) || name == "defaultuserquota" ||
           name == "defaultgroupquota";
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
    if (source.type == Type::None && IsChosenWithoutSource(property.GetName()))
        return property.GetState() == PropState::Failed ||
               (!(property.GetValue() == property.GetDefault()) && property.GetText() != "none" &&
                property.GetText() != "-");
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

/// The sizes with the deduplication correction.
void ComputeSpace(PoolEntry& entry) {
    const auto compute = [&](std::optional<std::uint64_t>& target,
                             std::uint64_t (Zpool::*space)() const) {
        try {
            target = (*entry.pool.*space)();
        } catch (const std::exception& error) {
            entry.spaceError = error.what();
        }
    };
    compute(entry.size, &Zpool::GetMaxSize);
    compute(entry.allocated, &Zpool::GetAllocatedSize);
    compute(entry.available, &Zpool::GetAvailableSize);
}

/// Reads one pool, of which `row` is the line of `zpool list` below its header. The enumeration of
/// all pools fails at one that is FAULTED or SUSPENDED, which must not hide the others.
PoolEntry GatherPool(const std::string& header, const std::string& row, bool withProperties,
                     const CommandExecutor& executor) {
    PoolEntry entry;
    entry.space = zfslib::PoolSpace::Parse(header + row).at(0);
    entry.name = entry.space.name;
    entry.error = RefusedPool(entry.name);
    if (!entry.error.empty())
        return entry;
    const auto keepHealth = [&](const std::string& command) {
        std::string output = executor(command);
        if (util::str_is_starts_with(command, "/usr/bin/env -i zpool status "))
            entry.health = zfslib::PoolHealth::Parse(output);
        return output;
    };
    try {
        entry.pool =
            zfslib::ZpoolEnumerator::ExtractZpoolsFromOutput(header + row, keepHealth).at(0);
    } catch (const std::exception& error) {
        entry.error = logging::Describe(error);
        return entry;
    }
    ComputeSpace(entry);
    if (withProperties)
        Zpool::Properties::ForEach(entry.pool->properties, [&entry](const auto& property) {
            if (property.GetState() != PropState::Unset)
                entry.properties.push_back(MakePropertyEntry(property));
        });
    return entry;
}

Report GatherPools(const Options& options, const CommandExecutor& executor) {
    PoolsReport report;
    report.withProperties = options.properties != PropertyChoice::None;
    const std::vector<std::string>& wanted = options.operands;
    std::vector<std::string> missing = wanted;
    const std::string list = executor("/usr/bin/env -i zpool list -o name,size,alloc");
    std::string_view rest = list;
    const std::string header = rest.empty() ? "" : std::string(util::ConsumeLine(rest)) + "\n";
    while (!rest.empty()) {
        const std::string row(util::ConsumeLine(rest));
        const std::vector<zfslib::PoolSpace> pool = zfslib::PoolSpace::Parse(header + row);
        if (pool.empty() || (!wanted.empty() &&
                             std::find(wanted.begin(), wanted.end(), pool[0].name) == wanted.end()))
            continue;
        missing.erase(std::remove(missing.begin(), missing.end(), pool[0].name), missing.end());
        report.pools.push_back(GatherPool(header, row, report.withProperties, executor));
    }
    std::string names;
    for (const std::string& name : missing)
        names += " [" + name + "]";
    if (!names.empty())
        throw std::runtime_error("no such pool:" + names);
    return report;
}

/// The name of the dataset above, as a part of the name.
std::string_view Parent(std::string_view name) {
    const std::size_t divider = name.find_last_of("/@");
    return name.substr(0, divider == std::string_view::npos ? 0 : divider);
}

/// Whether `a` stands before `b` in a tree: what divides names comes before all that is in them, so
/// a dataset's snapshots and then its children follow it before its next sibling.
bool StandsBefore(std::string_view a, std::string_view b) {
    const auto rank = [](char c) {
        return c == '@' ? 0 : c == '/' ? 1 : 2 + static_cast<unsigned char>(c);
    };
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                        [&rank](char x, char y) { return rank(x) < rank(y); });
}

/// A name in a tree, with its record if there is one.
struct Place {
    std::string_view name;
    const ZfsDataset* dataset = nullptr;
};

/// Each dataset and everything between it and `root`: without a missing volume, its snapshots would
/// seem to lie elsewhere.
std::vector<Place> PlacesBelow(const std::vector<std::vector<ZfsDataset>>& records,
                               const std::string& root) {
    std::vector<Place> places;
    std::unordered_set<std::string_view> present;
    for (const std::vector<ZfsDataset>& list : records)
        for (const ZfsDataset& dataset : list) {
            if (!IsAtOrBelow(dataset.name, root))
                throw std::runtime_error("'zfs list' named [" + dataset.name +
                                         "], which does not lie below [" + root + "]");
            if (present.insert(dataset.name).second)
                places.push_back({dataset.name, &dataset});
        }
    const std::size_t count = places.size();
    for (std::size_t i = 0; i < count; ++i)
        for (std::string_view name = places[i].name; name != root;) {
            name = Parent(name);
            if (!present.insert(name).second)
                break;
            places.push_back({name, nullptr});
        }
    return places;
}

std::vector<DatasetEntry> OrderByName(const std::vector<std::vector<ZfsDataset>>& records) {
    std::vector<DatasetEntry> entries;
    for (const std::vector<ZfsDataset>& list : records)
        for (const ZfsDataset& dataset : list)
            entries.push_back({&dataset, dataset.name});
    std::sort(entries.begin(), entries.end(),
              [](const DatasetEntry& a, const DatasetEntry& b) { return a.label < b.label; });
    return entries;
}

/// An executor that notes the property `normalization` of each dataset whose properties are read
/// through it.
CommandExecutor NoteNormalization(const CommandExecutor& executor, DatasetsReport& report) {
    return [&executor, &report](const std::string& command) {
        static const std::string query = "/usr/bin/env -i zfs get all ";
        std::string output = executor(command);
        if (!util::str_is_starts_with(command, query))
            return output;
        for (std::string_view rest = output; !rest.empty();) {
            const std::string_view line = util::ConsumeLine(rest);
            if (line.find("normalization") == std::string_view::npos)
                continue;
            zfslib::AuxPropValue value;
            const std::vector<std::string> row = util::split(line);
            if (row.size() < 4 ||
                ZfsDataset::ParseDatasetPropOutputRow(row, value) != "normalization")
                continue;
            Property<std::string> property("normalization", "none");
            property.Set(value.value);
            property.SetSource(value.source, value.inheritedFrom);
            report.normalization.insert_or_assign(command.substr(query.size()), property);
        }
        return output;
    };
}

/// What a name can go on with, but for what may end a sentence behind it.
constexpr std::string_view nameSigns =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-/@";

/// `text` with `name` replaced wherever it stands as a whole.
std::string WithoutName(std::string text, const std::string& name) {
    const auto belongsToName = [&text](std::size_t at) {
        return at < text.size() && nameSigns.find(text[at]) != std::string_view::npos;
    };
    for (std::size_t at = text.find(name); at != std::string::npos && !name.empty();
         at = text.find(name, at + 1))
        if ((at == 0 || !belongsToName(at - 1)) && !belongsToName(at + name.size()))
            text.replace(at, name.size(), "%");
    return text;
}

/// Says of each quota list that could not be read why that is so.
void AddWarnings(DatasetsReport& report, const zfslib::ZfsDatasetEnumerator& enumerator) {
    using Kind = posix::CCommandFailure::Kind;
    struct Line {
        std::string text;
        std::size_t count = 0;
    };
    std::vector<Line> lines;
    std::unordered_map<std::string, std::size_t> lineOfKind;
    report.warnings = enumerator.Warnings();
    for (std::size_t i = 0; i < report.warnings.size(); ++i) {
        const auto& failure = enumerator.QuotaFailures()[i];
        std::string cause;
        try {
            std::rethrow_exception(failure.cause);
        } catch (const posix::CCommandFailure& error) {
            cause = error.what();
            if (error.GetKind() == Kind::TimeOut || error.GetKind() == Kind::Stopped)
                report.quotasTimedOut = true;
        } catch (const std::exception& error) {
            cause = logging::Describe(error);
        }
        cause = Fold(cause);
        const auto [known, isNew] = lineOfKind.emplace(
            failure.quotaType + WithoutName(cause, failure.dataset), lines.size());
        if (isNew)
            lines.push_back({report.warnings[i] + " Cause: " + cause});
        ++lines[known->second].count;
        report.warningCauses.push_back(std::move(cause));
    }
    for (const Line& line : lines)
        report.warningLines.push_back(
            line.count == 1 ? line.text
                            : line.text + util::str_format(" (the first of %1 alike)", line.count));
}

Report GatherDatasets(const Options& options, const CommandExecutor& executor) {
    DatasetsReport report;
    report.root = options.operands.front();
    report.withProperties = options.properties != PropertyChoice::None;
    report.onlyChanged = options.properties == PropertyChoice::Changed;

    // The table alone needs no more than three lists; a recording is to serve every other view.
    const bool showsLists = !report.withProperties && !options.json && !options.record;
    const CommandExecutor noting =
        report.withProperties ? NoteNormalization(executor, report) : executor;
    zfslib::ZfsDatasetEnumerator enumerator;
    bool hasFilesystems = false;
    for (const ZfsDataset::Type type : options.types) {
        report.records.push_back(
            showsLists ? zfslib::ZfsDatasetEnumerator::ListType(report.root, type, executor)
                       : enumerator.EnumerateType(report.root, type, noting));
        hasFilesystems = hasFilesystems || type == ZfsDataset::filesystem;
    }
    AddWarnings(report, enumerator);
    report.datasets = options.flat || !hasFilesystems ? OrderByName(report.records)
                                                      : OrderAsTree(report.records, report.root);
    return report;
}

/// Whether there is a device at the path: on Linux a link to one, on FreeBSD one itself. A
/// directory, which holds the volumes of a pool or dataset, prints a list.
bool IsDevice(const std::string& path, const CommandExecutor& executor) {
    try {
        const std::string output = executor("/usr/bin/env -i ls -la " + path);
        return !output.empty() && std::string_view("lbc").find(output[0]) != std::string_view::npos;
    } catch (const CCommandFailure& failure) {
        if (failure.GetKind() == CCommandFailure::Kind::ExitStatus)
            return false;
        throw;
    } catch (const std::runtime_error&) { // a recording without this command
        return false;
    }
}

/// Errors: MissingTools. What the tools say is no matter.
void CheckToolsAreThere(const CommandExecutor& executor) {
    try {
        executor("/usr/bin/env -i pkginfo SUNWzfsu");
    } catch (const MissingTools&) {
        throw;
    } catch (const std::runtime_error&) {
    }
}

/// While one lives, `executor` is the process executor; then it is the former one again.
class ProcessExecutorFor {
public:
    explicit ProcessExecutorFor(CommandExecutor executor)
        : former_(zfslib::Executors::GetProcessExecutor()) {
        zfslib::Executors::SetProcessExecutor(std::move(executor));
    }
    ~ProcessExecutorFor() { zfslib::Executors::SetProcessExecutor(std::move(former_)); }
    ProcessExecutorFor(const ProcessExecutorFor&) = delete;
    ProcessExecutorFor& operator=(const ProcessExecutorFor&) = delete;

private:
    CommandExecutor former_;
};

/// What a library call says that answers "no" where its command fails. That a recording has no
/// answer says nothing about the host and fails here as well.
template <typename Call>
auto FromRecordedAnswers(const Call& call) {
    const auto unrecorded = std::make_shared<std::exception_ptr>();
    const CommandExecutor former = zfslib::Executors::GetProcessExecutor();
    const ProcessExecutorFor noting([former, unrecorded](const std::string& command) {
        try {
            return former(command);
        } catch (const zfslib::executors::NoRecordedAnswer&) {
            *unrecorded = std::current_exception();
            throw;
        }
    });
    auto result = call();
    if (*unrecorded)
        std::rethrow_exception(*unrecorded);
    return result;
}

Report GatherVolume(const Options& options, const CommandExecutor& executor) {
    VolumeReport report;
    report.volume = options.operands.front();
    report.device =
        FromRecordedAnswers([&] { return ZfsDataset::GetZfsPseudoDevice(report.volume); });
    report.device.erase(report.device.find_last_not_of(" \t\r\n") + 1);
    report.found = report.device != "pseudo@zfs";
    if (report.found)
        return report;
    const std::string device = "/dev/zvol/" + report.volume;
    report.found = IsDevice(device, executor);
    if (report.found)
        report.device = device;
    else
        CheckToolsAreThere(executor);
    return report;
}

/// What `read` gives, which asks for the exact state of a host.
template <typename Read>
auto ReadExactly(const CommandExecutor& executor, Read&& read) {
    try {
        return read();
    } catch (const std::exception&) {
        CheckToolsAreThere(executor); // "zfs 2>&1 || :" succeeds without them
        throw;
    }
}

Report GatherState(const Options& options, const CommandExecutor& executor) {
    return StateReport{
        ReadExactly(executor,
                    [&] { return zfslib::restore::ReadHostState(options.operands, executor); }),
        options.withAll};
}

/// Errors: std::runtime_error when a root is no saved dataset; it names what was saved.
void CheckRoots(const Options& options, const HostState& saved) {
    for (const std::string& root : options.plan.roots) {
        if (saved.FindDataset(root) != nullptr)
            continue;
        std::string roots;
        for (const std::string& name : saved.roots)
            roots.append(roots.empty() ? "" : ", ").append(name);
        throw std::runtime_error(util::str_format(
            "[%1] was not saved in [%2], which has all below %3", root, options.saved, roots));
    }
}

StateOrigin OriginOf(const HostState& state) {
    return {state.host, state.readAt, state.roots};
}

Report GatherPlan(const Options& options, const CommandExecutor& executor) {
    SavedState saved = zfslib::restore::ReadSavedState(options.saved, options.RecordingLimit());
    CheckRoots(options, saved.state);
    const LiveState live =
        ReadExactly(executor, [&] { return ReadLiveState(saved.state, options.plan, executor); });
    return PlanReport{OriginOf(saved.state), OriginOf(live.state), std::move(saved.warnings),
                      MakePlan(saved.state, live, options.plan), options.withExitCode};
}

LocatedPath Locate(const std::string& path) {
    LocatedPath located;
    located.path = path;
    try {
        if (zfslib::IsZfsDataset(path)) {
            located.dataset = zfslib::GetDatasetForPath(path);
            located.pool = located.dataset.substr(0, located.dataset.find('/'));
        }
    } catch (const MissingTools&) {
        throw;
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

std::string ParentName(std::string_view name) {
    return std::string(Parent(name));
}

std::vector<DatasetEntry> OrderAsTree(const std::vector<std::vector<ZfsDataset>>& records,
                                      const std::string& root) {
    std::vector<Place> places = PlacesBelow(records, root);
    std::sort(places.begin(), places.end(),
              [](const Place& a, const Place& b) { return StandsBefore(a.name, b.name); });
    std::vector<DatasetEntry> entries;
    entries.reserve(places.size());
    for (const Place& place : places) {
        const std::string_view below = place.name.substr(root.size());
        const auto isDivider = [](char c) { return c == '/' || c == '@'; };
        const auto depth = std::count_if(below.begin(), below.end(), isDivider);
        std::string label = root;
        if (depth != 0) {
            const std::size_t divider = place.name.find_last_of("/@");
            label = place.name.substr(place.name[divider] == '@' ? divider : divider + 1);
        }
        entries.push_back({place.dataset, std::move(label), static_cast<std::size_t>(depth)});
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
    const auto noted = normalization.find(dataset.name);
    if (withProperties && !cannotBeSet && noted != normalization.end())
        add(shown.native, noted->second);
    for (const Property<std::string>& property : dataset.properties.userProperties)
        add(shown.user, property);
    std::sort(shown.user.begin(), shown.user.end(),
              [](const PropertyEntry& a, const PropertyEntry& b) { return a.name < b.name; });
    shown.quotas = SetQuotas(dataset.properties);
    return shown;
}

std::string Incompleteness(const Report& report) {
    if (const auto* pools = std::get_if<PoolsReport>(&report)) {
        const auto count = std::count_if(pools->pools.begin(), pools->pools.end(),
                                         [](const PoolEntry& pool) { return !pool.error.empty(); });
        if (count != 0)
            return util::str_format("%1 of %2 pools cannot be read", count, pools->pools.size());
    }
    if (const auto* locations = std::get_if<LocateReport>(&report)) {
        const auto& paths = locations->paths;
        const auto count = std::count_if(paths.begin(), paths.end(), [](const LocatedPath& path) {
            return path.dataset.empty();
        });
        if (count != 0)
            return util::str_format("%1 of %2 paths not found on ZFS", count, paths.size());
    }
    if (const auto* datasets = std::get_if<DatasetsReport>(&report))
        if (datasets->quotasTimedOut)
            return "quotas are missing because time was up";
    return {};
}

Report Gather(const Options& options, const CommandExecutor& executor) {
    switch (options.command) {
    case Command::Pools:
        return GatherPools(options, executor);
    case Command::Health:
        return GatherHealth(options, executor);
    case Command::Tools:
        return ToolsReport{FromRecordedAnswers(zfslib::IsZfsToolsInstalled)};
    case Command::Datasets:
        return GatherDatasets(options, executor);
    case Command::Volume:
        return GatherVolume(options, executor);
    case Command::Locate:
        return GatherLocations(options);
    case Command::Importable:
        return ImportableReport{zfslib::EnumerateZpool4Import(executor)};
    case Command::State:
        return GatherState(options, executor);
    case Command::Plan:
        return GatherPlan(options, executor);
    }
    throw std::logic_error("a command without a meaning");
}

} // namespace inspect
