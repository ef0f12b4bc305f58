#pragma once

#include "inspect/HealthReport.h"
#include "inspect/Options.h"
#include "zfstools/Executor.h"

namespace inspect {

/// The health of the pools that are asked for, or of all: whatever can be found out. A pool that
/// fails, or is not there, is an entry with an error. Errors: what the executor throws when not
/// even a list of pools can be had.
[[nodiscard]] HealthReport GatherHealth(const Options& options,
                                        const zfslib::CommandExecutor& executor);

} // namespace inspect
