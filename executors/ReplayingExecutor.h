#pragma once

#include "../executors/Recording.h"
#include "../platform/zfslib_export.h"
#include "../zfstools/Executor.h"

#include <memory>
#include <string>
#include <vector>

namespace zfslib::executors {

/// Answers commands from a recording in place of running them. A command that was recorded several
/// times answers in the order recorded, the last answer again and again. The replayer and its
/// executors share one state and may be used by several threads at once.
class ZFSLIB_EXPORT Replayer {
public:
    /// Reads the recording at `path`. Errors: those of ReadRecording.
    explicit Replayer(const std::string& path);

    /// Answers from `exchanges`; `name` says in the errors which recording it was.
    Replayer(std::vector<Exchange> exchanges, std::string name);

    /// An executor that answers from the recording. Errors: std::runtime_error with the recorded
    /// message for a command that failed; std::runtime_error naming the command and the recording
    /// for one that was never recorded.
    [[nodiscard]] CommandExecutor Executor() const;

    /// The recorded commands that no executor was asked for yet, each once, in recorded order.
    [[nodiscard]] std::vector<std::string> UnusedCommands() const;

private:
    class State;
    std::shared_ptr<State> state_;
};

} // namespace zfslib::executors
