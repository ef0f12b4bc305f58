#pragma once

#include "inspect/Options.h"
#include "inspect/Progress.h"
#include "zfstools/Executor.h"

namespace inspect {

/// Makes the executor that the options ask for and puts it into the three slots of the process as
/// well. With a progress, that is told of every command and must live as long as commands are run.
/// Errors: std::runtime_error when a recording cannot be read or written.
zfslib::CommandExecutor InstallExecutors(const Options& options, Progress* progress);

} // namespace inspect
