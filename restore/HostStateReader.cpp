#include "restore/HostStateReader.h"

#include "exc/exc.h"
#include "posix/CSimpleCmdExec.h"
#include "restore/internal/PoolDevices.h"
#include "restore/internal/PropertyRows.h"
#include "restore/internal/ToolTables.h"
#include "util/ShellWord.h"
#include "util/str.h"
#include "zfstools/logging.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace zfslib::restore {
namespace {

using internal::ObjectRows;
using internal::StateMoved;
using util::ShellWord;

std::string ShellWords(const std::vector<std::string_view>& names) {
    std::string words;
    for (const std::string_view name : names)
        words += " " + ShellWord(name);
    return words;
}

/// Whether a command was run and refused, so that what it was to read may have gone; other failures
/// (a time-out, a tool that is missing) are not mended by going on.
bool WasRefused(const std::exception& error) {
    const auto* failure = dynamic_cast<const posix::CCommandFailure*>(&error);
    return failure == nullptr || failure->GetKind() == posix::CCommandFailure::Kind::ExitStatus;
}

/// What the tool said about a failure, on one line.
std::string ReasonOf(const std::exception& error) {
    const auto* failure = dynamic_cast<const posix::CCommandFailure*>(&error);
    std::string reason = failure != nullptr && !failure->GetErrorText().empty()
                             ? failure->GetErrorText()
                             : error.what();
    while (!reason.empty() && util::IsSpace(reason.back()))
        reason.pop_back();
    std::replace(reason.begin(), reason.end(), '\n', ' ');
    return reason;
}

std::string_view PoolOf(std::string_view dataset) {
    return dataset.substr(0, dataset.find('/'));
}

bool IsBelow(std::string_view name, std::string_view ancestor) {
    return name.size() > ancestor.size() && name[ancestor.size()] == '/' &&
           util::str_is_starts_with(name, ancestor);
}

void CheckRoot(std::string_view root) {
    if (root.empty() || root.front() == '-' || root.front() == '/' ||
        root.find_first_of("@#%") != std::string_view::npos ||
        std::any_of(root.begin(), root.end(),
                    [](char c) { return c != ' ' && (util::IsSpace(c) || c == '\0'); }))
        throw exc::CRuntimeExc("[%1] is no name of a pool, file system or volume.", root);
}

/// The datasets above one, the pool first.
std::vector<std::string_view> Ancestors(std::string_view name) {
    std::vector<std::string_view> ancestors;
    for (std::size_t slash = name.find('/'); slash != std::string_view::npos;
         slash = name.find('/', slash + 1))
        ancestors.push_back(name.substr(0, slash));
    return ancestors;
}

/// The value of a property that is "-" when there is nothing.
std::string_view ValueOf(const std::vector<PropertyValue>& properties, std::string_view name) {
    const PropertyValue* property = FindProperty(properties, name);
    return property == nullptr || property->Value() == "-" ? std::string_view() : property->Value();
}

std::optional<std::uint64_t> NumberOf(std::string_view text) {
    std::uint64_t number = 0;
    const auto end = std::from_chars(text.data(), text.data() + text.size(), number);
    if (end.ec != std::errc() || end.ptr != text.data() + text.size())
        return std::nullopt;
    return number;
}

/// The next cell of a line, up to a tab or its end.
std::string_view NextCell(std::string_view& line) {
    const std::string_view cell = line.substr(0, line.find('\t'));
    line.remove_prefix(std::min(cell.size() + 1, line.size()));
    return cell;
}

/// Reads a state, part by part.
class Reader {
public:
    explicit Reader(const CommandExecutor& executor)
        : executor_(executor), texts_(std::make_shared<StateTexts>()) {}

