#pragma once

#include "../zfslib_export.h"

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace posix {

/// A command that did not end well. The message names the command, with its first 4096 bytes, the
/// kind of failure with its number, and what the command wrote to standard error (when that is
/// nothing, and it ended by an exit status, to standard output), each at most with its last
/// `errorTextLimit` bytes. Example: "Command [zfs list x] failed: exit status 1: cannot open 'x':
/// dataset does not exist".
class ZFSLIB_EXPORT CCommandFailure : public std::runtime_error {
public:
    /// What went wrong; the code is that of GetCode.
    enum class Kind {
        CannotStart, ///< the program was not run (or the one that `sh` or `env` was to run); code:
                     ///< the errno value that tells why
        ExitStatus,  ///< the program ended with a status other than 0; code: that status
        Signal,      ///< the program was killed by a signal; code: its number
        TimeOut,     ///< killed after the time-out, so its outcome is unknown; code: the seconds
        StatusLost,  ///< somebody else took its exit status, so its outcome is unknown; code: 0
        Stopped,     ///< killed or not started because of SetStopped; code: 0
        OutputTooLong, ///< killed because it wrote more than SetOutputLimit allows; code: 0
        OutputLost,   ///< what it wrote cannot be read to its end; code: the errno value that tells
                      ///< why, 0 when processes it left behind wrote on and on
        NotConnected, ///< to be run on another host, which was not reached; code: 0
        ConnectionLost, ///< sent to another host, but the connection ended before the command, so
                        ///< its outcome is unknown; code: 0
    };

    /// How much of standard error is kept, in bytes, counted from its end.
    static constexpr std::size_t errorTextLimit = std::size_t{64} * 1024;

    /// The failure of `command`; of `errorText` the last `errorTextLimit` bytes are kept.
    CCommandFailure(std::string command, Kind kind, int code, std::string errorText,
                    std::string output);
    CCommandFailure(const CCommandFailure&) = default;
    CCommandFailure& operator=(const CCommandFailure&) = default;
    ~CCommandFailure() override;

    /// What went wrong.
    [[nodiscard]] Kind GetKind() const noexcept { return kind_; }
    /// The number that goes with the kind.
    [[nodiscard]] int GetCode() const noexcept { return code_; }
    /// The command line: of a program without a shell, its words with a blank between them.
    [[nodiscard]] const std::string& GetCommand() const noexcept { return command_; }
    /// What the command wrote to standard error, at most the last `errorTextLimit` bytes.
    [[nodiscard]] const std::string& GetErrorText() const noexcept { return errorText_; }
    /// What was read of its standard output before the failure; of one that is too long, the first
    /// `errorTextLimit` bytes.
    [[nodiscard]] const std::string& GetOutput() const noexcept { return output_; }

private:
    std::string command_;
    Kind kind_;
    int code_;
    std::string errorText_;
    std::string output_;
};

/// Runs commands as child processes. A child has its own process group, standard input from
/// /dev/null, no descriptor above 2, an empty signal mask with default dispositions, and the
/// environment PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C in place of the host's. Any number of
/// threads may run commands at once. Costs one child process a call. Its child
/// is killed before a call throws, whatever that is: memory may run out, too. A thread that is
/// cancelled (pthread_cancel) in a call is gone only after it.
///
/// The time-out and the stop count from when the program runs: its start waits for the system, for
/// instance when the program lies on a file server that is gone. A forked copy of the host must not
/// run commands before it executes another program: a lock may be held by a thread that the copy
/// does not have. It may log.
class ZFSLIB_EXPORT CSimpleCmdExec {
public:
    /// Runs the command line through /bin/sh and returns what it wrote to standard output. What it
    /// wrote to standard error goes to the log (debug) when it succeeds, and into the error when
    /// it fails. The line is interpreted by the shell: whoever puts a name into it must quote it.
    /// Errors: CCommandFailure.
    static std::string RunCommand(const std::string& commandLine);

    /// Like RunCommand, with the time-out of RunCommandAndGetOutput.
    static std::string RunShellCommand(const std::string& commandLine, int timeoutSeconds);

    /// The same, but `errorText` receives what a command that succeeded wrote to standard error,
    /// and the log does not.
    static std::string RunShellCommand(const std::string& commandLine, int timeoutSeconds,
                                       std::string& errorText);

    /// Starts `program` with `arguments`, no shell, and waits for it. `firstText` receives its
    /// standard error and `secondText` its standard output; with `mergeError` both go into
    /// `secondText`, in the order written. A program without a "/" is looked up in the directories
    /// of the child's PATH. `timeoutSeconds` 0 waits for ever (as does a negative one); otherwise
    /// the child's process group is killed after that time. Returns the exit status, which is
    /// always 0. The texts are set only on success. Errors: CCommandFailure.
    static int RunCommandAndGetOutput(const std::string& program,
                                      const std::vector<std::string>& arguments,
                                      std::string& firstText, std::string& secondText,
                                      bool mergeError, int timeoutSeconds);

    /// How much a command may write, in bytes, standard output and standard error together; one
    /// that writes more is killed and fails with the kind OutputTooLong, before a tool that never
    /// stops takes all memory. For the commands that are started from now on. The default is 1 GiB,
    /// which is ten million rows of `zfs list`.
    static void SetOutputLimit(std::size_t bytes) noexcept;
    /// What SetOutputLimit sets before it is called.
    static constexpr std::size_t defaultOutputLimit = std::size_t{1} << 30;

    /// While set, the process groups of all commands in progress are killed, and they and all
    /// further ones fail with the kind Stopped: for a host that has to end. Takes effect within a
    /// twentieth of a second. May be called from a signal handler.
    static void SetStopped(bool stopped) noexcept;
};

} // namespace posix
