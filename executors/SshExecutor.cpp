#include "executors/SshExecutor.h"

#include "guid/guid.h"
#include "posix/CSimpleCmdExec.h"
#include "posix/internal/ChildProcess.h"
#include "posix/internal/Descriptor.h"
#include "posix/internal/ErrorText.h"
#include "posix/internal/NoCancellation.h"
#include "util/str.h"
#include "zfstools/logging.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace zfslib::executors {
namespace {

using posix::CCommandFailure;
using Kind = CCommandFailure::Kind;
using Clock = std::chrono::steady_clock;

/// As one word to every login shell: csh acts upon "!" between quotes, too, and in fish "\" escapes
/// there.
std::string Quoted(std::string_view text) {
    std::string quoted = "'";
    for (const char c : text) {
        if (c == '\'' || c == '\\' || c == '!')
            quoted.append("'\\").append(1, c).append("'");
        else
            quoted += c;
    }
    return quoted + "'";
}

/// What the other host's login shell is given. ssh ends with the status of the command, or with 255
/// when it fails itself, but 255 is also what `zfs` ends with when it refuses a value; and a login
/// script may print a greeting. So the command's output stands between two marks, the second with
/// its status, and its standard error behind one.
std::string Marked(const std::string& command, const std::string& mark) {
    return "exec /bin/sh -c 'echo $1; echo $1 >&2; (eval \"$2\"); echo $1 $?' sh " + mark + " " +
           Quoted(command);
}

/// Removes the text up to the first line `mark`, and that; false when there is none.
bool RemoveThrough(std::string& text, const std::string& mark) {
    const std::size_t found = text.find(mark + "\n");
    if (found == std::string::npos)
        return false;
    text.erase(0, found + mark.size() + 1);
    return true;
}

/// Takes the second mark off the end of the output. Returns the status that stands with it; absent
/// when the output was cut off.
std::optional<int> RemoveStatus(std::string& output, const std::string& mark) {
    const std::size_t found = output.rfind(mark + " ");
    if (found == std::string::npos)
        return std::nullopt;
    const std::string_view rest = std::string_view(output).substr(found + mark.size() + 1);
    const std::string digits(rest.substr(0, rest.find('\n')));
    constexpr std::size_t mostDigits = 3;
    if (digits.size() == rest.size() || digits.size() > mostDigits || !util::str_is_integer(digits))
        return std::nullopt;
    output.resize(found);
    return util::StringToInt(digits);
}

/// How ssh ended here.
struct Ended {
    std::optional<Kind> failure; ///< absent when its status was 0
    int code = 0;                ///< that of the failure
    std::string output;
    std::string errorText;
};

bool IsOneOf(std::optional<Kind> failure, std::initializer_list<Kind> kinds) {
    return failure && std::find(kinds.begin(), kinds.end(), *failure) != kinds.end();
}

/// The connection of an executor and its copies.
class Connection {
public:
    explicit Connection(SshOptions options);
    ~Connection();
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    std::string Run(const std::string& command);

private:
    /// The right to run one command now.
    class Place {
    public:
        explicit Place(Connection& connection);
        ~Place();
        Place(const Place&) = delete;
        Place& operator=(const Place&) = delete;

    private:
        Connection& connection_;
    };

    [[nodiscard]] std::vector<std::string> Words(const std::string& socket,
                                                 std::vector<std::string> own) const;
    [[nodiscard]] Ended Ssh(const std::vector<std::string>& words) const;
    std::string Connect(const std::string& command);
    void Forget(const std::string& socket);
    bool NarrowDown();
    [[nodiscard]] std::string Answer(const std::string& command, const std::string& mark,
                                     Ended ended) const;
    void Tell(const std::string& command, const std::string& text) const;
    [[noreturn]] void FailNotConnected(const std::string& command, const std::string& reason) const;

    const SshOptions options_;
    const pid_t owner_ = getpid();

    std::mutex connecting_; // for all up to the next mutex
    std::string folder_;
    std::string socket_; ///< of the connection in use; empty when there is none
    int socketsMade_ = 0;
    std::string failedReason_; ///< of the last attempt to connect
    Clock::time_point retryAt_;