    HostState Read(const std::vector<std::string>& roots) {
        if (roots.empty())
            throw exc::CRuntimeExc("There is nothing to read the state of.");
        std::for_each(roots.begin(), roots.end(), CheckRoot);
        state_.roots = roots;
        ReadHost();
        ReadTools();
        state_.tools.hasReceived = KnowsReceived(roots.front());
        std::vector<std::string> tops = roots;
        std::sort(tops.begin(), tops.end(), ComesBefore);
        tops.erase(std::unique(tops.begin(), tops.end(),
                               [](const std::string& above, const std::string& name) {
                                   return name == above || IsBelow(name, above);
                               }),
                   tops.end());
        std::set<std::string, std::less<>> pools;
        for (const std::string& root : tops)
            pools.emplace(PoolOf(root));
        for (const std::string& pool : pools)
            Repeat("the pool", pool, [&] { ReadPool(pool); });
        for (const std::string& root : tops)
            Repeat("what is below", root, [&] { ReadRoot(root); });
        SortByName(state_.datasets);
        SortByName(state_.snapshots);
        ReadQuotas();
        ReadPermissions();
        state_.texts = texts_;
        return std::move(state_);
    }

private:
    std::string Run(const std::string& command) {
        const std::string line = "/usr/bin/env -i " + command;
        _log.dbg("Execute command: [%1]", line);
        return executor_(line);
    }

    /// Runs `read` until nothing moved meanwhile.
    template <typename ReadPart>
    void Repeat(std::string_view what, const std::string& name, ReadPart&& read) {
        constexpr int attempts = 3;
        for (int attempt = 1;; ++attempt) {
            try {
                read();
                return;
            } catch (const StateMoved& moved) {
                _log.info("State of [%1] moved: %2", name, moved.what());
                if (attempt == attempts)
                    throw exc::CRuntimeExc("Cannot read %1 [%2]: it changed each of %3 times: %4.",
                                           what, name, attempts, moved.what());
            } catch (const std::exception&) {
                exc::RegenExc("Cannot read %1 [%2]", what, name);
            }
        }
    }

    /// Runs a command on what was there a moment ago.
    std::string RunAgain(const std::string& command) {
        try {
            return Run(command);
        } catch (const std::exception& error) {
            if (!WasRefused(error))
                throw;
            throw StateMoved(ReasonOf(error));
        }
    }

    void ReadHost() {
        const std::string names = Run("uname -snr");
        const std::vector<std::string> words = util::split(names);
        if (words.size() != 3)
            throw exc::CRuntimeExc("`uname -snr` answered [%1], not three words.", names);
        state_.tools.system = words[0];
        state_.host = words[1];
        state_.tools.release = words[2];
        const std::vector<std::string> date = util::split(Run("date -u +%Y-%m-%dT%H:%M:%SZ"));
        state_.readAt = date.empty() ? std::string() : date.front();
    }

    void ReadTools() {
        ToolsState& tools = state_.tools;
        // Called so, they refuse and explain themselves.
        tools.zfsUsage = ReadSelf<CommandUsages>("zfs", internal::ReadUsages);
        tools.zpoolUsage = ReadSelf<CommandUsages>("zpool", internal::ReadUsages);
        tools.datasetProperties = ReadSelf<PropertyRules>("zfs get", internal::ReadPropertyTable);
        tools.poolProperties = ReadSelf<PropertyRules>("zpool get", internal::ReadPropertyTable);
        tools.hasTypeOption = TakesOption(tools.zfsUsage, "get", 't');
        tools.hasObjectQuotas = FindRule(tools.datasetProperties, "userobjquota@") != nullptr;
        tools.hasProjectQuotas = FindRule(tools.datasetProperties, "projectquota@") != nullptr;
        if (tools.zfsUsage.find("version") != tools.zfsUsage.end()) {
            const std::string versions = Run("zfs version");
            const std::vector<std::string> words = util::split(versions);
            if (!words.empty())
                tools.version = words[0];
            if (words.size() > 1)
                tools.moduleVersion = words[1];
        }
    }

    /// No usage names the columns.
    bool KnowsReceived(const std::string& dataset) {
        try {
            Run("zfs get -Hp -o received type " + ShellWord(dataset));
            return true;
        } catch (const std::exception& error) {
            if (!WasRefused(error))
                exc::RegenExc("Cannot read [%1]", dataset);
            _log.info("`zfs get` knows no received values: %1", error.what());
            return false;
        }
    }

