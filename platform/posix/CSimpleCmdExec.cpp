#include "posix/CSimpleCmdExec.h"

#include "logging/logging.h"
#include "posix/internal/ChildProcess.h"
#include "posix/internal/Descriptor.h"
#include "posix/internal/ErrorText.h"
#include "posix/internal/NoCancellation.h"
#include "posix/internal/Spawn.h"
#include "posix/internal/ThreadStop.h"
#include "util/str.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <optional>
#include <poll.h>
#include <string_view>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utility>

namespace posix {
namespace {

using Kind = CCommandFailure::Kind;
using Clock = std::chrono::steady_clock;
using internal::ChildProcess;
using internal::Descriptor;
using internal::NoCancellation;
using internal::Pause;

std::atomic<bool> stopped{false};
std::atomic<std::size_t> outputLimit{CSimpleCmdExec::defaultOutputLimit};
static_assert(std::atomic<bool>::is_always_lock_free, "SetStopped is called from signal handlers");

std::string Describe(Kind kind, int code) {
    switch (kind) {
    case Kind::CannotStart:
        return "cannot be started: " + internal::ErrorText(code);
    case Kind::ExitStatus:
        return "exit status " + util::str(code);
    case Kind::Signal:
        return "killed by signal " + util::str(code);
    case Kind::TimeOut:
        return "timed out after " + util::str(code) + " s, its outcome is unknown";
    case Kind::StatusLost:
        return "exit status lost, its outcome is unknown";
    case Kind::Stopped:
        return "stopped by the host";
    case Kind::OutputTooLong:
        return "its output is too long";
    case Kind::OutputLost:
        return code == 0 ? "its output has no end"
                         : "its output cannot be read: " + internal::ErrorText(code);
    case Kind::NotConnected:
        return "no connection";
    case Kind::ConnectionLost:
        return "connection lost, its outcome is unknown";
    }
    return "unknown kind " + util::str(static_cast<int>(kind));
}

std::string_view LastBytes(std::string_view text, std::size_t limit) {
    return text.substr(text.size() - std::min(text.size(), limit));
}

/// What the command has to say about its failure. Tools that run with "2>&1" say it on standard
/// output.
std::string_view Explanation(Kind kind, std::string_view errorText, std::string_view output) {
    if (errorText.empty() && kind == Kind::ExitStatus)
        errorText = output;
    errorText = LastBytes(errorText, CCommandFailure::errorTextLimit);
    while (!errorText.empty() && util::IsSpace(errorText.back()))
        errorText.remove_suffix(1);
    return errorText;
}

/// The command line as far as a message should repeat it.
std::string Shortened(const std::string& command) {
    constexpr std::size_t limit = 4096;
    if (command.size() <= limit)
        return command;
    return command.substr(0, limit) + "... (" + util::str(command.size()) + " bytes)";
}

std::string Message(const std::string& command, Kind kind, int code, std::string_view errorText,
                    std::string_view output) {
    std::string message = "Command [" + Shortened(command) + "] failed: " + Describe(kind, code);
    const std::string_view explanation = Explanation(kind, errorText, output);
    if (!explanation.empty())
        message.append(": ").append(explanation);
    return message;
}

/// What the child writes into one pipe.
class Stream {
public:
    /// No pipe: at its end from the start.
    Stream() = default;
    explicit Stream(Descriptor readEnd) : readEnd_(std::move(readEnd)) {}

    /// Reads some of what is there now; true when there was something: text, or the end of it.
    bool Read();

    [[nodiscard]] const Descriptor& ReadEnd() const { return readEnd_; }
    [[nodiscard]] std::string& Text() { return text_; }

private:
    static constexpr std::size_t chunk = 32768;
    Descriptor readEnd_;
    std::string text_;
};

bool Stream::Read() {
    if (!readEnd_.IsOpen())
        return false;
    std::array<char, chunk> buffer; // NOLINT(cppcoreguidelines-pro-type-member-init)
    ssize_t count = 0;
    do {
        count = read(readEnd_.Number(), buffer.data(), buffer.size());
    } while (count < 0 && errno == EINTR);
    if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
        return false;
    if (count < 0)
        throw std::system_error(errno, std::generic_category(), "read");
    if (count == 0)
        readEnd_.Close();
    else
        text_.append(buffer.data(), static_cast<std::size_t>(count));
    return true;
}

struct Streams {
    Stream output;
    Stream error;
    std::size_t limit = outputLimit; ///< in bytes, for both together

