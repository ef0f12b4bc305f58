#pragma once

#include "../executors/Recording.h"
#include "../platform/zfslib_export.h"
#include "../zfstools/Executor.h"

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace zfslib::executors {

/// A command that a recording has no answer to. The message names both, and says so when the
/// recording is cut short.
class ZFSLIB_EXPORT NoRecordedAnswer : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    NoRecordedAnswer(const NoRecordedAnswer&) = default;
    NoRecordedAnswer& operator=(const NoRecordedAnswer&) = default;
    ~NoRecordedAnswer() override;
};

/// Answers commands from a recording in place of running them. A command that was recorded several
/// times answers in the order recorded, the last answer again and again. The replayer and its
/// executors share one state and may be used by several threads at once.
class ZFSLIB_EXPORT Replayer {
public:
    /// Reads the recording at `path`. Errors: those of ReadRecording.
    explicit Replayer(const std::string& path, std::uint64_t limit = defaultRecordingLimit);

    /// @{
    /// Answers from what was read or put together; `name` says in the errors which recording it
    /// was.
    Replayer(Recording recording, std::string name);
    Replayer(std::vector<Exchange> exchanges, std::string name);
    /// @}

    /// An executor that answers from the recording. Errors: std::runtime_error with the recorded
    /// message for a command that failed; NoRecordedAnswer for one that was never recorded.
    [[nodiscard]] CommandExecutor Executor() const;

    /// The recorded commands that no executor was asked for yet, each once, in recorded order.
    [[nodiscard]] std::vector<std::string> UnusedCommands() const;

private:
    class State;
    std::shared_ptr<State> state_;
};

} // namespace zfslib::executors
