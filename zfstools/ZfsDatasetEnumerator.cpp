#include "zfstools/ZfsDatasetEnumerator.h"

#include "exc/exc.h"
#include "posix/CUserInfo.h"
#include "system/CRecoveryIsoDetector.h"
#include "util/internal/NeverDestroyed.h"
#include "util/str.h"
#include "zfstools/TextTable.h"
#include "zfstools/Util.h"
#include "zfstools/internal/GetRow.h"
#include "zfstools/logging.h"

#include <algorithm>
#include <iterator>
#include <new>
#include <stdexcept>
#include <string_view>
#include <unordered_map>

namespace zfslib {
namespace {

using Node = ZfsDatasetEnumerator::Node;

bool HasWord(std::string_view text) {
    return !util::ConsumeWord(text).empty();
}

std::size_t CountRows(std::string_view text) {
    std::size_t rows = 0;
    while (!text.empty())
        rows += HasWord(util::ConsumeLine(text)) ? 1 : 0;
    return rows;
}

/// The path of a dataset below its pool: for pool/a/b@x the components a, b and @x.
std::vector<std::string> PathBelowPool(const std::string& name) {
    if (name.empty())
        throw std::runtime_error("Incorrect zfs filesystem name: " + name);
    std::vector<std::string> path;
    std::size_t begin = 0;
    for (std::size_t slash = name.find('/'); slash != std::string::npos;
         slash = name.find('/', begin)) {
        path.push_back(name.substr(begin, slash - begin));
        begin = slash + 1;
    }
    const std::string last = name.substr(begin);
    const std::size_t at = last.find('@');
    path.push_back(last.substr(0, at));
    if (at != std::string::npos)
        path.push_back(last.substr(at));
    path.erase(path.begin());
    return path;
}

/// Hangs a node at the end of its path, or where the path first leaves the tree; a node whose
/// whole path is there already is dropped.
void Insert(Node& root, const std::vector<std::string>& path, ZfsDataset&& dataset) {
    Node* node = &root;
    for (const std::string& component : path) {
        const auto child = node->children.find(component);
        if (child == node->children.end()) {
            node->children.emplace(component, std::make_shared<Node>(std::move(dataset)));
            return;
        }
        node = child->second.get();
    }
}

/// Stores what a row of `zfs list` tells.
void SetListColumns(ZfsDataset& dataset, const std::string& name, const std::string& avail,
                    const std::string& used, const std::string& usedrefreserv) {
    dataset.name = name;
    _log.dbg("Try to parse dataset values for dataset: %1:%2 %3 %4", name, avail, used,
             usedrefreserv);
    dataset.avail = ParseSpaceValue(avail);
    dataset.used = ParseSpaceValue(used);
    dataset.usedrefreserv = ParseSpaceValue(usedrefreserv);
}

std::string List(const std::string& root, ZfsDataset::Type type, const CommandExecutor& executor) {
    return executor("/usr/bin/env -i zfs list -rH -o name,avail,used,usedrefreserv -t " +
                    ZfsDataset::TypeToString(type) + " " + root);
}

bool SaysNone(const std::string& listOutput) {
    return listOutput.find("no datasets available") != std::string::npos;
}

/// The datasets of an output of `zfs list`. `complete` is called with each and its name before the
/// columns are converted.
template <typename Complete>
std::vector<ZfsDataset> ParseRows(const std::string& listOutput, ZfsDataset::Type type,
                                  const Complete& complete) {
    std::vector<ZfsDataset> datasets;
    if (!HasWord(listOutput))
        return datasets;
    datasets.reserve(CountRows(listOutput));
    for (RowReader reader(listOutput); reader.Next();) {
        const std::vector<std::string>& row = reader.Row();
        if (row.empty())
            continue;
        if (row.size() < 4)
            throw std::runtime_error("Failed to parse zfs output:\n" + listOutput);
        const std::string& name = row[0];

        ZfsDataset& dataset = datasets.emplace_back();
        dataset.type = type;
        complete(dataset, name);
        SetListColumns(dataset, name, row[1], row[2], row[3]);
    }
    return datasets;
}

/// The place of each member of ZfsProperties in the order of ForEach, by its name.
const std::unordered_map<std::string_view, std::size_t>& MemberPlaces() {
    using Places = std::unordered_map<std::string_view, std::size_t>;
    static const util::internal::NeverDestroyed<ZfsProperties> defaults{ZfsProperties()};
    static const util::internal::NeverDestroyed<Places> places([] {
        Places byName; // views of the names in `defaults`
        ZfsProperties::ForEach(*defaults, [&byName](const auto& property) {
            byName.emplace(property.GetName(), byName.size());
        });
        return byName;
    }());
    return *places;
}

GetCells CutIntoCells(std::string_view line) {
    GetCells result;
    while (result.count < GetCells::most) {
        const std::string_view cell = util::ConsumeWord(line);
        if (cell.empty())
            break;
        result.cells[result.count++] = cell;
    }
    return result;
}

/// The rows of one `zfs get all` that a record keeps. Of a name that repeats, the later row counts.
struct DatasetRows {
    /// Errors: as ReadGetRow.
    explicit DatasetRows(std::string_view getOutput);

