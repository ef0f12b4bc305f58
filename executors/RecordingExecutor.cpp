#include "executors/RecordingExecutor.h"

#include "executors/Recording.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace zfslib::executors {

class Recorder::File {
public:
    explicit File(const std::string& path) : path_(path) {
        // Terminals and pipes can be recorded to, but have no earlier text.
        std::error_code missing;
        const bool hasText =
            std::filesystem::is_regular_file(path, missing) && std::filesystem::file_size(path) > 0;
        if (hasText)
            static_cast<void>(ReadRecording(path)); // refuses a file that is no recording
        const bool cutLine = hasText && LastByte() != '\n';
        errno = 0;
        stream_.open(path, std::ios::binary | std::ios::app);
        if (cutLine)
            stream_ << '\n' << std::flush;
        if (!stream_)
            throw std::runtime_error(Error());
    }

    /// Why the exchange could not be written; nothing when it was.
    [[nodiscard]] std::optional<std::string> Append(const Exchange& exchange) {
        const std::string text = FormatExchange(exchange);
        const std::lock_guard<std::mutex> lock(mutex_);
        errno = 0;
        stream_ << text << std::flush;
        if (stream_)
            return std::nullopt;
        return Error();
    }

private:
    [[nodiscard]] char LastByte() const {
        std::ifstream file(path_, std::ios::binary);
        file.seekg(-1, std::ios::end);
        return static_cast<char>(file.get());
    }

    [[nodiscard]] std::string Error() const {
        return "Cannot write the recording [" + path_ +
               "]: " + std::generic_category().message(errno);
    }

    std::string path_;
    std::mutex mutex_;
    std::ofstream stream_;
};

Recorder::Recorder(const std::string& path) : file_(std::make_shared<File>(path)) {}

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
