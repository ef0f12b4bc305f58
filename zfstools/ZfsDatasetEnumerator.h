#pragma once

#include "../platform/zfslib_export.h"
#include "../zfstools/Executor.h"
#include "../zfstools/ZfsDataset.h"

#include <exception>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace zfslib {

/// Lists the datasets below a root with their properties and quotas. An enumerator is used by one
/// thread at a time; several may run in parallel.
class ZFSLIB_EXPORT ZfsDatasetEnumerator {
public:
    /// A dataset with what lies directly below it. The key of a filesystem or volume is the last
    /// component of its name ("b" for pool/a/b), that of a snapshot "@" and its name.
    struct ZFSLIB_EXPORT Node {
        ZfsDataset dataset; ///< the record; empty in the root of an empty tree
        std::unordered_map<std::string, std::shared_ptr<Node>> children; ///< in no order

        Node() = default;
        /// A node with what lies below it.
        Node(ZfsDataset record, // NOLINT(google-explicit-constructor)
             std::unordered_map<std::string, std::shared_ptr<Node>> below = {})
            : dataset(std::move(record)), children(std::move(below)) {}
        Node(const Node&) = default;
        Node(Node&&) = default;
        /// A node may be replaced by one that lies below it.
        Node& operator=(const Node& other);
        /// As above.
        Node& operator=(Node&& other) noexcept;
        /// Takes a tree apart without recursion, however deep it is.
        ~Node();
    };

    /// The datasets below `root` (a pool or dataset, itself included): first the filesystems, then
    /// the snapshots, then the volumes, each in the order of `zfs list`. Second, a warning for each
    /// list of quotas that could not be read; such a list is empty. Runs three `zfs list`, a `zfs
    /// get all` for every dataset, all through `executor`, and for every filesystem a `zfs
    /// userspace` and a `zfs groupspace`, always through the process executor. `root` reaches the
    /// command lines unquoted: the caller must see that it is a single word without shell
    /// characters. Errors: what `executor` throws, and std::runtime_error for output that cannot
    /// be read (an empty value is such); there is no partial list. What tenants may name or set
    /// can mislead: a value with newlines forges rows of its own dataset and of those that inherit
    /// it (the last row counts); one named "x/no datasets available" hides all of its type.
    std::pair<std::vector<ZfsDataset>, std::vector<std::string>>
    Enumerate(const std::string& root, CommandExecutor executor);

    /// The part of Enumerate for one type, without the warnings: those are added to Warnings().
    std::vector<ZfsDataset> EnumerateType(const std::string& root, ZfsDataset::Type type,
                                          CommandExecutor executor);

    /// The warnings since the last call of Enumerate.
    [[nodiscard]] const std::vector<std::string>& Warnings() const noexcept { return warnings_; }

    /// A list of quotas that could not be read.
    struct QuotaFailure {
        std::string dataset;      ///< the filesystem
        std::string quotaType;    ///< "userquota" or "groupquota"
        std::exception_ptr cause; ///< never empty; what the executor threw, if it was that
    };
    /// What lies behind the warnings: one for each of Warnings(), in their order.
    [[nodiscard]] const std::vector<QuotaFailure>& QuotaFailures() const noexcept {
        return quotaFailures_;
    }

    /// The datasets of one output of `zfs list -rH -o name,avail,used,usedrefreserv`; the further
    /// commands of Enumerate are run for each.
    std::vector<ZfsDataset> extractDatasetFromOutput(const std::string& listOutput,
                                                     ZfsDataset::Type type,
                                                     CommandExecutor executor);

    /// The bare records of one type, with name, type and sizes; all else is at its default. Costs
    /// one `zfs list`, however many there are. Errors: as Enumerate.
    static std::vector<ZfsDataset> ListType(const std::string& root, ZfsDataset::Type type,
                                            CommandExecutor executor);
    /// The same of one output of `zfs list -rH -o name,avail,used,usedrefreserv`.
    static std::vector<ZfsDataset> ParseList(const std::string& listOutput, ZfsDataset::Type type);

    /// The record of a filesystem. Errors: as ParseSpaceValue.
    static ZfsDataset ParseDatasetFields(const std::string& name, const std::string& avail,
                                         const std::string& used, const std::string& usedrefreserv,
                                         const ZfsProperties& properties);
    /// The same, without a copy of the properties.
    static ZfsDataset ParseDatasetFields(const std::string& name, const std::string& avail,
                                         const std::string& used, const std::string& usedrefreserv,
                                         ZfsProperties&& properties);

    /// Reads an output of `zfs get all` for one dataset, with its header line: the members, and
    /// into the user properties every name with a ":". Of a name that repeats, the later row
    /// counts. Errors: as ZfsDataset::ParseDatasetPropOutputRow and Property::Set.
    static void ParseDatasetProperties(const std::string& getOutput, ZfsProperties& properties);

    /// The user quotas of a filesystem, by `zfs userspace`. Whatever fails becomes a warning, an
    /// error in the log and an empty list.
    std::vector<Property<std::string>> readUserQuotaProperties(const std::string& name,
                                                               CommandExecutor executor);
    /// The group quotas of a filesystem, by `zfs groupspace`; otherwise the same.
    std::vector<Property<std::string>> readGroupQuotaProperties(const std::string& name,
                                                                CommandExecutor executor);

    /// The quotas of an output of `zfs userspace` or `zfs groupspace`, in its order. `quotaType` is
    /// "userquota" or "groupquota". Errors: exc::CRuntimeExc.
    static std::vector<Property<std::string>> parseDatasetQuotas(const std::string& quotaType,
                                                                 const std::string& output);

    /// Errors: exc::CRuntimeExc for an output that does not begin with the tool's header.
    static void validateZfsQuotaCmdOutput(const std::string& output, const std::string& quotaType);

    /// The name `zfs set` takes for a quota: "userquota@1001". A user's or group's name is looked
    /// up, so the result always ends in a number. Errors: exc::CRuntimeExc with the reason as its
    /// cause.
    static std::string generateQuotaName(const std::string& name, const std::string& quotaType);

    /// The tree of the datasets by name; the root is the smallest name, and snapshots lie below
    /// their dataset. Paths are taken relative to the pool: below a root that is not a pool's own
    /// dataset, names are placed as they would be below the pool. A dataset whose parent is not in
    /// the list lies below the nearest one that is, under the first missing component; of two with
    /// one name, one is kept. The records are moved. Costs n log n comparisons of names.
    /// Errors: std::runtime_error for an empty name among several.
    static Node GrowTree(std::vector<ZfsDataset>&& datasets);

private:
    struct QuotaKind;
    class QuotaNames;
    std::vector<Property<std::string>> ReadQuotas(const QuotaKind& kind, const std::string& name,
                                                  const CommandExecutor& executor,
                                                  QuotaNames& names);
    static std::vector<Property<std::string>>
    ParseQuotas(const std::string& quotaType, const std::string& output, QuotaNames& names);

    std::vector<std::string> warnings_;
    std::vector<QuotaFailure> quotaFailures_;
};

} // namespace zfslib
