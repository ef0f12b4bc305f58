#include "restore/HostStateReader.h"

#include "exc/exc.h"
#include "posix/CSimpleCmdExec.h"
#include "restore/LiveState.h"
#include "restore/internal/Names.h"
#include "restore/internal/PlanScope.h"
#include "restore/internal/PoolLayout.h"
#include "restore/internal/PoolReader.h"
#include "restore/internal/PoolsAround.h"
#include "restore/internal/PropertyRows.h"
#include "restore/internal/Reading.h"
#include "restore/internal/ToolTables.h"
#include "util/ShellWord.h"
#include "util/str.h"
#include "zfstools/logging.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

namespace zfslib::restore {
namespace {

using internal::IsWithin;
using internal::NumberOf;
using internal::ObjectRows;
using internal::PoolOf;
using internal::ReasonOf;
using internal::StateCommands;
using internal::StateMoved;
using internal::ValueOf;
using internal::WasRefused;
using util::ShellOperand;
using util::ShellWord;

std::string ShellWords(const std::vector<std::string_view>& names) {
    std::string words;
    for (const std::string_view name : names)
        words += " " + ShellWord(name);
    return words;
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
        : commands_(executor), texts_(std::make_shared<StateTexts>()) {}

    HostState Read(const std::vector<std::string>& roots) {
        if (roots.empty())
            throw exc::CRuntimeExc("There is nothing to read the state of.");
        std::for_each(roots.begin(), roots.end(), CheckRoot);
        ReadHost();
        ReadTools();
        state_.tools.hasReceived = KnowsReceived(roots.front(), true);
        state_.roots = roots;
        std::vector<std::string> tops = roots;
        std::sort(tops.begin(), tops.end(), ComesBefore);
        tops.erase(std::unique(tops.begin(), tops.end(),
                               [](const std::string& above, const std::string& name) {
                                   return IsWithin(name, above);
                               }),
                   tops.end());
        std::set<std::string, std::less<>> pools;
        for (const std::string& root : tops)
            pools.emplace(PoolOf(root));
        ReadPools(pools);
        ReadDatasets(tops);
        return std::move(state_);
    }

    LiveState ReadLive(const HostState& saved, const PlanOptions& options) {
        const std::vector<std::string> roots = internal::WantedRoots(saved, options);
        std::for_each(roots.begin(), roots.end(), CheckRoot);
        ReadHost();
        ReadTools();
        const std::vector<std::string> livePools = Lines("zpool list -H -o name");
        LiveState live;
        std::set<std::string, std::less<>> pools;
        std::set<std::string, std::less<>> above;
        for (const std::string& root : roots) {
            const std::string pool(PoolOf(root));
            const bool hasPool =
                std::find(livePools.begin(), livePools.end(), pool) != livePools.end();
            if (hasPool)
                pools.insert(pool);
            const bool isThere = hasPool && IsThere(root);
            (isThere ? state_.roots : live.missingRoots).push_back(root);
            if (hasPool && root != pool)
                above.insert(NearestAbove(root));
        }
        state_.tools.hasReceived =
            KnowsReceived(pools.empty() ? roots.front() : *pools.begin(), !pools.empty());
        for (const SnapshotState& snapshot : saved.snapshots)
            if (options.IsWanted(snapshot.name))
                snapshotsToFind_.insert(options.NewName(snapshot.name));
        ReadPools(pools);
        live.mounts = ReadMounts();
        for (const std::string& name : above)
            StateCommands::Repeat("what is set on", name,
                                  [&] { live.above.push_back(ReadAbove(name)); });
        SortByName(live.above);
        ReadDatasets(state_.roots);
        live.snapshots = std::move(snapshotsFound_);
        std::sort(live.snapshots.begin(), live.snapshots.end());
        ReadForPools(saved, options, livePools, live);
        live.state = std::move(state_);
        return live;
    }

private:
    void ReadPools(const std::set<std::string, std::less<>>& pools) {
        for (const std::string& pool : pools)
            StateCommands::Repeat("the pool", pool, [&] {
                state_.pools.push_back(internal::ReadPool(pool, state_.tools, commands_, *texts_));
            });
    }

    /// A line for each that is mounted: the name, padded, two blanks, and the path.
    std::map<std::string, std::string> ReadMounts() {
        std::map<std::string, std::string> mounts;
        try {
            for (const std::string& line : Lines("zfs mount")) {
                const std::size_t blanks = line.find("  /");
                if (blanks == std::string::npos)
                    continue; // the rest of a path with a newline in it
                const std::string name = line.substr(0, line.find_last_not_of(' ', blanks) + 1);
                const auto [known, isNew] = mounts.emplace(name, line.substr(blanks + 2));
                if (!isNew)
                    known->second.clear();
            }
        } catch (const std::exception& error) {
            if (!internal::WasRefused(error))
                throw;
            _log.warn("What is mounted is not known: %1", error.what());
        }
        return mounts;
    }

    /// What is below these, of which none is below another.
    void ReadDatasets(const std::vector<std::string>& roots) {
        for (const std::string& root : roots)
            StateCommands::Repeat("what is below", root, [&] { ReadRoot(root); });
        SortByName(state_.datasets);
        SortByName(state_.snapshots);
        ReadQuotas();
        ReadPermissions();
        state_.texts = texts_;
    }

    std::vector<std::string> Lines(const std::string& command) {
        const std::string text = commands_.Run(command);
        std::vector<std::string> lines;
        for (std::string_view rest = text; !rest.empty();)
            lines.emplace_back(util::ConsumeLine(rest));
        return lines;
    }

    /// Whether a dataset of an imported pool exists. All names of the pool are read, as what fails
    /// for one may be another thing than that it is missing.
    bool IsThere(const std::string& name) {
        const std::string pool(PoolOf(name));
        if (name == pool)
            return true;
        const auto [names, isNew] = namesThere_.try_emplace(pool);
        if (isNew) {
            const bool hasTypes = TakesOption(state_.tools.zfsUsage, "list", 't');
            for (std::string& line :
                 Lines(std::string("zfs list -rH ") + (hasTypes ? "-t filesystem,volume " : "") +
                       "-o name " + ShellWord(pool)))
                names->second.insert(std::move(line));
        }
        return names->second.count(name) != 0;
    }

    std::string NearestAbove(std::string name) {
        do
            name.resize(name.rfind('/'));
        while (!IsThere(name));
        return name;
    }

    DatasetState ReadAbove(const std::string& name) {
        const std::string skeleton = commands_.RunAgain(Get("-Hp", "name,property,source", name));
        std::vector<ObjectRows> rows = ReadRows(skeleton, "-Hp", name, ReadSetAbove(name));
        if (rows.size() != 1)
            throw StateMoved("it went away");
        return DatasetOf(std::move(rows.front()));
    }

    void ReadGuids(LiveState& live) {
        for (const std::string& line : Lines("zpool list -H -o guid,name")) {
            std::string_view rest = line;
            const std::string_view guid = NextCell(rest);
            live.poolsByGuid.emplace(guid, rest);
        }
    }

    /// What the plan has to know of pools that are missing.
    void ReadForPools(const HostState& saved, const PlanOptions& options,
                      const std::vector<std::string>& livePools, LiveState& live) {
        std::vector<std::string> words;
        for (const internal::WantedPool& pool : internal::WantedPools(saved, options)) {
            if (std::find(livePools.begin(), livePools.end(), pool.name) != livePools.end())
                continue;
            const std::string& system = state_.tools.system;
            if (words.empty()) {
                if (!livePools.empty())
                    ReadGuids(live);
                internal::AddImportablePools({}, commands_, live);
                if (TakesOption(state_.tools.zpoolUsage, "create", 'd'))
                    live.features = internal::ReadFeatures(commands_);
            }
            const internal::PoolLayout asSaved = internal::LayoutOf(*pool.saved, {}, system);
            if (const auto folders = internal::FoldersOf(asSaved); !folders.empty())
                internal::AddImportablePools(folders, commands_, live);
            for (const internal::LayoutGroup& group :
                 internal::LayoutOf(*pool.saved, options, system).groups)
                for (const internal::LayoutDisk& disk : group.disks)
                    if (!disk.word.empty() &&
                        std::find(words.begin(), words.end(), disk.word) == words.end())
                        words.push_back(disk.word);
        }
        if (!words.empty())
            live.disks = internal::ReadDisks(words, livePools, state_.tools, commands_);
    }

    void ReadHost() {
        const std::string names = commands_.Run("uname -snr");
        const std::vector<std::string> words = util::split(names);
        if (words.size() != 3)
            throw exc::CRuntimeExc("`uname -snr` answered [%1], not three words.", names);
        state_.tools.system = words[0];
        state_.host = words[1];
        state_.tools.release = words[2];
        const std::vector<std::string> date =
            util::split(commands_.Run("date -u +%Y-%m-%dT%H:%M:%SZ"));
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
            const std::string versions = commands_.Run("zfs version");
            const std::vector<std::string> words = util::split(versions);
            if (!words.empty())
                tools.version = words[0];
            if (words.size() > 1)
                tools.moduleVersion = words[1];
        }
    }

