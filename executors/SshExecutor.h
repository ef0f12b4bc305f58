#pragma once

#include "../platform/zfslib_export.h"
#include "../zfstools/Executor.h"

#include <functional>
#include <string>
#include <vector>

namespace zfslib::executors {

/// Which host an ssh executor runs commands on, and how.
struct SshOptions {
    /// "host", "user@host" or "ssh://user@host:port"; "host" may be a name in the ssh
    /// configuration.
    std::string destination;
    /// What the user's ssh configuration does not say, each for one "-o" of ssh: "Port=2222".
    std::vector<std::string> options;
    /// Variables for ssh, "NAME=value", beside PATH and LC_ALL: a child process has nothing of the
    /// host program's environment, so whoever relies on an agent gives SSH_AUTH_SOCK here.
    std::vector<std::string> environment;
    /// Ends ssh when connecting or a command takes longer; 0 sets no limit. What runs on the other
    /// host is out of reach and may go on.
    int timeoutSeconds = 0;
    /// Receives what a command that succeeded wrote to standard error, and what ssh had to say when
    /// it connected. Empty: that goes to the log (debug). Several threads may call it at once.
    std::function<void(const std::string& command, const std::string& text)> standardError;
    /// Where the private folder of the control socket is made. The path of a socket is limited to
    /// some hundred bytes, and ssh reads "%" and "${" in it, so this is a short and plain one.
    std::string socketFolder = "/tmp";
};

/// An executor that runs command lines on another host, by OpenSSH's `ssh` (7.6 or later, in the
/// PATH of child processes) and that host's /bin/sh, which interprets the line: names in it must be
/// checked or quoted for a shell. It returns standard output. ssh never prompts.
///
/// The first command connects, all share that connection, and one that finds it broken before it
/// was sent connects anew. After a failed attempt, commands fail with the same reason for half a
/// minute. With the last copy of the executor the connection ends, and its folder is removed; when
/// the process is killed, the connection ends after a minute without commands and the folder stays.
///
/// The result and its copies may be called by several threads; as many commands run side by side as
/// the other host admits on one connection, at most ten, and the others wait.
///
/// Errors: std::runtime_error for a destination that begins with "-" or is empty and a variable
/// without a name. The executor throws posix::CCommandFailure: NotConnected and ConnectionLost are
/// ssh's own failures; CannotStart, ExitStatus and Signal tell how the command ended on the other
/// host, whatever its status; the other kinds how ssh was ended here. An answer is returned
/// only when all of it has come.
[[nodiscard]] ZFSLIB_EXPORT CommandExecutor SshExecutor(SshOptions options);

} // namespace zfslib::executors
