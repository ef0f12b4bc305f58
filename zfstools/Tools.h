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

/// A pool that could be imported.
struct Pool4Import {
    std::string name; ///< as `zpool import` prints it
    std::string id;   ///< the numeric identifier, as `zpool import` prints it
};

/// The pools that could be imported, in the order of `zpool import`. An entry that cannot be read
/// is left out, with a line in the log (debug). Errors: what the executor throws.
ZFSLIB_EXPORT std::vector<Pool4Import> EnumerateZpool4Import(CommandExecutor executor);

/// Imports a pool by its identifier, by force, and mounts nothing: `zpool import -f -N`. A
/// non-empty `newName` renames it; a non-empty `altRoot` becomes its alternate root. The command
/// line ends in "2>&1", so the executor must hand it to a shell (the zpool executor does), and all
/// four texts reach that shell unquoted: the caller must see that they are single words without
/// shell characters. Errors: what the executor throws; its output is not looked at.
ZFSLIB_EXPORT void ImportZfsPool(const Pool4Import& pool, const std::string& newName,
                                 const std::string& altRoot, CommandExecutor executor);

} // namespace zfslib
