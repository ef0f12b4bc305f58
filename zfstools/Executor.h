#pragma once

#include "../platform/zfslib_export.h"

#include <functional>
#include <string>

namespace zfslib {

/// Runs one complete command line and returns what the command printed. It reports failure only by
/// throwing; an empty one throws std::bad_function_call when it is called.
using CommandExecutor = std::function<std::string(const std::string& command)>;

/// The three executors of the process, one for each kind of command. A host replaces them at
/// start-up, before other threads use the library: they are read and set without a lock.
namespace Executors {

/// @{
/// Runs `df -Z`. At load: posix::CSimpleCmdExec::RunCommand (through /bin/sh).
ZFSLIB_EXPORT CommandExecutor GetDfExecutor();
ZFSLIB_EXPORT void SetDfExecutor(CommandExecutor executor);
/// @}

/// @{
/// Lists the pools when a path is resolved. At load: posix::CSimpleCmdExec::RunCommand.
ZFSLIB_EXPORT CommandExecutor GetZpoolExecutor();
ZFSLIB_EXPORT void SetZpoolExecutor(CommandExecutor executor);
/// @}

/// @{
/// Runs everything else. At load: ChildProcessExecute.
ZFSLIB_EXPORT CommandExecutor GetProcessExecutor();
ZFSLIB_EXPORT void SetProcessExecutor(CommandExecutor executor);
/// @}

/// Splits the command at white space (there is no quoting), starts its first word with the others
/// as arguments, without a shell, and waits for it. Returns standard output; if the command wrote
/// to standard error, a newline and that text follow.
/// Errors: std::runtime_error "Command is empty. "; posix::CCommandFailure.
ZFSLIB_EXPORT std::string ChildProcessExecute(const std::string& command);

/// An executor like ChildProcessExecute whose commands are killed, with their process groups, and
/// fail after `timeoutSeconds`; 0 sets no limit.
ZFSLIB_EXPORT CommandExecutor TimedChildProcessExecutor(int timeoutSeconds);

/// How ChildExecutor runs its commands.
struct ChildOptions {
    /// Kills a command that takes longer, with its process group; 0 sets no limit.
    int timeoutSeconds = 0;
    /// Receives what a command that succeeded wrote to standard error (a loader's warning, an audit
    /// line). Empty: that goes to the log (debug). Several threads may call it at once.
    std::function<void(const std::string& command, const std::string& text)> standardError;
    /// Hands each line to /bin/sh, as TimedShellExecutor does, instead of splitting it into words.
    bool shell = false;
};

/// An executor like ChildProcessExecute, or through a shell, that returns standard output alone, so
/// that nothing but the tool's answer reaches a parser.
ZFSLIB_EXPORT CommandExecutor ChildExecutor(ChildOptions options);

/// An executor like posix::CSimpleCmdExec::RunCommand (through /bin/sh, standard output back) with
/// the time-out of TimedChildProcessExecutor. For the commands that end in "2>&1".
ZFSLIB_EXPORT CommandExecutor TimedShellExecutor(int timeoutSeconds);

} // namespace Executors
} // namespace zfslib