    template <typename Table>
    Table ReadSelf(const std::string& command, Table (*read)(std::string_view)) {
        const std::string text = Run(command + " 2>&1 || :");
        Table table = read(text);
        if (table.empty())
            throw exc::CRuntimeExc("`%1` does not say how it is used: [%2].", command,
                                   text.substr(0, 200));
        return table;
    }

    /// Rows of `zpool get`, with the skeleton read first.
    std::vector<ObjectRows> ReadPoolRows(const std::string& pool, const std::string& operands) {
        const std::string skeleton = Run("zpool get -Hp -o name,property,source all" + operands);
        const std::string_view values =
            texts_->Keep(RunAgain("zpool get -Hp -o name,property,value,source all" + operands));
        const auto ask = [&](std::string_view object, std::string_view property,
                             std::string_view column) {
            std::string line = "zpool get -Hp -o ";
            line.append(column).append(" ").append(ShellWord(property)).append(" ") +=
                ShellWord(pool);
            if (object != pool)
                line += " " + ShellWord(object);
            return RunAgain(line);
        };
        return internal::ReadPropertyRows(skeleton, values, false, ask, {}, *texts_);
    }

    void ReadPool(const std::string& name) {
        PoolState pool;
        pool.name = texts_->Keep(name);
        const CommandUsages& usages = state_.tools.zpoolUsage;
        if (TakesOption(usages, "get", 'H') && TakesOption(usages, "get", 'p')) {
            std::vector<ObjectRows> rows = ReadPoolRows(name, " " + ShellWord(name));
            if (rows.size() != 1)
                throw StateMoved("the pool went away");
            pool.properties = std::move(rows.front().properties);
        } else {
            pool.properties = ReadPaddedProperties(name);
        }
        pool.guid = ValueOf(pool.properties, "guid");
        pool.altroot = ValueOf(pool.properties, "altroot");
        pool.health = ValueOf(pool.properties, "health");
        ReadPoolDevices(pool);
        if (pool.health != "ONLINE" && pool.health != "DEGRADED")
            pool.doubts.push_back("the pool is " + std::string(pool.health) +
                                  ": properties that show \"-\" may have been set");
        state_.pools.push_back(std::move(pool));
    }

    /// `zpool get all` of a tool that pads columns with blanks: the pool, the property, the value,
    /// which may have blanks in it, and the source.
    std::vector<PropertyValue> ReadPaddedProperties(const std::string& pool) {
        const std::string text = Run("zpool get all " + ShellWord(pool));
        std::vector<PropertyValue> properties;
        std::string_view rest = text;
        while (!rest.empty()) {
            std::string_view line = util::ConsumeLine(rest);
            if (!util::str_is_starts_with(line, pool + " "))
                continue;
            line.remove_prefix(pool.size());
            const std::string_view property = util::ConsumeWord(line);
            const std::size_t end = line.find_last_not_of(' ');
            const std::size_t blank = line.find_last_of(' ', end);
            if (property.empty() || end == std::string_view::npos ||
                blank == std::string_view::npos)
                throw exc::CRuntimeExc("Cannot read the line [%1] of `zpool get all`.", line);
            const std::string_view source = line.substr(blank + 1, end - blank);
            std::string_view value = line.substr(0, blank);
            value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
            value = value.substr(0, value.find_last_not_of(' ') + 1);
            const PropertySource kind = source == "local"     ? PropertySource::Local
                                        : source == "default" ? PropertySource::Default
                                                              : PropertySource::None;
            properties.push_back(texts_->Make(property, value, std::nullopt, texts_->Origin(kind)));
        }
        return properties;
    }