    std::mutex counting_; // for the rest
    std::condition_variable placeIsFree_;
    int running_ = 0;
    int mostRunning_ = 10; ///< what sshd admits on one connection unless it is told otherwise
};

Connection::Place::Place(Connection& connection) : connection_(connection) {
    std::unique_lock<std::mutex> lock(connection.counting_);
    connection.placeIsFree_.wait(
        lock, [&connection] { return connection.running_ < connection.mostRunning_; });
    ++connection.running_;
}

Connection::Place::~Place() {
    const std::lock_guard<std::mutex> lock(connection_.counting_);
    --connection_.running_;
    connection_.placeIsFree_.notify_one();
}

Connection::Connection(SshOptions options) : options_(std::move(options)) {
    if (options_.destination.empty() || options_.destination.front() == '-')
        throw std::runtime_error("No destination for ssh: [" + options_.destination + "]");
    for (const std::string& variable : options_.environment)
        if (variable.find('=') + 1 < 2 || variable.front() == '-')
            throw std::runtime_error("No variable for ssh: [" + variable + "]");
}

Connection::~Connection() {
    // A copy of the process that was forked from the owner has no business with it.
    if (getpid() != owner_)
        return;
    const posix::internal::NoCancellation noCancellation;
    if (!socket_.empty()) {
        try {
            // Not by the runner: that runs nothing any more after SetStopped.
            const posix::internal::Pipe unread = posix::internal::MakePipe();
            std::vector<std::string> words = Words(socket_, {"-O", "exit"});
            words.insert(words.begin(), "/usr/bin/env");
            posix::internal::ChildProcess exit("/usr/bin/env", std::move(words), unread.writeEnd,
                                               unread.writeEnd);
            static_cast<void>(exit.EndsWithin(std::chrono::seconds(2)));
        } catch (const std::exception& error) {
            _log.dbg("The connection to [%1] is left to end by itself: %2", options_.destination,
                     error.what());
        }
    }
    std::error_code ignored;
    if (!folder_.empty())
        std::filesystem::remove_all(folder_, ignored);
}

/// The words of one call of ssh, for `env`. Of options that are given twice ssh takes the first.
std::vector<std::string> Connection::Words(const std::string& socket,
                                           std::vector<std::string> own) const {
    std::vector<std::string> words = options_.environment;
    for (const char* const word : {"ssh", "-T", "-o", "BatchMode=yes", "-o", "RemoteCommand=none",
                                   "-o", "ClearAllForwardings=yes", "-S"})
        words.emplace_back(word);
    words.push_back(socket);
    std::move(own.begin(), own.end(), std::back_inserter(words));
    for (const std::string& option : options_.options) {
        words.emplace_back("-o");
        words.push_back(option);
    }
    words.emplace_back("--");
    words.push_back(options_.destination);
    return words;
}

Ended Connection::Ssh(const std::vector<std::string>& words) const {
    Ended ended;
    try {
        posix::CSimpleCmdExec::RunCommandAndGetOutput("/usr/bin/env", words, ended.errorText,
                                                      ended.output, false, options_.timeoutSeconds);
    } catch (const CCommandFailure& failure) {
        ended = {failure.GetKind(), failure.GetCode(), failure.GetOutput(), failure.GetErrorText()};
    }
    const auto isReturn = [](char c) { return c == '\r'; }; // its own messages end in "\r\n"
    std::string& text = ended.errorText;
    text.erase(std::remove_if(text.begin(), text.end(), isReturn), text.end());
    return ended;
}

/// Makes the connection if there is none, and returns its socket. It is a process in the background
/// that ssh itself detaches from ours: in a session of its own, with /dev/null for all three
/// standard streams. It ends when nothing used it for a minute, so that none is left behind by a
/// process that was killed.
std::string Connection::Connect(const std::string& command) {
    const std::lock_guard<std::mutex> lock(connecting_);
    if (!socket_.empty())
        return socket_;
    if (Clock::now() < retryAt_)
        FailNotConnected(command, failedReason_);
    if (folder_.empty()) {
        std::string folder = options_.socketFolder + "/zfslib-ssh-XXXXXX";
        if (mkdtemp(folder.data()) == nullptr)
            FailNotConnected(command, folder + ": " + posix::internal::ErrorText(errno));
        folder_ = folder;
    }
    // Each its own: one whose process was killed leaves a socket behind.
    std::string socket = folder_ + "/" + util::str(++socketsMade_);
    const Ended ended = Ssh(Words(socket, {"-M", "-N", "-f", "-o", "ControlPersist=60"}));
    if (ended.failure == Kind::Stopped)
        throw CCommandFailure(command, Kind::Stopped, 0, "", "");
    if (ended.failure && ended.failure != Kind::StatusLost) {
        failedReason_ = ended.errorText;
        if (ended.failure == Kind::TimeOut)
            failedReason_ += "timed out after " + util::str(ended.code) + " s";
        else if (failedReason_.empty())
            failedReason_ = "ssh gives no reason, code " + util::str(ended.code);
        constexpr std::chrono::seconds pause{30};
        retryAt_ = Clock::now() + pause;
        FailNotConnected(command, failedReason_);
    }
    Tell(command, ended.errorText);
    socket_ = std::move(socket);
    return socket_;
}

void Connection::Forget(const std::string& socket) {
    const std::lock_guard<std::mutex> lock(connecting_);
    if (socket_ == socket)
        socket_.clear();
}

/// Fewer commands at once from now on; false when there is but one already.
bool Connection::NarrowDown() {
    const std::lock_guard<std::mutex> lock(counting_);
    if (mostRunning_ == 1)
        return false;
    --mostRunning_;
    return true;
}

std::string Connection::Run(const std::string& command) {
    for (bool isFirst = true;;) {
        const Place place(*this);
        const std::string socket = Connect(command);
        // Where the connection cannot be used, ssh would make one of its own for this command, by
        // what stands for a proxy here. So this tells that the command was not sent.
        const std::string mark = guid::guid_t::CreateNew().ToString();
        const std::string notSent = mark + " not sent";
        std::vector<std::string> words =
            Words(socket, {"-o", "ControlMaster=no", "-o", "ControlPersist=no", "-o",
                           "ProxyCommand=/bin/sh -c 'echo " + notSent + " >&2'"});
        words.push_back(Marked(command, mark));
        Ended ended = Ssh(words);
        if (ended.errorText.find(notSent) == std::string::npos)
            return Answer(command, mark, std::move(ended));

        if (!Ssh(Words(socket, {"-O", "check"})).failure) { // it lives, but admits no more commands
            if (!NarrowDown())
                FailNotConnected(command, "the host refuses a session on the connection");
            continue;
        }
        Forget(socket);
        if (!std::exchange(isFirst, false))
            FailNotConnected(command, "the connection ended as soon as it was made");
    }
}

/// What the command gave, told from what ssh and the login shell did.
std::string Connection::Answer(const std::string& command, const std::string& mark,
                               Ended ended) const {
    const bool hasBegun = RemoveThrough(ended.output, mark);
    RemoveThrough(ended.errorText, mark);
    const auto fail = [&](Kind kind, int code) {
        throw CCommandFailure(command, kind, code, std::move(ended.errorText),
                              std::move(ended.output));
    };
    if (IsOneOf(ended.failure,
                {Kind::TimeOut, Kind::Stopped, Kind::OutputTooLong, Kind::OutputLost}))
        fail(*ended.failure, ended.code);
    const std::optional<int> status =
        hasBegun ? RemoveStatus(ended.output, mark) : std::optional<int>();

    constexpr int ownFailure = 255;
    constexpr int cannotBeRun = 126;
    constexpr int notFound = 127;
    constexpr int bySignal = 128; // and more; in some shells 256 and more
    constexpr int mostSignals = 64;
    if (!status && !hasBegun &&
        (!ended.failure || ended.failure == Kind::CannotStart ||
         (ended.failure == Kind::ExitStatus && ended.code != ownFailure))) {
        // The other host answered, but its login shell did not run the command: an account
        // without a shell, a command forced by the key.
        if (ended.errorText.empty())
            ended.errorText = ended.output;
        fail(Kind::CannotStart, ended.failure == Kind::CannotStart ? ended.code : EACCES);
    }
    if (!status) {
        ended.errorText.insert(0, "ssh to [" + options_.destination +
                                      (ended.errorText.empty() ? "]" : "]: "));
        fail(Kind::ConnectionLost, 0);
    }
    if (*status == cannotBeRun || *status == notFound)
        fail(Kind::CannotStart, *status == notFound ? ENOENT : EACCES);
    if (*status > 2 * bySignal)
        fail(Kind::Signal, *status - 2 * bySignal);
    if (*status > bySignal && *status <= bySignal + mostSignals)
        fail(Kind::Signal, *status - bySignal);
    if (*status != 0)
        fail(Kind::ExitStatus, *status);
    Tell(command, ended.errorText);
    return std::move(ended.output);
}

void Connection::Tell(const std::string& command, const std::string& text) const {
    if (text.empty())
        return;
    if (options_.standardError)
        options_.standardError(command, text);
    else
        _log.dbg("Command [%1] wrote to standard error: [%2]", command, text);
}

void Connection::FailNotConnected(const std::string& command, const std::string& reason) const {
    throw CCommandFailure(command, Kind::NotConnected, 0,
                          "ssh to [" + options_.destination + "]: " + reason, "");
}

} // namespace

CommandExecutor SshExecutor(SshOptions options) {
    return [connection = std::make_shared<Connection>(std::move(options))](
               const std::string& command) { return connection->Run(command); };
}

} // namespace zfslib::executors
