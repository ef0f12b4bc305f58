#pragma once

#include "../platform/zfslib_export.h"
#include "../restore/HostState.h"
#include "../zfstools/Executor.h"

#include <string>
#include <vector>

namespace zfslib::restore {

/// Reads the state of everything below the roots, pools or datasets, and of the pools that hold
/// them.
///
/// `executor` must use a shell and return standard output alone, as
/// Executors::TimedShellExecutor does: names stand in the command lines in single quotes, and
/// may have any characters in them. All lines begin with "/usr/bin/env -i ".
///
/// Runs, in this order, with the columns divided by tabs:
/// - once: `uname -snr`, `date -u`, and `zfs`, `zpool`, `zfs get`, `zpool get` without operands for
///   what they say about themselves, `zfs version` where there is one, and `zfs get -o received` of
///   one property;
/// - for each pool two `zpool get all`, and two more for its devices from OpenZFS 2.2 on, and
///   `zpool status` by name, path and number;
/// - for each root `zfs get -rHp -o name,property,source all` (what there is), the same with values
///   and received values, again what there is, and for the snapshots two like the first and one
///   `zfs list`; `zfs holds` for those that are held, as many as fit a command line;
/// - two `zfs get` alone for each value with tabs or newlines that the others do not make clear;
/// - for each file system `zfs userspace` and `zfs projectspace`, and for each dataset without
///   children `zfs allow`, which tells of those above it too.
///
/// What somebody else changes meanwhile is noticed, and what it belongs to is read again, at most
/// three times in all.
///
/// Errors: std::runtime_error when a root is no name of a dataset, when the tools do not answer as
/// they should, and, naming what moved, when it changed each time; what the executor throws (a
/// time-out: posix::CCommandFailure), with the root or pool that was being read around it.
/// What only a part of the state is lacking for stands in that part: see the `...Doubt` members.
[[nodiscard]] ZFSLIB_EXPORT HostState ReadHostState(const std::vector<std::string>& roots,
                                                    const CommandExecutor& executor);

} // namespace zfslib::restore
