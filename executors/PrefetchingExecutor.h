#pragma once

#include "../executors/BatchingExecutor.h"
#include "../platform/zfslib_export.h"
#include "../zfstools/Executor.h"

#include <cstddef>

namespace zfslib::executors {

/// The limits of a prefetching executor.
struct PrefetchingOptions {
    /// How many commands run ahead at a time, each in a thread of its own; 0: none.
    std::size_t workers = 4;
    /// How many datasets each `zfs get all` asks for.
    BatchingOptions batching;
    /// How many commands may have been run, or be running, whose answers were not asked for yet.
    std::size_t commandsAhead = 32;
    /// How many bytes these answers may have before no further command is run ahead.
    std::size_t bytesAhead = std::size_t{64} << 20;
};

/// An executor that batches, as BatchingExecutor does, and runs ahead of its caller. From each
/// `zfs list` and `zpool list` answer that passes through, it knows what will be asked next: the
/// `zfs get all` of each dataset, the `zfs userspace` and `zfs groupspace` of each filesystem, the
/// `zpool status` and `zpool get all` of each pool; and behind these the list that an enumeration
/// of the same root asks for next: of the snapshots after that of the filesystems, of the volumes
/// after that of the snapshots. Its workers run these commands, in this order, while the caller
/// reads the answers.
///
/// So an answer may be older than the question, a list of snapshots as well: one that was taken in
/// the meantime other than through this executor may be missing from it. List the filesystems again
/// before you look for it.
///
/// The caller sees what a batching executor would give, in whatever order it asks: what failed
/// ahead of it is run again when it is asked for, and fails then, if it does. A command that is not
/// known to change nothing has the commands in progress ended and waited for, and everything that
/// was read ahead is dropped; nothing is read ahead again before the next list.
///
/// `executor` is called by several threads at once, and those of the workers may be others than
/// the caller's. It stands inside: executors that talk to the host (a time-out, another host, its
/// words). Outside stand those that are to see what the caller asks and gets: a recorder, whose
/// recording is the same whatever the number of workers. The process slot should hold the same
/// executor, since quotas are asked of that.
///
/// The result and its copies share one state, as those of a batching executor do. No thread is
/// started before the first list; where none can be, nothing is read ahead. When the last copy
/// goes, the commands of the workers are ended, if the library's own executors run them, or else
/// waited for, and no thread is left.
[[nodiscard]] ZFSLIB_EXPORT CommandExecutor PrefetchingExecutor(CommandExecutor executor,
                                                                PrefetchingOptions options = {});

} // namespace zfslib::executors
