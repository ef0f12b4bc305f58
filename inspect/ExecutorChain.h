#pragma once

#include "executors/RecordingExecutor.h"
#include "inspect/LostHost.h"
#include "inspect/Options.h"
#include "inspect/Progress.h"
#include "inspect/ToolWarnings.h"
#include "zfstools/Executor.h"

#include <optional>
#include <string>
#include <vector>

namespace inspect {

/// The executor that the options ask for, also in the three slots of the process. When it goes, the
/// slots are empty, and what it runs ahead and a connection to another host have ended.
class InstalledExecutor {
public:
    /// With a progress, that is told of every command. It and the warnings must live as long.
    /// Errors: std::runtime_error when a recording cannot be read or written, or is empty; from
    /// the executor also MissingTools.
    InstalledExecutor(const Options& options, Progress* progress, ToolWarnings& warnings);
    ~InstalledExecutor();
    InstalledExecutor(const InstalledExecutor&) = delete;
    InstalledExecutor& operator=(const InstalledExecutor&) = delete;

    [[nodiscard]] const zfslib::CommandExecutor& Executor() const { return executor_; }

    /// Errors: posix::CCommandFailure when the connection to another host failed at any time.
    void CheckHost() const { lostHost_.Check(); }

    /// What the recording that answers lacks, for people.
    [[nodiscard]] const std::vector<std::string>& Missing() const { return missing_; }

    /// Ends what is recorded, if anything is. Errors: those of Recorder::Close.
    void CloseRecording() const;

private:
    LostHost lostHost_;
    std::optional<zfslib::executors::Recorder> recorder_;
    std::vector<std::string> missing_;
    zfslib::CommandExecutor executor_;
};

} // namespace inspect
