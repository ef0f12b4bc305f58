#include "inspect/ExecutorChain.h"

#include "executors/HostWordsExecutor.h"
#include "executors/PrefetchingExecutor.h"
#include "executors/Recording.h"
#include "executors/ReplayingExecutor.h"
#include "executors/SshExecutor.h"
#include "inspect/Interruption.h"
#include "inspect/MissingTools.h"
#include "posix/CSimpleCmdExec.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace inspect {
namespace {

using zfslib::CommandExecutor;

using StandardError = std::function<void(const std::string& command, const std::string& text)>;

/// What ssh, and what its configuration names, may need of our environment: agents, tickets, tools.
std::vector<std::string> EnvironmentForSsh() {
    static constexpr std::array<const char*, 6> names = {
        "HOME", "KRB5CCNAME", "PATH", "SSH_AUTH_SOCK", "USER", "XDG_RUNTIME_DIR"};
    std::vector<std::string> variables;
    for (const char* const name : names)
        if (const char* const value = std::getenv(name)) // NOLINT(concurrency-mt-unsafe)
            variables.push_back(name + std::string("=") + value);
    return variables;
}

CommandExecutor OtherHost(const Options& options, StandardError standardError) {
    zfslib::executors::SshOptions ssh;
    ssh.destination = *options.host;
    ssh.options = options.sshOptions;
    ssh.environment = EnvironmentForSsh();
    ssh.timeoutSeconds = options.timeoutSeconds;
    ssh.standardError = std::move(standardError);
    return zfslib::executors::SshExecutor(std::move(ssh));
}

CommandExecutor ThisHost(const Options& options, StandardError standardError) {
    const bool shell = options.command == Command::State || // their lines quote the names in them
                       options.command == Command::Plan;
    return zfslib::Executors::ChildExecutor(
        {options.timeoutSeconds, std::move(standardError), shell});
}

/// Runs commands on a host. The recorder goes around the rest: what it writes are the library's own
/// commands, one by one, which is what a replay is asked for.
CommandExecutor LiveExecutor(const Options& options, ToolWarnings& warnings,
                             const LostHost& lostHost,
                             std::optional<zfslib::executors::Recorder>& recorder) {
    const StandardError warn = [&warnings](const std::string& /*command*/,
                                           const std::string& text) { warnings.Add(text); };
    CommandExecutor executor =
        options.host ? lostHost.Watch(OtherHost(options, warn)) : ThisHost(options, warn);
    executor = zfslib::executors::HostWordsExecutor(std::move(executor));
    zfslib::executors::PrefetchingOptions prefetching;
    prefetching.workers = options.jobs > 1 ? options.jobs : 0;
    prefetching.commandsAhead = std::max(prefetching.commandsAhead, 2 * options.jobs);
    prefetching.batching.namesPerCommand = options.batch;
    executor = zfslib::executors::PrefetchingExecutor(std::move(executor), prefetching);
    if (options.record) {
        zfslib::executors::RecorderOptions recording;
        recording.anyPlace = options.recordAnywhere;
        recording.otherHost = options.host.value_or("");
        executor = recorder.emplace(*options.record, recording).Executor(std::move(executor));
    }
    return NamingMissingTools(std::move(executor));
}

/// Answers from the recording; what that lacks goes into `missing`.
CommandExecutor ReplayExecutor(const Options& options, std::vector<std::string>& missing) {
    const std::string& path = *options.replay;
    zfslib::executors::Recording recording =
        zfslib::executors::ReadRecording(path, options.RecordingLimit());
    missing = recording.missing;
    if (recording.exchanges.empty())
        throw std::runtime_error("The recording [" + path + "] is empty." +
                                 (missing.empty() ? "" : " " + missing.front()));
    return zfslib::executors::Replayer(std::move(recording), path).Executor();
}

/// Runs nothing more once the user wants the process to end, so that a library call which goes on
/// after a failed command has no further one to wait for.
CommandExecutor UntilInterrupted(CommandExecutor executor) {
    return [executor = std::move(executor)](const std::string& command) {
        Interruption::Check();
        return executor(command);
    };
}

void Install(const CommandExecutor& executor) {
    zfslib::Executors::SetDfExecutor(executor);
    zfslib::Executors::SetZpoolExecutor(executor);
    zfslib::Executors::SetProcessExecutor(executor);
}

} // namespace

InstalledExecutor::InstalledExecutor(const Options& options, Progress* progress,
                                     ToolWarnings& warnings)
    : executor_(options.replay ? ReplayExecutor(options, missing_)
                               : LiveExecutor(options, warnings, lostHost_, recorder_)) {
    if (options.limit != 0)
        posix::CSimpleCmdExec::SetOutputLimit(static_cast<std::size_t>(options.LimitInBytes()));
    executor_ = UntilInterrupted(std::move(executor_));
    if (progress != nullptr)
        executor_ = progress->Watch(std::move(executor_));
    Install(executor_);
}

InstalledExecutor::~InstalledExecutor() {
    Install({});
}

void InstalledExecutor::CloseRecording() const {
    if (recorder_)
        recorder_->Close();
}

} // namespace inspect