    /// No usage names the columns. Where there is no dataset to ask for, a tool that knows them
    /// says that, and does not complain of the way in which it was called.
    bool KnowsReceived(const std::string& dataset, bool isThere) {
        try {
            (void)commands_.Run("zfs get -Hp -o received type " + ShellWord(dataset));
            return true;
        } catch (const std::exception& error) {
            if (!WasRefused(error))
                exc::RegenExc("Cannot read [%1]", dataset);
            constexpr int wrongUse = 2;
            const auto* failure = dynamic_cast<const posix::CCommandFailure*>(&error);
            if (!isThere && failure != nullptr && failure->GetCode() != wrongUse)
                return true;
            _log.info("`zfs get` knows no received values: %1", error.what());
            return false;
        }
    }

    template <typename Table>
    Table ReadSelf(const std::string& command, Table (*read)(std::string_view)) {
        const std::string text = commands_.Run(command + " 2>&1 || :");
        Table table = read(text);
        if (table.empty())
            throw exc::CRuntimeExc("`%1` does not say how it is used: [%2].", command,
                                   text.substr(0, 200));
        return table;
    }

    static std::string Get(const std::string& options, const std::string& columns,
                           const std::string& name) {
        return "zfs get " + options + " -o " + columns + " all " + ShellWord(name);
    }

