#pragma once

#include "../platform/zfslib_export.h"
#include "../zfstools/Executor.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zfslib {

/// The space of one pool as `zpool list` prints it, without correction. A column that is not there,
/// or that holds "-" (as for a pool that cannot be opened), is missing.
struct ZFSLIB_EXPORT PoolSpace {
    std::string name; ///< may hold blanks
    /// @{
    /// Bytes: columns SIZE, ALLOC (of Solaris 10, USED), FREE (AVAIL).
    std::optional<std::uint64_t> size, allocated, free;
    /// @}
    /// @{
    /// Percent: columns CAP and FRAG.
    std::optional<std::uint64_t> capacity, fragmentation;
    /// @}
    std::optional<double> dedupratio; ///< column DEDUP
    std::string health;               ///< column HEALTH: "ONLINE", "SUSPENDED"; or empty

    /// All imported pools, those that are not well among them. Runs
    ///
    ///     zpool list -p -o name,size,alloc,free,cap,frag,dedup,health
    ///
    /// and, when that fails, the same without -p and frag, which Solaris lacks; then, which is what
    /// recordings hold, `zpool list -o name,size,alloc`. Errors: what the executor throws for the
    /// last; a command that was killed is not followed by the next.
    static std::vector<PoolSpace> Enumerate(const CommandExecutor& executor);

    /// Reads an output of `zpool list` that begins with its header, the name first. "no pools
    /// available" is an empty list. A row that has too few cells is a pool of which nothing is
    /// known but the name.
    static std::vector<PoolSpace> Parse(const std::string& listOutput);
};

} // namespace zfslib