    void ReadPoolDevices(PoolState& pool) {
        const CommandUsages& usages = state_.tools.zpoolUsage;
        const std::string name(pool.name);
        const auto status = [&](char option) {
            if (option != '\0' && !TakesOption(usages, "status", option))
                return std::string();
            const std::string words = option == '\0' ? std::string() : std::string(" -") + option;
            return Run("zpool status" + words + " " + ShellWord(name));
        };
        const std::string byName = status('\0');
        const std::string byPath = status('P');
        const std::string byGuid = status('g');
        pool.devices = internal::ReadDevices(internal::ReadStatusRows(byName),
                                             internal::ReadStatusRows(byPath),
                                             internal::ReadStatusRows(byGuid), state_.tools.system);
        if (state_.tools.AtLeast(2, 2))
            ReadDeviceProperties(name, pool.devices);
        NoteDevices(pool.devices, pool.doubts);
    }

    void ReadDeviceProperties(const std::string& pool, std::vector<Device>& devices) {
        std::unordered_map<std::string_view, const ObjectRows*> byGuid;
        const std::vector<ObjectRows> rows =
            ReadPoolRows(pool, " " + ShellWord(pool) + " all-vdevs");
        for (const ObjectRows& device : rows)
            byGuid.emplace(ValueOf(device.properties, "guid"), &device);
        Complete(devices, byGuid, true);
    }

    static void Complete(std::vector<Device>& devices,
                         const std::unordered_map<std::string_view, const ObjectRows*>& byGuid,
                         bool areTopLevel) {
        for (Device& device : devices) {
            Complete(device.children, byGuid, false);
            const auto found = byGuid.find(device.guid);
            if (device.guid.empty() || found == byGuid.end())
                continue; // spares and caches have none
            const std::vector<PropertyValue>& properties = found->second->properties;
            device.deviceId = ValueOf(properties, "devid");
            device.physicalPath = ValueOf(properties, "physpath");
            const auto ashift = NumberOf(ValueOf(properties, "ashift"));
            if (areTopLevel && ashift.value_or(0) != 0)
                device.ashift = static_cast<unsigned>(*ashift);
            // The tool calls local what the pool notes of itself, too.
            for (const PropertyValue& property : properties)
                if (property.Source() == PropertySource::Local &&
                    property.Name() != "org.zfsonlinux:allocation_bias")
                    device.properties.push_back(property);
        }
    }

    /// What is of the moment, and not how the pool is meant to be.
    static void NoteDevices(const std::vector<Device>& devices, std::vector<std::string>& doubts) {
        for (const Device& device : devices) {
            NoteDevices(device.children, doubts);
            if (device.kind == Device::Kind::Replacing)
                doubts.push_back("a device is being replaced: " + device.name);
            else if (device.kind == Device::Kind::Spare)
                doubts.push_back("a spare stands in for a device: " + device.name);
            else if (device.children.empty() && device.state != "ONLINE" &&
                     device.state != "AVAIL" && device.state != "INUSE" && !device.state.empty())
                doubts.push_back(device.name + " is " + device.state);
        }
    }

    /// `zfs get` with options before the operand, which is one dataset and all below.
    std::string GetBelow(const std::string& options, const std::string& columns,
                         const std::string& root) {
        return "zfs get -rHp" + options + " -o " + columns + " all " + ShellWord(root);
    }

    /// The rows of a root's datasets or snapshots; `skeleton` was read just before.
    std::vector<ObjectRows> ReadRows(const std::string& skeleton, const std::string& options,
                                     const std::string& root, const internal::SetAbove& above) {
        const std::string columns = state_.tools.hasReceived ? "name,property,value,received,source"
                                                             : "name,property,value,source";
        const std::string_view values = texts_->Keep(RunAgain(GetBelow(options, columns, root)));
        const auto ask = [&](std::string_view object, std::string_view property,
                             std::string_view column) {
            std::string line = "zfs get -Hp -o ";
            line.append(column).append(" ").append(ShellWord(property)).append(" ") +=
                ShellWord(object);
            return RunAgain(line);
        };
        return internal::ReadPropertyRows(skeleton, values, state_.tools.hasReceived, ask, above,
                                          *texts_);
    }

