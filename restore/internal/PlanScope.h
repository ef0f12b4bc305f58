#pragma once

#include "restore/HostState.h"
#include "restore/Plan.h"

#include <cstddef>
#include <string>
#include <vector>

/// What of a saved state a plan is for.
namespace zfslib::restore::internal {

/// The saved roots that are asked for, and what gets a name of its own, by the names they are to
/// get, in the order of ComesBefore, without those that are below others. Errors:
/// std::runtime_error when the options name what was not saved.
[[nodiscard]] std::vector<std::string> WantedRoots(const HostState& saved,
                                                   const PlanOptions& options);

/// A saved pool that a plan needs.
struct WantedPool {
    const PoolState* saved = nullptr;
    std::string name;     ///< the one it is to get
    bool isRoot = false;  ///< the whole of it was saved and is asked for, its properties included
    std::size_t size = 0; ///< its datasets that are asked for
};

/// The saved pools, in their order, with datasets that are asked for. One that gets a place within
/// another pool is not among them.
[[nodiscard]] std::vector<WantedPool> WantedPools(const HostState& saved,
                                                  const PlanOptions& options);

} // namespace zfslib::restore::internal
