#pragma once

#include "../platform/zfslib_export.h"
#include "../zfstools/Executor.h"
#include "../zfstools/Zpool.h"

#include <string>
#include <vector>

namespace zfslib {

/// Lists the host's imported pools.
class ZFSLIB_EXPORT ZpoolEnumerator {
public:
    /// What one `zpool status` shows of a pool.
    struct Config {
        /// As Zpool::state.
        Zpool::State state = Zpool::State::Unavail;
        /// @{
        /// One section of the device table each, as in Zpool.
        std::vector<Zpool::VirtualDevice> devices;
        std::vector<Zpool::VirtualDevice> logs;
        std::vector<Zpool::VirtualDevice> caches;
        std::vector<Zpool::VirtualDevice> metas;
        std::vector<Zpool::VirtualDevice> spares;
        /// @}
    };

    /// All pools, in the order of `zpool list`. Runs `zpool list -o name,size,alloc`, then
    /// `zpool status` and `zpool get all` for each pool; their names come from the list and reach
    /// the command lines unquoted. Errors: what the executor throws, and std::runtime_error for
    /// output that cannot be read; there is no partial list.
    static std::vector<Zpool> Enumerate(CommandExecutor executor);

    /// The pools of an output of `zpool list -o name,size,alloc`, with its header line; the two
    /// other commands are run for each. "no pools available" is an empty list.
    static std::vector<Zpool> ExtractZpoolsFromOutput(const std::string& listOutput,
                                                      CommandExecutor executor);

    /// Reads an output of `zpool status` for one pool. The devices that stand in `config` are
    /// replaced if the output has a device table.
    static void ParseZpoolConfig(const std::string& statusOutput, Config& config);

    /// Reads the device table of `zpool status`, indentation included: the pool's own devices and
    /// the sections logs, cache, metas and spares; other sections are passed over. Takes the
    /// header line off `lines`.
    static void ParseZpoolComponents(std::vector<std::string>& lines, Config& config);

    /// Reads an output of `zpool get all` for one pool, with its header line. A value that does
    /// not convert makes its property Failed.
    static void ParseZpoolProperty(const std::string& getOutput, Zpool::Properties& properties);

    /// The record of a pool. Errors: as ParseSpaceValue.
    static Zpool ParseZpoolFields(const std::string& name, const std::string& size,
                                  const std::string& alloc, const Config& config,
                                  const Zpool::Properties& properties);
};

} // namespace zfslib
