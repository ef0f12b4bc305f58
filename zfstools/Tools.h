#pragma once

#include "../platform/zfslib_export.h"
#include "../zfstools/Executor.h"
#include "../zfstools/Zpool.h"

#include <string>
#include <vector>

namespace zfslib {

/// Whether the ZFS tools are installed: `pkginfo SUNWzfsu` through the process executor succeeds.
/// Under a recovery boot image the answer is yes, and nothing is run. Never fails: an error is a
/// no, and a line in the log (info).
ZFSLIB_EXPORT bool IsZfsToolsInstalled();

/// Whether the filesystem that holds a path is a dataset of one of the host's pools. Lists the
/// pools through the zpool executor, then runs `df -Z` through the df executor. The holding
/// filesystem is that of the longest mount point which the path's text begins with ("/exportx"
/// lies below "/export"), else that of "/". Errors: what the executors throw, and
/// std::runtime_error for output that cannot be read or a path that nothing holds.
ZFSLIB_EXPORT bool IsZfsDataset(const std::string& path);

/// The filesystem that holds a path, as `df -Z` names it: for ZFS the dataset. Runs `df -Z` through
/// the df executor, a second time when no mount point fits. Errors: as IsZfsDataset.
ZFSLIB_EXPORT std::string GetDatasetForPath(const std::string& path);

/// The pool that holds a path. Lists the pools twice, and runs `df -Z` once more than there are
/// pools up to the one found. Errors: as IsZfsDataset; std::runtime_error when the path is not on
/// a ZFS file system, or no pool holds it.
ZFSLIB_EXPORT Zpool GetAssociatedZpool(const std::string& path);

/// A pool that could be imported. Both texts come from the labels of its disks, so whoever wrote
/// those chose them: they hold what they hold, and IsSafeOperand says whether one may be passed on.
struct Pool4Import {
    std::string name; ///< as `zpool import` prints it
    std::string id;   ///< the numeric identifier, as `zpool import` prints it
};

/// Whether a name, an identifier or a directory from outside may stand in a command line: letters,
/// digits and "_", "-", ".", ":", "/", "@", without a "-" at the front, and at least one. Nothing
/// of it is a blank, an option, or has a meaning to a shell. To be asked before a text that
/// somebody else wrote is passed on, be it to ImportZfsPool or to any other operation.
[[nodiscard]] ZFSLIB_EXPORT bool IsSafeOperand(const std::string& text) noexcept;

/// The pools that could be imported, in the order of `zpool import`. An entry that cannot be read
/// is left out, with a line in the log (debug). Errors: what the executor throws.
ZFSLIB_EXPORT std::vector<Pool4Import> EnumerateZpool4Import(CommandExecutor executor);

/// Imports a pool by its identifier, by force, and mounts nothing: `zpool import -f -N`. A
/// non-empty `newName` renames it; a non-empty `altRoot` becomes its alternate root. The command
/// line ends in "2>&1", so the executor must hand it to a shell (the zpool executor does), and all
/// four texts reach that shell unquoted: the caller must see that they are single words without
/// shell characters, those of `pool` too (IsSafeOperand). Errors: what the executor throws; its
/// output is not looked at.
ZFSLIB_EXPORT void ImportZfsPool(const Pool4Import& pool, const std::string& newName,
                                 const std::string& altRoot, CommandExecutor executor);

} // namespace zfslib
