#pragma once

#include "inspect/Options.h"
#include "inspect/Progress.h"
#include "inspect/ToolWarnings.h"
#include "zfstools/Executor.h"

namespace inspect {

/// Makes the executor that the options ask for and puts it into the three slots of the process as
/// well. With a progress, that is told of every command. It and the warnings must live as long as
/// commands are run. Errors: std::runtime_error when a recording cannot be read or written; from
/// the executor also MissingTools.
zfslib::CommandExecutor InstallExecutors(const Options& options, Progress* progress,
                                         ToolWarnings& warnings);

} // namespace inspect
