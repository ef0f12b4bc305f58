#pragma once

#include "restore/HostState.h"
#include "restore/internal/Reading.h"

#include <string>

namespace zfslib::restore::internal {

/// Reads an imported pool: its properties, and its devices with theirs. `tools` has to know the
/// system, the version and the usages. Errors: StateMoved when it changed meanwhile.
[[nodiscard]] PoolState ReadPool(const std::string& name, const ToolsState& tools,
                                 const StateCommands& commands, StateTexts& texts);

} // namespace zfslib::restore::internal