    void ReadRoot(const std::string& root) {
        const bool hasTypes = state_.tools.hasTypeOption;
        const std::string datasets = hasTypes ? " -t filesystem,volume" : "";
        const std::string skeleton = Run(GetBelow(datasets, "name,property,source", root));
        internal::SetAbove above;
        if (const auto ancestors = Ancestors(root); !ancestors.empty())
            above = internal::ReadSetAbove(
                RunAgain("zfs get -Hp -o name,property,source all" + ShellWords(ancestors)));
        std::vector<ObjectRows> rows = ReadRows(skeleton, datasets, root, above);
        std::vector<ObjectRows> snapshotRows;
        if (hasTypes) {
            const std::string set = " -t snapshot -s local,received";
            const std::string setThere = RunAgain(GetBelow(set, "name,property,source", root));
            if (!setThere.empty())
                snapshotRows = ReadRows(setThere, set, root, {});
        }
        std::map<std::string_view, SnapshotState, std::less<>> snapshots;
        ReadHolds(root, snapshots);
        const std::string moves = internal::DescribeMoves(
            skeleton, RunAgain(GetBelow(datasets, "name,property,source", root)));
        if (!moves.empty())
            throw StateMoved(moves);
        for (ObjectRows& object : rows)
            if (object.name.find_first_of("@#") == std::string_view::npos)
                AddDataset(std::move(object));
            else
                AddUserProperties(object, snapshots);
        for (const ObjectRows& object : snapshotRows)
            AddUserProperties(object, snapshots);
        for (auto& [name, snapshot] : snapshots)
            state_.snapshots.push_back(std::move(snapshot));
    }

    void AddDataset(ObjectRows&& object) {
        const auto value = [&](std::string_view name) { return ValueOf(object.properties, name); };
        DatasetState dataset;
        dataset.name = object.name;
        const std::string_view type = value("type");
        if (type != "filesystem" && type != "volume")
            throw exc::CRuntimeExc("[%1] is of the unknown type [%2].", object.name, type);
        dataset.type =
            type == "volume" ? DatasetState::Type::Volume : DatasetState::Type::Filesystem;
        dataset.guid = value("guid");
        dataset.origin = value("origin");
        dataset.encryptionRoot = value("encryptionroot");
        dataset.isMounted = value("mounted") == "yes";
        dataset.properties = std::move(object.properties);
        state_.datasets.push_back(std::move(dataset));
    }

    static SnapshotState&
    SnapshotOf(std::string_view name,
               std::map<std::string_view, SnapshotState, std::less<>>& snapshots) {
        SnapshotState& snapshot = snapshots[name];
        snapshot.name = name;
        return snapshot;
    }

    /// What was set on a snapshot; its volume's size, which tools call local, was not.
    static void
    AddUserProperties(const ObjectRows& object,
                      std::map<std::string_view, SnapshotState, std::less<>>& snapshots) {
        for (const PropertyValue& property : object.properties)
            if (property.IsUser() && (property.Source() == PropertySource::Local ||
                                      property.Source() == PropertySource::Received))
                SnapshotOf(object.name, snapshots).userProperties.push_back(property);
    }

    void ReadHolds(const std::string& root,
                   std::map<std::string_view, SnapshotState, std::less<>>& snapshots) {
        const std::string counts =
            RunAgain("zfs list -rH -t snapshot -o name,userrefs " + ShellWord(root));
        std::vector<std::pair<std::string_view, std::uint64_t>> held;
        std::string_view rest = counts;
        while (!rest.empty()) {
            std::string_view line = util::ConsumeLine(rest);
            const std::string_view name = NextCell(line);
            if (const auto count = NumberOf(line); count.value_or(0) != 0)
                held.emplace_back(name, *count);
        }
        for (std::size_t first = 0; first < held.size();) {
            constexpr std::size_t commandSize = 32768; // one argument of a shell may be 128 KiB
            std::vector<std::string_view> names;
            std::size_t size = 0;
            std::size_t last = first;
            for (; last < held.size() && size < commandSize; ++last) {
                names.push_back(held[last].first);
                size += held[last].first.size() + 3;
            }
            const std::string text = RunAgain("zfs holds -H" + ShellWords(names));
            if (!AddHolds(text,
                          {held.begin() + static_cast<std::ptrdiff_t>(first),
                           held.begin() + static_cast<std::ptrdiff_t>(last)},
                          snapshots))
                for (std::size_t i = first; i < last; ++i)
                    ReadHoldsAlone(held[i], snapshots);
            first = last;
        }
    }

