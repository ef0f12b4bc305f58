#pragma once

#include "../platform/zfslib_export.h"
#include "../zfstools/Executor.h"

#include <cstddef>

namespace zfslib::executors {

/// The limits of a batching executor.
struct BatchingOptions {
    /// How many datasets one `zfs get all` asks for at most; up to 1 there is no batching.
    std::size_t namesPerCommand = 256;
    /// How long such a command line may be, in bytes. Systems allow 128 KiB and more for one
    /// argument, and a whole line is one argument of `/bin/sh -c`.
    std::size_t commandLength = 65536;
};

/// An executor that makes the enumeration of many datasets a matter of few commands. It reads the
/// names in each `zfs list` answer that passes through. Asked for the `zfs get all` of one of
/// them, it runs one command for that name and the next ones in the list, answers from that, and
/// keeps the rest, each part for one use, until the next such command or list or until any command
/// that may change a property. All other commands pass through.
///
/// The caller sees what `executor` alone would give, but for the number of blanks between columns:
/// those of a listed dataset's properties are as wide as its own cells, in a batch or not. Asked
/// for by itself is a dataset with an unusual name, one that vanished, one that is asked for a
/// second time, and one that a property value with a newline stands in, for such a value can look
/// like rows of other datasets; this relies on `zfs get` padding its columns to the widest value.
/// A vanished dataset costs about twice the logarithm of `namesPerCommand` in further commands, a
/// value with a newline up to two; where many are so, it comes to little more than one command for
/// each dataset. One wide value widens all rows of its batch, so the next batches are smaller.
///
/// The result and its copies share one state and may be called by several threads, which wait for
/// each other's batches. It is best used by one enumeration at a time: a second one replaces the
/// names of the first, which then goes on with one command for each dataset.
[[nodiscard]] ZFSLIB_EXPORT CommandExecutor BatchingExecutor(CommandExecutor executor,
                                                             BatchingOptions options = {});

} // namespace zfslib::executors
