#pragma once

#include "../platform/zfslib_export.h"
#include "../zfstools/Executor.h"

#include <memory>
#include <string>

namespace zfslib::executors {

/// Records what other executors do, in one file. Every exchange is flushed as soon as it is
/// written, so a crash of the process loses nothing that was answered. The executors may be called
/// by several threads at once. To record what the library asks for, this goes around a batching
/// executor, not inside it.
class ZFSLIB_EXPORT Recorder {
public:
    /// Appends to the recording at `path`, which is made when it does not exist.
    /// Errors: std::runtime_error when it cannot be opened, or holds something else.
    explicit Recorder(const std::string& path);

    /// Passes each command on to `executor` and appends the exchange to the recording. A failure
    /// is recorded with its message and goes on to the caller unchanged. An empty command, which
    /// no recording can hold, is passed on only. The result may outlive the recorder.
    /// Errors: those of `executor`; std::runtime_error when the exchange cannot be written, with
    /// the failure of the command, if it failed, as its cause.
    [[nodiscard]] CommandExecutor Executor(CommandExecutor executor) const;

private:
    class File;
    std::shared_ptr<File> file_;
};

/// Records one executor: `Recorder(path).Executor(executor)`.
[[nodiscard]] ZFSLIB_EXPORT CommandExecutor RecordingExecutor(CommandExecutor executor,
                                                              const std::string& path);

} // namespace zfslib::executors