    using Held = std::pair<std::string_view, std::uint64_t>;

    /// Adds the holds of these snapshots; false, and nothing added, when a tag may hold a tab or a
    /// newline: then there are other lines than each of them has holds.
    bool AddHolds(const std::string& text, const std::vector<Held>& held,
                  std::map<std::string_view, SnapshotState, std::less<>>& snapshots) {
        std::map<std::string_view, std::vector<std::string>, std::less<>> tags;
        std::string_view rest = text;
        while (!rest.empty()) {
            std::string_view line = util::ConsumeLine(rest);
            const std::string_view name = NextCell(line);
            const std::string_view tag = NextCell(line);
            if (line.empty() || line.find('\t') != std::string_view::npos)
                return false;
            tags[name].emplace_back(tag);
        }
        if (tags.size() != held.size())
            return false;
        for (const auto& [name, count] : held)
            if (const auto found = tags.find(name);
                found == tags.end() || found->second.size() != count)
                return false;
        for (auto& [name, list] : tags) {
            std::sort(list.begin(), list.end());
            SnapshotOf(texts_->Keep(std::string(name)), snapshots).holds = std::move(list);
        }
        return true;
    }

    void ReadHoldsAlone(const Held& held,
                        std::map<std::string_view, SnapshotState, std::less<>>& snapshots) {
        const std::string text = RunAgain("zfs holds -H " + ShellWord(held.first));
        if (!AddHolds(text, {held}, snapshots))
            SnapshotOf(texts_->Keep(std::string(held.first)), snapshots).holdsDoubt =
                "a tag holds a tab or a newline";
    }

    void ReadQuotas() {
        for (DatasetState& dataset : state_.datasets) {
            if (dataset.type != DatasetState::Type::Filesystem)
                continue;
            if (ValueOf(dataset.properties, "keystatus") == "unavailable") {
                dataset.quotasDoubt = "its key is not loaded";
                continue;
            }
            try {
                ReadQuotas(dataset);
            } catch (const std::exception& error) {
                if (!WasRefused(error))
                    exc::RegenExc("Cannot read the quotas of [%1]", dataset.name);
                dataset.quotas.clear();
                dataset.quotasDoubt = ReasonOf(error);
            }
        }
    }

    void ReadQuotas(DatasetState& dataset) {
        const std::string columns =
            state_.tools.hasObjectQuotas ? "type,name,quota,objquota " : "type,name,quota ";
        const std::string name = ShellWord(dataset.name);
        AddQuotas(Run("zfs userspace -Hpn -t all -o " + columns + name), dataset);
        if (state_.tools.hasProjectQuotas)
            AddQuotas(Run("zfs projectspace -Hp -o " + columns + name), dataset);
    }

    void AddQuotas(const std::string& text, DatasetState& dataset) {
        std::string_view rest = text;
        while (!rest.empty()) {
            const std::string_view whole = util::ConsumeLine(rest);
            std::string_view line = whole;
            const std::string_view type = NextCell(line);
            Quota quota;
            if (util::str_is_finishes_with(type, "User"))
                quota.owner = Quota::Owner::User;
            else if (util::str_is_finishes_with(type, "Group"))
                quota.owner = Quota::Owner::Group;
            else if (type == "Project")
                quota.owner = Quota::Owner::Project;
            else
                throw exc::CRuntimeExc("Cannot read the row [%1] of quotas.", whole);
            quota.id = NextCell(line);
            for (quota.isOfObjects = false; !line.empty(); quota.isOfObjects = true) {
                const std::string_view limit = NextCell(line);
                quota.limit = 0;
                if (limit != "-" && limit != "none") {
                    const auto number = NumberOf(limit);
                    if (!number)
                        throw exc::CRuntimeExc("Cannot read the row [%1] of quotas.", whole);
                    quota.limit = *number;
                }
                if (quota.limit != 0 && IsOwn(quota, dataset))
                    dataset.quotas.push_back(quota);
            }
        }
    }

