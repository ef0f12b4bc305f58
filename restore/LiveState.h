#pragma once

#include "../platform/zfslib_export.h"
#include "../restore/HostState.h"
#include "../zfstools/Executor.h"

#include <map>
#include <string>
#include <vector>

namespace zfslib::restore {

struct PlanOptions;

/// A pool that `zpool import` lists.
struct ImportablePool {
    std::string name;   ///< what the labels of its disks say
    std::string guid;   ///< decimal digits
    std::string state;  ///< "ONLINE", "DEGRADED", "UNAVAIL", ...
    std::string action; ///< what the tool advises: "The pool can be imported using ..."
    /// Where it was found, of a pool made of files: `zpool import -d`. Empty for the places where
    /// the tool looks by itself.
    std::vector<std::string> folders;
    /// The names in its table of devices, of groups included. Of a destroyed pool without those
    /// that it lacks: their disks may have come to another use.
    std::vector<std::string> devices;
    /// Only `zpool import -D` lists it: it was destroyed, and its data is there until its disks are
    /// used for something else.
    bool isDestroyed = false;
};

/// A disk or file that a pool is to be made of.
struct DiskState {
    std::string path;     ///< as a plan has it in `zpool create`
    bool isThere = false; ///< a file or device has this path
    std::string usedBy;   ///< an imported pool that uses it; empty when none does
    /// It is nothing but a spare where it is used: pools may share that, as one of theirs.
    bool isOnlySpare = false;
    std::string target; ///< the path without links; empty where the system has none
};

/// What stands where a saved state is to be put back.
struct LiveState {
    /// What is there of the roots. Its `roots` are those that exist; it may have none, and no
    /// datasets, but always has the tools.
    HostState state;
    std::vector<std::string> missingRoots; ///< those that do not exist
    /// The datasets right above the roots, or the nearest that exist, in the order of ComesBefore:
    /// for what the roots inherit. They are never changed.
    std::vector<DatasetState> above;
    /// Read only where a pool is missing; those that were destroyed are among them.
    std::vector<ImportablePool> importablePools;
    /// Why it is not known which pools were destroyed and could be brought back; empty when it is.
    std::string destroyedDoubt;
    /// The names of the imported pools. Read only where a pool is missing, that may have another.
    std::map<std::string, std::string> poolsByGuid;
    /// Those that pools have to be made of. Read only where a pool is missing.
    std::vector<DiskState> disks;
    /// The features that the live tools know, without "feature@". Read only where a pool is
    /// missing, and empty where the tools do not tell.
    std::vector<std::string> features;
    /// The mounted file systems of all pools, and where they are; a name that is told of twice has
    /// an empty path. Empty where the tool does not tell.
    std::map<std::string, std::string> mounts;
    /// Of the snapshots that the saved state tells of, those that exist, sorted.
    std::vector<std::string> snapshots;
};

/// Reads what a plan has to know of this host: the saved roots under the names they are to get, as
/// ReadHostState does, and what is around them. Roots and pools that are missing are no error.
///
/// `executor` as for ReadHostState. Runs its commands, and among them, when it knows the tools,
/// `zpool list`, `zfs mount`, and `zfs list` of each pool with a root that is no pool; for the
/// datasets above the roots two `zfs get` each, and one more for what is above them. When a pool is
/// missing: `zpool list` again, `zpool import` and `zpool import -D`, and both again for the
/// folders of its files; `zpool status` of each pool; and `ls` and `readlink` of each disk that it
/// needs. Errors: as ReadHostState; std::runtime_error for options that name what was not saved.
[[nodiscard]] ZFSLIB_EXPORT LiveState ReadLiveState(const HostState& saved,
                                                    const PlanOptions& options,
                                                    const CommandExecutor& executor);

} // namespace zfslib::restore