    /// What the datasets above one set for it.
    internal::SetAbove ReadSetAbove(const std::string& name) {
        const auto ancestors = Ancestors(name);
        if (ancestors.empty())
            return {};
        return internal::ReadSetAbove(
            commands_.RunAgain("zfs get -Hp -o name,property,source all" + ShellWords(ancestors)));
    }

    /// The rows of a root's datasets or snapshots; `skeleton` was read just before.
    std::vector<ObjectRows> ReadRows(const std::string& skeleton, const std::string& options,
                                     const std::string& root, const internal::SetAbove& above) {
        const std::string columns = state_.tools.hasReceived ? "name,property,value,received,source"
                                                             : "name,property,value,source";
        const std::string_view values =
            texts_->Keep(commands_.RunAgain(Get(options, columns, root)));
        const auto ask = [&](std::string_view object, std::string_view property,
                             std::string_view column) {
            std::string line = "zfs get -Hp -o ";
            line.append(column).append(" ").append(ShellOperand(property)).append(" ") +=
                ShellWord(object);
            return commands_.RunAgain(line);
        };
        return internal::ReadPropertyRows(skeleton, values, state_.tools.hasReceived, ask, above,
                                          *texts_);
    }

    void ReadRoot(const std::string& root) {
        const bool hasTypes = state_.tools.hasTypeOption;
        const std::string datasets = hasTypes ? "-rHp -t filesystem,volume" : "-rHp";
        const std::string skeleton = commands_.Run(Get(datasets, "name,property,source", root));
        const internal::SetAbove above = ReadSetAbove(root);
        std::vector<ObjectRows> rows = ReadRows(skeleton, datasets, root, above);
        std::vector<ObjectRows> snapshotRows;
        if (hasTypes) {
            const std::string set = "-rHp -t snapshot -s local,received";
            const std::string setThere = commands_.RunAgain(Get(set, "name,property,source", root));
            if (!setThere.empty())
                snapshotRows = ReadRows(setThere, set, root, {});
        }
        std::map<std::string_view, SnapshotState, std::less<>> snapshots;
        const std::vector<std::string> found = ReadHolds(root, snapshots);
        const std::string moves = internal::DescribeMoves(
            skeleton, commands_.RunAgain(Get(datasets, "name,property,source", root)));
        if (!moves.empty())
            throw StateMoved(moves);
        for (ObjectRows& object : rows)
            if (object.name.find_first_of("@#") == std::string_view::npos)
                state_.datasets.push_back(DatasetOf(std::move(object)));
            else
                AddUserProperties(object, snapshots);
        for (const ObjectRows& object : snapshotRows)
            AddUserProperties(object, snapshots);
        for (auto& [name, snapshot] : snapshots)
            state_.snapshots.push_back(std::move(snapshot));
        snapshotsFound_.insert(snapshotsFound_.end(), found.begin(), found.end());
    }

