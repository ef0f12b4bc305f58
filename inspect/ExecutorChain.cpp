#include "inspect/ExecutorChain.h"

#include "executors/BatchingExecutor.h"
#include "executors/HostWordsExecutor.h"
#include "executors/RecordingExecutor.h"
#include "executors/ReplayingExecutor.h"
#include "inspect/Interruption.h"
#include "inspect/MissingTools.h"

#include <utility>

namespace inspect {
namespace {

using zfslib::CommandExecutor;

/// Runs commands on this host. The recorder goes around the rest: what it writes are the library's
/// own commands, one by one, which is what a replay is asked for.
CommandExecutor LiveExecutor(const Options& options, ToolWarnings& warnings) {
    zfslib::Executors::ChildOptions child;
    child.timeoutSeconds = options.timeoutSeconds;
    child.standardError = [&warnings](const std::string& /*command*/, const std::string& text) {
        warnings.Add(text);
    };
    CommandExecutor executor =
        zfslib::executors::HostWordsExecutor(zfslib::Executors::ChildExecutor(std::move(child)));
    if (options.batch > 1) {
        zfslib::executors::BatchingOptions batching;
        batching.namesPerCommand = options.batch;
        executor = zfslib::executors::BatchingExecutor(std::move(executor), batching);
    }
    if (options.record)
        executor = zfslib::executors::RecordingExecutor(std::move(executor), *options.record);
    return NamingMissingTools(std::move(executor));
}

/// Runs nothing more once the user wants the process to end, so that a library call which goes on
/// after a failed command has no further one to wait for.
CommandExecutor UntilInterrupted(CommandExecutor executor) {
    return [executor = std::move(executor)](const std::string& command) {
        Interruption::Check();
        return executor(command);
    };
}

} // namespace

CommandExecutor InstallExecutors(const Options& options, Progress* progress,
                                 ToolWarnings& warnings) {
    CommandExecutor executor = options.replay
                                   ? zfslib::executors::Replayer(*options.replay).Executor()
                                   : LiveExecutor(options, warnings);
    executor = UntilInterrupted(std::move(executor));
    if (progress != nullptr)
        executor = progress->Watch(std::move(executor));
    zfslib::Executors::SetDfExecutor(executor);
    zfslib::Executors::SetZpoolExecutor(executor);
    zfslib::Executors::SetProcessExecutor(executor);
    return executor;
}

} // namespace inspect
