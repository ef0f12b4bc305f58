#pragma once

#include "zfstools/Executor.h"
#include "zfstools/logging.h"

#include <string>

namespace zfslib {

/// Runs a command, with the command line and its output in the log at debug level.
inline std::string ExecuteLogged(const CommandExecutor& executor, const std::string& command) {
    _log.dbg("Execute command: [%1]", command);
    std::string output = executor(command);
    _log.dbg("Command output: [%1]", output);
    return output;
}

/// The same for listing and importing pools, whose first log line has always been misspelled;
/// those who search logs rely on it.
inline std::string ExecutePoolCommandLogged(const CommandExecutor& executor,
                                            const std::string& command) {
    _log.dbg("Execute commnd: [%1]", command);
    std::string output = executor(command);
    _log.dbg("Command output: [%1]", output);
    return output;
}

} // namespace zfslib