    std::vector<GetRow> members; ///< in the order of ForEach; one that has no row has no name
    std::vector<GetRow> users;   ///< by name
};

DatasetRows::DatasetRows(std::string_view getOutput) : members(MemberPlaces().size()) {
    if (!getOutput.empty())
        util::ConsumeLine(getOutput); // the header
    while (!getOutput.empty()) {
        const auto row = ReadGetRow(CutIntoCells(util::ConsumeLine(getOutput)));
        if (!row)
            continue;
        const auto place = MemberPlaces().find(row->name);
        if (place != MemberPlaces().end())
            members[place->second] = *row;
        else if (row->name.find(':') != std::string_view::npos)
            users.push_back(*row);
    }
    std::reverse(users.begin(), users.end()); // so that the later row leads
    std::stable_sort(users.begin(), users.end(),
                     [](const GetRow& a, const GetRow& b) { return a.name < b.name; });
    users.erase(std::unique(users.begin(), users.end(),
                            [](const GetRow& a, const GetRow& b) { return a.name == b.name; }),
                users.end());
}

} // namespace

struct ZfsDatasetEnumerator::QuotaKind {
    const char* trace;
    const char* command;
    const char* type;
    const char* warning;

    static const QuotaKind user;
    static const QuotaKind group;
};

constexpr ZfsDatasetEnumerator::QuotaKind ZfsDatasetEnumerator::QuotaKind::user{
    "Reading ZFS user quota for [%1].", "/usr/bin/env -i zfs userspace ", "userquota",
    "Failed to read ZFS user quota for [%1]. This property will not be restored."};
constexpr ZfsDatasetEnumerator::QuotaKind ZfsDatasetEnumerator::QuotaKind::group{
    "Reading ZFS group quota for [%1].", "/usr/bin/env -i zfs groupspace ", "groupquota",
    "Failed to read ZFS group quota for [%1]. This property will not be restored."};

/// The names of the quotas of one enumeration. Most owners have a quota on many filesystems, and a
/// look-up reads the whole user database or asks a server, so each is looked up once.
class ZfsDatasetEnumerator::QuotaNames {
public:
    /// As generateQuotaName; also its failure is remembered.
    const std::string& Get(const std::string& owner, const std::string& quotaType) {
        const auto [entry, isNew] = names_.try_emplace(quotaType + "@" + owner);
        Name& name = entry->second;
        if (isNew) {
            try {
                name.text = generateQuotaName(owner, quotaType);
            } catch (const std::exception&) {
                name.failure = std::current_exception();
            }
        }
        if (name.failure)
            std::rethrow_exception(name.failure);
        return name.text;
    }

private:
    struct Name {
        std::string text;
        std::exception_ptr failure;
    };
    std::unordered_map<std::string, Name> names_;
};

Node& Node::operator=(const Node& other) {
    return *this = Node(other);
}

Node& Node::operator=(Node&& other) noexcept {
    Node taken(std::move(other));
    dataset = std::move(taken.dataset);
    children.swap(taken.children); // goes with `taken`, and `other` with it when it is in there
    return *this;
}

Node::~Node() {
    std::vector<std::shared_ptr<Node>> nodes;
    const auto takeChildren = [&nodes](Node& node) {
        for (auto& [key, child] : node.children)
            nodes.push_back(std::move(child));
        node.children.clear();
    };
    try {
        for (takeChildren(*this); !nodes.empty();) {
            const std::shared_ptr<Node> node = std::move(nodes.back());
            nodes.pop_back();
            if (node.use_count() == 1) // others may hold it still, with all that is below it
                takeChildren(*node);
        }
    } catch (const std::bad_alloc&) { // NOLINT(bugprone-empty-catch)
        // Without memory for the list, what is left goes by recursion.
    }
}

std::pair<std::vector<ZfsDataset>, std::vector<std::string>>
ZfsDatasetEnumerator::Enumerate(const std::string& root, CommandExecutor executor) {
    warnings_.clear();
    quotaFailures_.clear();
    std::vector<ZfsDataset> datasets = EnumerateType(root, ZfsDataset::filesystem, executor);
    std::vector<ZfsDataset> snapshots = EnumerateType(root, ZfsDataset::snapshot, executor);
    std::vector<ZfsDataset> volumes = EnumerateType(root, ZfsDataset::volume, executor);
    datasets.reserve(datasets.size() + snapshots.size() + volumes.size());
    std::move(snapshots.begin(), snapshots.end(), std::back_inserter(datasets));
    std::move(volumes.begin(), volumes.end(), std::back_inserter(datasets));
    return {std::move(datasets), warnings_};
}

std::vector<ZfsDataset> ZfsDatasetEnumerator::EnumerateType(const std::string& root,
                                                            ZfsDataset::Type type,
                                                            CommandExecutor executor) {
    return extractDatasetFromOutput(List(root, type, executor), type, executor);
}

std::vector<ZfsDataset>
ZfsDatasetEnumerator::extractDatasetFromOutput(const std::string& listOutput, ZfsDataset::Type type,
                                               CommandExecutor executor) {
    if (SaysNone(listOutput))
        return {};
    const bool isRecovery = orvcommonlib::system::CRecoveryIsoDetector::IsUnderRecoveryIso();
    QuotaNames quotaNames;
    return ParseRows(listOutput, type, [&](ZfsDataset& dataset, const std::string& name) {
        _log.dbg("Prepare to execute zfs get");
        const std::string getOutput = executor("/usr/bin/env -i zfs get all " + name);
        _log.dbg("%1", getOutput);
        ParseDatasetProperties(getOutput, dataset.properties);
        if (type == ZfsDataset::filesystem && !isRecovery) {
            dataset.properties.userQuotas =
                ReadQuotas(QuotaKind::user, name, Executors::GetProcessExecutor(), quotaNames);
            dataset.properties.groupQuotas =
                ReadQuotas(QuotaKind::group, name, Executors::GetProcessExecutor(), quotaNames);
        }
    });
}

std::vector<ZfsDataset> ZfsDatasetEnumerator::ListType(const std::string& root,
                                                       ZfsDataset::Type type,
                                                       CommandExecutor executor) {
    return ParseList(List(root, type, executor), type);
}

std::vector<ZfsDataset> ZfsDatasetEnumerator::ParseList(const std::string& listOutput,
                                                        ZfsDataset::Type type) {
    if (SaysNone(listOutput))
        return {};
    return ParseRows(listOutput, type, [](ZfsDataset&, const std::string&) {});
}

ZfsDataset ZfsDatasetEnumerator::ParseDatasetFields(const std::string& name,
                                                    const std::string& avail,
                                                    const std::string& used,
                                                    const std::string& usedrefreserv,
                                                    const ZfsProperties& properties) {
    return ParseDatasetFields(name, avail, used, usedrefreserv, ZfsProperties(properties));
}

ZfsDataset ZfsDatasetEnumerator::ParseDatasetFields(const std::string& name,
                                                    const std::string& avail,
                                                    const std::string& used,
                                                    const std::string& usedrefreserv,
                                                    ZfsProperties&& properties) {
    ZfsDataset dataset;
    SetListColumns(dataset, name, avail, used, usedrefreserv);
    dataset.properties = std::move(properties);
    return dataset;
}

void ZfsDatasetEnumerator::ParseDatasetProperties(const std::string& getOutput,
                                                  ZfsProperties& properties) {
    // All rows are read before any is stored: where one cannot be, the properties stay as they
    // were.
    const DatasetRows rows(getOutput);
    detail::Sources sources;
    std::size_t member = 0;
    ZfsProperties::ForEach(properties, [&](auto& property) {
        if (const GetRow& row = rows.members[member++]; !row.name.empty())
            property.SetRow(row.value, row.source, row.inheritedFrom, sources);
    });
    properties.userProperties.reserve(properties.userProperties.size() + rows.users.size());
    for (const GetRow& row : rows.users) {
        Property<std::string>& property =
            properties.userProperties.emplace_back(std::string(row.name), "");
        property.SetRow(row.value, row.source, row.inheritedFrom, sources);
    }
}

std::vector<Property<std::string>>
ZfsDatasetEnumerator::readUserQuotaProperties(const std::string& name, CommandExecutor executor) {
    QuotaNames names;
    return ReadQuotas(QuotaKind::user, name, executor, names);
}

std::vector<Property<std::string>>
ZfsDatasetEnumerator::readGroupQuotaProperties(const std::string& name, CommandExecutor executor) {
    QuotaNames names;
    return ReadQuotas(QuotaKind::group, name, executor, names);
}

std::vector<Property<std::string>> ZfsDatasetEnumerator::ReadQuotas(const QuotaKind& kind,
                                                                    const std::string& name,
                                                                    const CommandExecutor& executor,
                                                                    QuotaNames& names) {
    logging::trace_t trace(_log, kind.trace, name);
    try {
        auto quotas = ParseQuotas(kind.type, executor(kind.command + name), names);
        trace.okNoMsg();
        return quotas;
    } catch (const std::exception& error) {
        warnings_.push_back(util::str_format(kind.warning, name));
        quotaFailures_.push_back({name, kind.type, std::current_exception()});
        _log.err(error, "%1", warnings_.back());
        return {};
    }
}

std::vector<Property<std::string>>
ZfsDatasetEnumerator::parseDatasetQuotas(const std::string& quotaType, const std::string& output) {
    QuotaNames names;
    return ParseQuotas(quotaType, output, names);
}

std::vector<Property<std::string>> ZfsDatasetEnumerator::ParseQuotas(const std::string& quotaType,
                                                                     const std::string& output,
                                                                     QuotaNames& names) {
    validateZfsQuotaCmdOutput(output, quotaType);
    std::vector<Property<std::string>> quotas;
    for (RowReader reader(output, 1); reader.Next();) {
        const std::vector<std::string>& row = reader.Row();
        if (row.size() < 5)
            continue;
        // TYPE is two words in "POSIX User  root  3K  none", one in "Project  12  3K  none  7".
        const std::size_t typeCells = util::str_caseicmp(row[0], "POSIX") ? 2 : 1;
        const std::string& owner = row[typeCells];
        const std::string& quota = row[typeCells + 2];
        const std::string source = row.size() >= 6 ? row[typeCells + 3] : std::string();

        Property<std::string> property(names.Get(owner, quotaType), "");
        property.Set(quota);
        property.SetSource(source, "");
        quotas.push_back(std::move(property));
    }
    return quotas;
}

void ZfsDatasetEnumerator::validateZfsQuotaCmdOutput(const std::string& output,
                                                     const std::string& quotaType) {
    if (!util::str_is_starts_with(output, "TYPE "))
        throw exc::CRuntimeExc("Unexpected command output for [%1]: [%2].", quotaType, output);
}

std::string ZfsDatasetEnumerator::generateQuotaName(const std::string& name,
                                                    const std::string& quotaType) {
    try {
        if (util::str_is_integer(name))
            return util::str_format("%1@%2", quotaType, name);
        if (quotaType == "groupquota")
            return util::str_format("%1@%2", quotaType, posix::CGroupInfo(name).GetGID());
        if (quotaType == "userquota")
            return util::str_format("%1@%2", quotaType, posix::CUserInfo(name).GetUID());
        throw exc::CRuntimeExc("Unexpected quota type: [%1].", quotaType);
    } catch (const std::exception&) {
        exc::RegenExc("Failed to generate ZFS quota name for [%1].", name);
    }
}

Node ZfsDatasetEnumerator::GrowTree(std::vector<ZfsDataset>&& datasets) {
    Node root;
    if (datasets.empty())
        return root;
    // Records are large, so pointers to them are sorted, and each record is moved once.
    std::vector<ZfsDataset*> sorted;
    sorted.reserve(datasets.size());
    for (ZfsDataset& dataset : datasets)
        sorted.push_back(&dataset);
    std::sort(sorted.begin(), sorted.end(),
              [](const ZfsDataset* a, const ZfsDataset* b) { return a->name < b->name; });

    root.dataset = std::move(*sorted.front());
    for (auto dataset = std::next(sorted.begin()); dataset != sorted.end(); ++dataset)
        Insert(root, PathBelowPool((*dataset)->name), std::move(**dataset));
    datasets.clear();
    return root;
}

} // namespace zfslib
