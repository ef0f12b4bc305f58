#pragma once

#include "../platform/zfslib_export.h"
#include "../restore/HostState.h"
#include "../restore/LiveState.h"

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zfslib::restore {

/// When a step's turn is. A plan is in this order.
enum class Phase {
    Pools,          ///< pools are made or imported
    PoolProperties, ///< features, and what may be set on a pool and its devices
    Datasets,       ///< file systems and volumes are made, the upper ones first, none is mounted
    Properties,     ///< what datasets hand down, the upper ones first
    // Here the data comes back, by whatever keeps it: it is no part of the plan.
    Limits,      ///< quotas, reservations, volume sizes
    Quotas,      ///< of users, groups and projects
    Snapshots,   ///< user properties and holds
    Unmounts,    ///< what was not mounted, or elsewhere
    Mountpoints, ///< where to mount and what to share, recorded and not yet done; read-only, zoned
    Mounts,      ///< mounted, and what needs all of it to be there
    Shares,      ///< what needs the host's file servers
};

/// Whether a step comes before the data.
[[nodiscard]] constexpr bool IsBeforeData(Phase phase) noexcept {
    return phase < Phase::Limits;
}

/// What a step does.
enum class Action {
    Create,  ///< a pool, a file system, a volume
    Import,  ///< a pool
    Add,     ///< devices to a pool that an earlier step makes
    Set,     ///< a property, a feature, a quota
    Inherit, ///< a property is as if nobody had set it
    LoadKey,
    ChangeKey, ///< the key of the dataset above is used in place of its own
    Mount,
    Unmount,
    Share,
    Hold,
    Allow, ///< a permission
};

/// One command of a plan.
struct Step {
    Phase phase = Phase::Datasets; ///< when
    Action action = Action::Set;   ///< what
    std::string object;            ///< the pool, dataset or snapshot: "tank/data"
    std::string device;            ///< of what is set on one: its name as the tool takes it
    /// What is set or inherited: "quota", "userquota@1001", "feature@lz4_compress"; "mounted" of
    /// what is mounted. Empty where it is none.
    std::string property;
    /// The command, word by word, each as it is, without any quoting: "zfs", "set",
    /// "u:note=two words", "tank/data". Has no key material.
    std::vector<std::string> words;
    /// Which of the words name a disk or file that a pool is made of, by their place: a script has
    /// these as variables.
    std::vector<std::size_t> diskWords;
    std::optional<std::string> was;    ///< the value that is live; absent when there is none
    std::optional<std::string> willBe; ///< the value after it; absent when that is not foreseen
    std::string why; ///< for people: "was inherited from tank, which is not restored"
    /// What the command asks its terminal for: "the passphrase of tank/secret". Empty when it asks
    /// for nothing; a key that it reads from a file is named in `why`.
    std::string asksFor;
    /// Set here though it was inherited, as it came from above the roots.
    bool isPinned = false;
    /// The steps that must have been done, by their place in the plan: earlier ones only.
    std::vector<std::size_t> needs;
};

/// Something that was so and cannot be made so.
struct Cannot {
    std::string object;               ///< the pool, dataset or snapshot
    std::string property;             ///< what of it; empty when it is the whole object
    std::optional<std::string> saved; ///< its saved value, where there is one
    std::optional<std::string> live;  ///< its live value, where there is one
    std::string reason;               ///< a sentence without an end
};

/// What to mind: there is nothing to do for it, or nothing that a plan does.
struct Mention {
    std::string object; ///< the pool, dataset or snapshot
    std::string text;   ///< "was not saved"
};

/// What puts a host back as it was.
struct ZFSLIB_EXPORT Plan {
    std::vector<Step> steps;        ///< in the order in which they are to be run
    std::vector<Cannot> cannot;     ///< what stays different, in the order of the saved state
    std::vector<Mention> mentioned; ///< what is live and was not saved, and what to mind

    /// Whether the host is as it was, but for what cannot be.
    [[nodiscard]] bool IsEmpty() const noexcept { return steps.empty(); }
};

/// What a plan is asked for.
struct PlanOptions {
    /// Of the saved datasets, those to restore with all below; empty for all. Saved names.
    std::vector<std::string> roots;
    /// A saved root or pool and the name it is to get. A pool's new name is that of all its
    /// datasets; a dataset's that of all below it.
    std::map<std::string, std::string> renames;
    /// A device of a saved pool, as `zpool status` named it or by its path, and the one to use in
    /// its place.
    std::map<std::string, std::string> disks;

    /// The name a saved pool, dataset or snapshot gets.
    [[nodiscard]] ZFSLIB_EXPORT std::string NewName(std::string_view saved) const;
    /// Whether a saved dataset or snapshot is among what is asked for.
    [[nodiscard]] ZFSLIB_EXPORT bool IsWanted(std::string_view saved) const;
};

/// What puts a host back from `live` to `saved`, as far as the tools can. Runs nothing, and asks
/// nobody: equal arguments give equal plans.
///
/// It creates what is missing and sets and inherits what differs. It never destroys, forces,
/// replaces, renames or rolls back: what is live and was not saved is only mentioned. Values that
/// are not exact, saved or live, are never planned from. The commands are those of the live tools
/// (`live.state.tools`). After it has been run, a plan from what is live then is empty, but for
/// what cannot be done.
///
/// Errors: std::runtime_error when the options name what is not in the saved state, or two things
/// would get one name. Cost: linear in the states, sorted.
[[nodiscard]] ZFSLIB_EXPORT Plan MakePlan(const HostState& saved, const LiveState& live,
                                          const PlanOptions& options = {});

} // namespace zfslib::restore
