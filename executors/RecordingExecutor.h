#pragma once

#include "../platform/zfslib_export.h"
#include "../zfstools/Executor.h"

#include <memory>
#include <string>

namespace zfslib::executors {

/// What a recorder may do.
struct RecorderOptions {
    /// Whether it writes wherever the path leads. Otherwise it refuses what another user could have
    /// put there, because a recording tells much, and what root appends somewhere can be turned
    /// against the host: a symbolic link, a file that is not the caller's own or has other names or
    /// that others may write to, and a way through folders that others may write to. In a folder
    /// like /tmp the caller's own files are fine. Access-control lists are not looked at.
    bool anyPlace = false;
    /// The host that the commands are run on, for the first line, where it is not this one.
    std::string otherHost = {};
};

/// Records what other executors do, in one file. Every exchange is written as soon as it was
/// answered, so a crash of the process loses nothing but the last one, and each says where it ends,
/// so that a reader can tell one that was cut short. The executors may be called by several threads
/// at once. To record what the library asks for, this goes around a batching executor, not inside
/// it.
class ZFSLIB_EXPORT Recorder {
public:
    /// Appends to the recording at `path`, which is made, with mode 0600, when it does not exist;
    /// first a line that tells host, system, version and time. A pipe, a terminal and, as
    /// "/dev/stdout", the standard output can be recorded to as well. A file is locked: no other
    /// process can record to it meanwhile.
    /// Errors: std::runtime_error when it cannot be opened or written, is locked, or holds
    /// something else than a recording.
    explicit Recorder(const std::string& path, RecorderOptions options = {});

    /// Passes each command on to `executor` and appends the exchange to the recording. A failure
    /// is recorded with its message and goes on to the caller unchanged. An empty command, which
    /// no recording can hold, is passed on only. The result may outlive the recorder.
    /// Errors: those of `executor`; std::runtime_error when the exchange cannot be written, with
    /// the failure of the command, if it failed, as its cause. No further exchange is written then,
    /// so the recording has no gaps.
    [[nodiscard]] CommandExecutor Executor(CommandExecutor executor) const;

    /// Ends the recording: a last line says that nothing is missing (Recording::End::Ended), and a
    /// file is on the disk when this returns. The executors can only fail from then on. A recording
    /// that matters ends in this; without it, or after an error, readers take it for cut short.
    /// Closing it again does nothing. Errors: std::runtime_error when it cannot be written, or an
    /// exchange could not be before.
    void Close() const;

private:
    class File;
    std::shared_ptr<File> file_;
};

/// Records one executor, `Recorder(path).Executor(executor)`, to a recording that is never ended.
[[nodiscard]] ZFSLIB_EXPORT CommandExecutor RecordingExecutor(CommandExecutor executor,
                                                              const std::string& path);

} // namespace zfslib::executors