    bool Read() {
        const bool outputCame = output.Read();
        const bool errorCame = error.Read();
        return outputCame || errorCame;
    }
    /// Reads what is still in the pipes; false when one of them has no end, or it is too long.
    bool ReadRest();
    [[nodiscard]] bool AreTooLong() { return output.Text().size() + error.Text().size() > limit; }

    /// Waits until there is something to read, but no longer than `pause`. No error matters here:
    /// the caller looks for itself.
    void WaitForMore(std::chrono::microseconds pause) const;
};

bool Streams::ReadRest() {
    // A child may have made its pipe larger, or one of packets, which are read one by one; but what
    // goes on after so many reads comes from a process that outlived it, and may go on for ever.
    constexpr std::size_t mostReads = 8192;
    for (std::size_t i = 0; i < mostReads && !AreTooLong(); ++i)
        if (!Read())
            return true;
    return false;
}

void Streams::WaitForMore(std::chrono::microseconds pause) const {
    std::array<pollfd, 2> ends{pollfd{output.ReadEnd().Number(), POLLIN, 0},
                               pollfd{error.ReadEnd().Number(), POLLIN, 0}};
    const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(pause).count();
    const bool anyOpen = output.ReadEnd().IsOpen() || error.ReadEnd().IsOpen();
    if (!anyOpen ||
        (poll(ends.data(), ends.size(), static_cast<int>(milliseconds)) < 0 && errno != EINTR))
        std::this_thread::sleep_for(pause);
}

enum class Awaited { End, Deadline, Stop, Limit };

/// Reads what the child writes until it has ended, or the deadline, the limit of its
/// output or the host's stop comes first; what it wrote last may still be in the pipes. It is the
/// child that is waited for, not the end of its pipes: a process that the child left behind may
/// hold these open for ever.
Awaited Await(ChildProcess& child, Streams& streams, Clock::time_point deadline) {
    Pause pause;
    for (;;) {
        if (streams.Read())
            pause.StartAgain();
        if (streams.AreTooLong())
            return Awaited::Limit;
        if (child.HasEnded())
            return Awaited::End;
        if (stopped || internal::ThreadStop::IsSet())
            return Awaited::Stop;
        if (Clock::now() >= deadline)
            return Awaited::Deadline;
        streams.WaitForMore(pause.Next());
    }
}

/// One command, and how it is to be run.
struct Command {
    std::string name; ///< for the errors
    std::string program;
    std::vector<std::string> arguments;
    bool mergeError = false;
    int timeoutSeconds = 0;
};

[[noreturn]] void Fail(const Command& command, Kind kind, int code, Streams streams = {}) {
    if (kind == Kind::OutputTooLong) // the error need not keep all of it
        streams.output.Text() = streams.output.Text().substr(0, CCommandFailure::errorTextLimit);
    throw CCommandFailure(command.name, kind, code, std::move(streams.error.Text()),
                          std::move(streams.output.Text()));
}

bool HasNul(const Command& command) {
    const auto hasNul = [](const std::string& word) {
        return word.find('\0') != std::string::npos;
    };
    return hasNul(command.program) ||
           std::any_of(command.arguments.begin(), command.arguments.end(), hasNul);
}

struct Running {
    Streams streams;
    ChildProcess child;
};

/// Errors: std::system_error.
Running Start(const Command& command) {
    if (HasNul(command)) // the system would see another, shorter word
        throw std::system_error(EINVAL, std::generic_category());
    std::vector<std::string> words = {command.program};
    words.insert(words.end(), command.arguments.begin(), command.arguments.end());

    internal::Pipe output = internal::MakePipe();
    internal::Pipe error = command.mergeError ? internal::Pipe{} : internal::MakePipe();
    return {{Stream(std::move(output.readEnd)), Stream(std::move(error.readEnd))},
            ChildProcess(internal::FindProgram(command.program), std::move(words), output.writeEnd,
                         command.mergeError ? output.writeEnd : error.writeEnd)};
}

Running StartOrFail(const Command& command) {
    try {
        return Start(command);
    } catch (const std::system_error& error) {
        Fail(command, Kind::CannotStart, error.code().value());
    }
}

/// Whether the program runs another one and says by status 126 or 127 that it could not:
/// POSIX reserves these two for that, with `sh` and with `env`. All command lines of this library
/// go through one of them ("/usr/bin/env -i zfs ..."), and a missing tool should be told from one
/// that ran and failed.
bool RunsAnother(std::string_view program) {
    program.remove_prefix(program.rfind('/') + 1);
    return program == "sh" || program == "env";
}

/// Fails unless the child has ended with status 0.
void CheckStatus(const Command& command, std::optional<int> status, Streams& streams) {
    if (!status)
        Fail(command, Kind::StatusLost, 0, std::move(streams));
    if (WIFSIGNALED(*status))
        Fail(command, Kind::Signal, WTERMSIG(*status), std::move(streams));
    const int code = WEXITSTATUS(*status);
    constexpr int cannotBeRun = 126;
    constexpr int notFound = 127;
    if (code == cannotBeRun && RunsAnother(command.program))
        Fail(command, Kind::CannotStart, EACCES, std::move(streams));
    if (code == notFound && RunsAnother(command.program))
        Fail(command, Kind::CannotStart, ENOENT, std::move(streams));
    if (code != 0)
        Fail(command, Kind::ExitStatus, code, std::move(streams));
}

/// Reads what the child writes until it has ended or must be ended, and fails in the latter case:
/// to fail destroys the child, which kills it with its group if it still runs.
void ReadAll(const Command& command, Running& running, Clock::time_point deadline) {
    const Awaited awaited = Await(running.child, running.streams, deadline);
    const bool isWhole = awaited == Awaited::End && running.streams.ReadRest();
    if (awaited == Awaited::Stop || awaited == Awaited::Deadline)
        running.streams.Read(); // what came last, but not all: the child may still write
    if (awaited == Awaited::Stop)
        Fail(command, Kind::Stopped, 0, std::move(running.streams));
    if (awaited == Awaited::Deadline)
        Fail(command, Kind::TimeOut, command.timeoutSeconds, std::move(running.streams));
    if (running.streams.AreTooLong())
        Fail(command, Kind::OutputTooLong, 0, std::move(running.streams));
    CheckStatus(command, running.child.Status(), running.streams);
    if (!isWhole)
        Fail(command, Kind::OutputLost, 0, std::move(running.streams));
}

/// Runs the command and returns what it wrote. Errors: CCommandFailure.
Streams Run(const Command& command) {
    const NoCancellation noCancellation;
    const auto deadline = command.timeoutSeconds > 0
                              ? Clock::now() + std::chrono::seconds(command.timeoutSeconds)
                              : Clock::time_point::max();
    if (stopped || internal::ThreadStop::IsSet())
        Fail(command, Kind::Stopped, 0);
    ChildProcess::ReapStragglers();
    Running running = StartOrFail(command);
    try {
        ReadAll(command, running, deadline);
    } catch (const std::system_error& error) { // of a read
        Fail(command, Kind::OutputLost, error.code().value(), std::move(running.streams));
    }
    return std::move(running.streams);
}

} // namespace

CCommandFailure::CCommandFailure(std::string command, Kind kind, int code, std::string errorText,
                                 std::string output)
    : std::runtime_error(Message(command, kind, code, errorText, output)),
      command_(std::move(command)), kind_(kind), code_(code),
      errorText_(LastBytes(errorText, errorTextLimit)), output_(std::move(output)) {}

CCommandFailure::~CCommandFailure() = default;

std::string CSimpleCmdExec::RunCommand(const std::string& commandLine) {
    return RunShellCommand(commandLine, 0);
}

std::string CSimpleCmdExec::RunShellCommand(const std::string& commandLine, int timeoutSeconds) {
    const logging::log_section_t log("zfslib");
    std::string errorText;
    std::string output = RunShellCommand(commandLine, timeoutSeconds, errorText);
    if (!errorText.empty())
        log.dbg("Command [%1] wrote to standard error: [%2]", commandLine, errorText);
    return output;
}

std::string CSimpleCmdExec::RunShellCommand(const std::string& commandLine, int timeoutSeconds,
                                            std::string& errorText) {
    Streams streams = Run({commandLine, "/bin/sh", {"-c", commandLine}, false, timeoutSeconds});
    errorText = std::move(streams.error.Text());
    return std::move(streams.output.Text());
}

int CSimpleCmdExec::RunCommandAndGetOutput(const std::string& program,
                                           const std::vector<std::string>& arguments,
                                           std::string& firstText, std::string& secondText,
                                           bool mergeError, int timeoutSeconds) {
    std::string name = program;
    for (const std::string& argument : arguments)
        name += " " + argument;
    Streams streams = Run({std::move(name), program, arguments, mergeError, timeoutSeconds});
    firstText = std::move(streams.error.Text());
    secondText = std::move(streams.output.Text());
    return 0;
}

void CSimpleCmdExec::SetOutputLimit(std::size_t bytes) noexcept {
    outputLimit = bytes;
}

void CSimpleCmdExec::SetStopped(bool stop) noexcept {
    stopped = stop;
}

} // namespace posix