    /// Whether a quota was set for its owner: a limit that is the default's may only show that.
    bool IsOwn(const Quota& quota, const DatasetState& dataset) {
        const std::string property = quota.PropertyName();
        const std::string defaultProperty = "default" + property.substr(0, property.find('@'));
        const auto limit = NumberOf(ValueOf(dataset.properties, defaultProperty));
        if (limit != quota.limit)
            return true;
        const std::string answer = Run("zfs get -Hp -o value,source " + ShellWord(property) + " " +
                                       ShellWord(dataset.name));
        std::string_view line = answer;
        const std::string_view value = NextCell(line);
        return NumberOf(value).value_or(0) != 0 && !util::str_is_starts_with(line, "default");
    }

    /// `zfs allow` tells of a dataset and of all above it: those without children tell of all.
    void ReadPermissions() {
        std::vector<DatasetState>& datasets = state_.datasets;
        std::vector<bool> isTold(datasets.size(), false);
        for (std::size_t i = 0; i < datasets.size(); ++i) {
            if (i + 1 < datasets.size() && IsBelow(datasets[i + 1].name, datasets[i].name))
                continue;
            try {
                AddPermissions(texts_->Keep(Run("zfs allow " + ShellWord(datasets[i].name))));
            } catch (const std::exception& error) {
                if (!WasRefused(error))
                    exc::RegenExc("Cannot read the permissions on [%1]", datasets[i].name);
                datasets[i].permissionsDoubt = ReasonOf(error);
                continue;
            }
            isTold[i] = true;
            for (const std::string_view name : Ancestors(datasets[i].name))
                if (const DatasetState* ancestor = state_.FindDataset(name))
                    isTold[static_cast<std::size_t>(ancestor - datasets.data())] = true;
        }
        for (std::size_t i = 0; i < datasets.size(); ++i)
            if (!isTold[i] && datasets[i].permissionsDoubt.empty())
                datasets[i].permissionsDoubt = "they could not be read of any dataset below";
    }

    /// The sections of an output each stand behind "---- Permissions on NAME ---".
    void AddPermissions(std::string_view text) {
        constexpr std::string_view head = "---- Permissions on ";
        while (!text.empty()) {
            const std::string_view section = text;
            std::string_view line = util::ConsumeLine(text);
            while (!text.empty() && !util::str_is_starts_with(text, head))
                util::ConsumeLine(text);
            if (!util::str_is_starts_with(line, head))
                continue;
            line.remove_prefix(head.size());
            line = line.substr(0, line.find_last_not_of('-') + 1); // ends in a blank
            if (line.empty() || line.back() != ' ')
                continue;
            line.remove_suffix(1);
            if (const DatasetState* dataset = state_.FindDataset(line))
                state_.datasets[static_cast<std::size_t>(dataset - state_.datasets.data())]
                    .permissions = section.substr(0, section.size() - text.size());
        }
    }

    template <typename Item>
    static void SortByName(std::vector<Item>& items) {
        const auto comesBefore = [](const Item& a, const Item& b) {
            return ComesBefore(a.name, b.name);
        };
        if (!std::is_sorted(items.begin(), items.end(), comesBefore))
            std::sort(items.begin(), items.end(), comesBefore);
    }

    const CommandExecutor& executor_;
    std::shared_ptr<StateTexts> texts_;
    HostState state_;
};

} // namespace

HostState ReadHostState(const std::vector<std::string>& roots, const CommandExecutor& executor) {
    return Reader(executor).Read(roots);
}

} // namespace zfslib::restore
