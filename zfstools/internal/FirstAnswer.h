#pragma once

#include "posix/CSimpleCmdExec.h"
#include "zfstools/internal/LoggedExecution.h"

#include <cstddef>
#include <exception>
#include <string>
#include <utility>
#include <vector>

namespace zfslib {

/// The index and the answer of the first command that does not fail: what an older tool refuses, or
/// a recording does not hold, is asked for in a plainer way. A command that was killed (it hung, or
/// the host is going down) would meet the same end again: its failure is thrown, as is the last.
inline std::pair<std::size_t, std::string> FirstAnswer(const CommandExecutor& executor,
                                                       const std::vector<std::string>& commands) {
    for (std::size_t i = 0; i + 1 < commands.size(); ++i) {
        try {
            return {i, ExecuteLogged(executor, commands[i])};
        } catch (const posix::CCommandFailure& failure) {
            if (failure.GetKind() != posix::CCommandFailure::Kind::ExitStatus)
                throw;
        } catch (const std::exception& error) {
            _log.dbg("Trying a plainer command: %1", error.what());
        }
    }
    return {commands.size() - 1, ExecuteLogged(executor, commands.back())};
}

} // namespace zfslib