    static DatasetState DatasetOf(ObjectRows&& object) {
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
        return dataset;
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

    /// Returns those that are to be found.
    std::vector<std::string>
    ReadHolds(const std::string& root,
              std::map<std::string_view, SnapshotState, std::less<>>& snapshots) {
        std::vector<std::string> found;
        const std::string counts =
            commands_.RunAgain("zfs list -rH -t snapshot -o name,userrefs " + ShellWord(root));
        std::vector<std::pair<std::string_view, std::uint64_t>> held;
        std::string_view rest = counts;
        while (!rest.empty()) {
            std::string_view line = util::ConsumeLine(rest);
            const std::string_view name = NextCell(line);
            if (snapshotsToFind_.find(name) != snapshotsToFind_.end())
                found.emplace_back(name);
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
            const std::string text = commands_.RunAgain("zfs holds -H" + ShellWords(names));
            if (!AddHolds(text,
                          {held.begin() + static_cast<std::ptrdiff_t>(first),
                           held.begin() + static_cast<std::ptrdiff_t>(last)},
                          snapshots))
                for (std::size_t i = first; i < last; ++i)
                    ReadHoldsAlone(held[i], snapshots);
            first = last;
        }
        return found;
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
        const std::string text = commands_.RunAgain("zfs holds -H " + ShellWord(held.first));
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
        AddQuotas(commands_.Run("zfs userspace -Hpn -t all -o " + columns + name), dataset);
        if (state_.tools.hasProjectQuotas)
            AddQuotas(commands_.Run("zfs projectspace -Hp -o " + columns + name), dataset);
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
        const std::string answer = commands_.Run(
            "zfs get -Hp -o value,source " + ShellWord(property) + " " + ShellWord(dataset.name));
        std::string_view line = answer;
        const std::string_view value = NextCell(line);
        return NumberOf(value).value_or(0) != 0 && !util::str_is_starts_with(line, "default");
    }

    /// `zfs allow` tells of a dataset and of all above it: those without children tell of all.
    void ReadPermissions() {
        std::vector<DatasetState>& datasets = state_.datasets;
        std::vector<bool> isTold(datasets.size(), false);
        for (std::size_t i = 0; i < datasets.size(); ++i) {
            if (i + 1 < datasets.size() && IsWithin(datasets[i + 1].name, datasets[i].name))
                continue;
            try {
                AddPermissions(
                    texts_->Keep(commands_.Run("zfs allow " + ShellWord(datasets[i].name))));
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

    StateCommands commands_;
    std::shared_ptr<StateTexts> texts_;
    HostState state_;
    std::map<std::string, std::set<std::string>> namesThere_; ///< by the pool
    std::set<std::string, std::less<>> snapshotsToFind_;
    std::vector<std::string> snapshotsFound_;
};

} // namespace

HostState ReadHostState(const std::vector<std::string>& roots, const CommandExecutor& executor) {
    return Reader(executor).Read(roots);
}

LiveState ReadLiveState(const HostState& saved, const PlanOptions& options,
                        const CommandExecutor& executor) {
    return Reader(executor).ReadLive(saved, options);
}

} // namespace zfslib::restore
