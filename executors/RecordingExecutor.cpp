#include "executors/RecordingExecutor.h"

#include "executors/Recording.h"
#include "posix/internal/File.h"
#include "util/str.h"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <limits>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <sys/utsname.h>
#include <utility>

namespace zfslib::executors {

namespace {

/// What a name of the system may put into a line.
std::string Printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return text;
}

/// The first line of what a recorder writes.
std::string Head(const std::string& otherHost) {
    struct utsname system {};
    uname(&system);
    const std::time_t now = std::time(nullptr);
    struct tm utc {};
    gmtime_r(&now, &utc);
    const auto number = [](int value) { return (value < 10 ? "0" : "") + util::str(value); };
    constexpr int firstYear = 1900;
    const std::string date = number(utc.tm_year + firstYear) + "-" + number(utc.tm_mon + 1) + "-" +
                             number(utc.tm_mday) + " " + number(utc.tm_hour) + ":" +
                             number(utc.tm_min) + ":" + number(utc.tm_sec);
    const std::string host =
        otherHost.empty() ? util::str_format("%1, %2 %3 %4 %5", system.nodename, system.sysname,
                                             system.release, system.version, system.machine)
                          : util::str_format("%1, seen from %2", otherHost, system.nodename);
    return Printable(
               util::str_format("\\begin zfslib %1, host %2, %3 UTC", ZFSLIB_VERSION, host, date)) +
           "\n";
}

} // namespace

class Recorder::File {
public:
    File(const std::string& path, const RecorderOptions& options) : path_(path) {
        std::string earlier;
        Require(Try([&] {
            file_ = posix::internal::OpenToAppend(path, options.anyPlace);
            Lock();
            constexpr auto all = std::numeric_limits<std::uint64_t>::max();
            if (file_.isRegular)
                posix::internal::ReadUpTo(file_.descriptor, earlier, all);
        }));
        const std::size_t cutBytes =
            ParseRecording(earlier, path).cutBytes; // or it is no recording
        const std::size_t size = earlier.size() - cutBytes;
        const bool endsInLine = size > 0 && earlier[size - 1] != '\n';
        Require(Try([&] {
            if (cutBytes > 0)
                posix::internal::Truncate(file_.descriptor, size);
            Write((endsInLine ? "\n" : "") + Head(options.otherHost));
        }));
    }

    /// Why the exchange could not be written; nothing when it was.
    [[nodiscard]] std::optional<std::string> Append(const Exchange& exchange) {
        const std::lock_guard<std::mutex> lock(mutex_);
        return Try([&] { Write(FormatExchange(exchange)); });
    }

    void Close() {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (refusal_ == closed)
            return;
        Require(Try([&] {
            Write("\\end\n");
            if (file_.isRegular)
                posix::internal::Synchronize(file_.descriptor);
            file_.descriptor.Close();
        }));
        refusal_ = closed;
    }

private:
    static constexpr const char* closed = "it was closed";

    /// Runs a step and returns why it failed. Nothing is written after a failure: a recording with
    /// a gap would be taken for a whole one.
    template <typename Step>
    [[nodiscard]] std::optional<std::string> Try(Step&& step) {
        try {
            if (refusal_.empty()) {
                step();
                return std::nullopt;
            }
        } catch (const std::exception& error) {
            refusal_ = error.what();
        }
        return "Cannot write the recording [" + path_ + "]: " + refusal_;
    }

    static void Require(const std::optional<std::string>& error) {
        if (error)
            throw std::runtime_error(*error);
    }

    /// Again with each exchange: who closes another descriptor of a file, after reading it for
    /// instance, loses the lock of the process.
    void Lock() const {
        if (file_.isRegular)
            posix::internal::TakeLock(file_.descriptor);
    }

    void Write(const std::string& text) const {
        Lock();
        posix::internal::WriteAll(file_.descriptor, text);
    }

    std::string path_;
    std::mutex mutex_;
    posix::internal::OpenFile file_;
    std::string refusal_; ///< why nothing can be written any more
};

Recorder::Recorder(const std::string& path, RecorderOptions options)
    : file_(std::make_shared<File>(path, options)) {}

void Recorder::Close() const {
    file_->Close();
}

namespace {

/// What the exception in hand says. To be called in a catch block.
std::string CurrentMessage() {
    try {
        throw;
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "unknown failure";
    }
}

} // namespace

CommandExecutor Recorder::Executor(CommandExecutor executor) const {
    return [file = file_, executor = std::move(executor)](const std::string& command) {
        if (command.empty())
            return executor(command);
        Exchange exchange;
        exchange.command = command;
        try {
            exchange.output = executor(command);
        } catch (...) {
            exchange.failure = CurrentMessage();
            if (const std::optional<std::string> error = file->Append(exchange))
                std::throw_with_nested(std::runtime_error(*error));
            throw;
        }
        if (const std::optional<std::string> error = file->Append(exchange))
            throw std::runtime_error(*error);
        return std::move(exchange.output);
    };
}

CommandExecutor RecordingExecutor(CommandExecutor executor, const std::string& path) {
    return Recorder(path).Executor(std::move(executor));
}

} // namespace zfslib::executors
