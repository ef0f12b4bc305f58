#pragma once

#include "executors/PrefetchingExecutor.h"
#include "executors/internal/GetAnswer.h"
#include "zfstools/Executor.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <vector>

namespace zfslib::executors {

/// One kind of command that is asked for each name of a list.
struct FollowingCommand {
    std::string_view line;  ///< up to the name
    bool isBatched = false; ///< the line takes several names
    bool isWanted = true;   ///< an answer that nobody asked for makes it unwanted, until one asks
};

class Plan;

/// One command that answers one step of a plan, or several: a batch.
struct Job {
    enum class State {
        Running,
        Done, ///< there are answers that were not asked for yet
        Over, ///< nothing is left; whoever waited for it must see for himself
    };

    Plan* plan = nullptr;
    std::size_t firstStep = 0;
    std::size_t count = 1; ///< of its steps: the same command for as many names
    std::string command;
    State state = State::Running;
    std::vector<std::optional<std::string>> answers; ///< one for each step
    std::size_t answersLeft = 0;
    std::size_t bytes = 0; ///< of these; while it runs, as many as are expected
    std::string quotasOf;  ///< the filesystem whose quotas it asks for; empty for other commands
    std::atomic<bool> stop{false};
};

/// What a caller will ask for after a list: the steps are, for each name in turn, the commands that
/// an enumeration asks for it, in its order.
class Plan {
public:
    struct Step {
        std::shared_ptr<Job> job; ///< that answers it
        /// How many names a batch with it may have: fewer after one that could not be used.
        std::uint32_t most = std::numeric_limits<std::uint32_t>::max();
        /// It was in a job, or asked for by itself. It is in no further one: a caller that asks for
        /// it again and again, or in an order of its own, is not to make each of its commands one
        /// for hundreds of datasets.
        bool isTried = false;
    };

    Plan() = default;
    Plan(const Plan&) = delete;
    Plan& operator=(const Plan&) = delete;

    /// Starts anew with the plain names of a list, each at the start of a line.
    void Assign(std::vector<FollowingCommand*> commands, std::string listOutput, char nameEnd);
    /// The step of a command; nothing for one that is not planned.
    [[nodiscard]] std::optional<std::size_t> Find(std::string_view command) const;

    [[nodiscard]] std::string_view NameOf(std::size_t step) const {
        return names_[step / commands_.size()];
    }
    [[nodiscard]] FollowingCommand& CommandOf(std::size_t step) const {
        return *commands_[step % commands_.size()];
    }
    [[nodiscard]] std::size_t Stride() const { return commands_.size(); }

    std::vector<Step> steps;
    std::size_t next = 0;     ///< the step behind the one that was asked for last
    std::size_t frontier = 0; ///< the first step that could be read ahead
    bool isReadAhead = false; ///< until something may have changed what the commands say

private:
    std::string text_;
    std::vector<FollowingCommand*> commands_;
    std::vector<std::string_view> names_; // views of text_, as are the keys of positions_
    std::unordered_map<std::string_view, std::size_t> positions_;
};

/// How many datasets to ask for at once.
///
/// A batch that fails is followed by its two halves, down to the dataset that spoils it. Where that
/// leads nowhere, batches are tried ever more rarely.
///
/// One wide value widens every row of its batch: 8,000 bytes in one of 256 datasets make 135 MB of
/// 2 MB. So a batch is kept so small that the widest rows seen so far would not give more than
/// `leastCredit` of text, or as much as narrow batches have given since, up to `mostCredit`.
class Pace {
public:
    explicit Pace(std::size_t most) : most_(most) {}

    /// For the next command.
    std::size_t Take();
    /// `padding` is what of the text the single commands would not have had.
    void Succeeded(std::size_t count, std::size_t text, std::size_t padding);
    /// Returns whether parts of the batch are worth trying. A hopeless one is not to be repeated.
    bool Failed(bool isHopeless);

    /// How many bytes a batch gives at most, as far as is known.
    [[nodiscard]] std::size_t Expected(std::size_t count) const { return count * widest_; }

private:
    static constexpr std::size_t leastCredit = std::size_t{4} << 20;
    static constexpr std::size_t mostCredit = std::size_t{64} << 20;
    static constexpr std::size_t mostFailures = 16; // two searches in a batch of the usual size
    static constexpr std::size_t shortestPause = 64;
    static constexpr std::size_t longestPause = std::size_t{1} << 20;

    std::size_t most_;
    std::size_t widest_ = 0; ///< bytes for each dataset of the widest batch
    std::size_t credit_ = leastCredit;
    std::size_t failures_ = 0; ///< since the last success
    std::size_t pause_ = 0;    ///< how many single commands to run before the next batch
    std::size_t nextPause_ = shortestPause;
};

/// Answers commands through an executor, and knows from the lists among them which will follow: it
/// asks for many datasets at once, and has workers run what was not asked for yet.
class ReadAhead {
public:
    ReadAhead(CommandExecutor executor, const PrefetchingOptions& options);
    /// Ends the commands that its workers run, and waits for them.
    ~ReadAhead();
    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;

    std::string Run(const std::string& command);

private:
    using Lock = std::unique_lock<std::mutex>;
    struct Outcome;
    class ChangeInProgress;
    class QuotasTurn;

    std::string RunList(const std::string& command, Plan& plan,
                        std::vector<FollowingCommand*> following);
    void ForeseeList(const std::string& command);
    std::string RunChange(const std::string& command);
    std::string RunRead(const std::string& command);

    std::size_t BatchSize(const Plan& plan, std::size_t step);
    std::shared_ptr<Job> MakeJob(Plan& plan, std::size_t step, std::size_t count);
    void RunJob(Lock& lock, const std::shared_ptr<Job>& job);
    Outcome Execute(const Job& job, bool isBatched) const noexcept;
    void Finish(Job& job, Outcome& outcome);
    void Fail(Job& job, const Outcome& outcome);
    std::string TakeAnswer(Plan& plan, std::size_t step);
    void End(Job& job) noexcept;
    void Drop(Plan& plan) noexcept;
    void DropAll() noexcept;
    void ReadNothingAhead() noexcept;
    void DropPassed(const Plan& plan) noexcept;
    void DropOldest() noexcept;

    void StartWorkers();
    void Work() noexcept;
    std::shared_ptr<Job> NextJob();
    [[nodiscard]] bool IsQuota(const FollowingCommand& following) const noexcept;
    void EndQuotas(const std::string& filesystem) noexcept;
    [[nodiscard]] bool IsWindowFull() const noexcept;
    [[nodiscard]] std::size_t HeldBytes() const noexcept;

    const CommandExecutor executor_;
    const PrefetchingOptions options_;

    std::mutex mutex_; // for all below
    std::condition_variable mayWork_;
    std::condition_variable jobEnded_;
    FollowingCommand getAll_, userspace_, groupspace_, poolStatus_, poolGetAll_, snapshotList_,
        volumeList_;
    Plan datasets_, pools_;
    Plan lists_; ///< the next list of the root that was listed last
    const std::array<Plan*, 3> plans_{&datasets_, &pools_, &lists_}; ///< in the workers' order
    Pace pace_;
    std::vector<std::shared_ptr<Job>> jobs_; ///< those that run, and those with answers left
    /// The filesystems whose quotas are being asked for. While one is not mounted, the tools refuse
    /// to read its user and its group quotas at the same time: "dataset is busy".
    std::vector<std::string> quotasInProgress_;
    std::size_t window_ = 0;  ///< how many jobs there may be; it grows with success
    std::size_t changes_ = 0; ///< commands in progress that may change something
    std::size_t busyWorkers_ = 0;
    bool isEnding_ = false;
    std::vector<std::thread> workers_;
};

} // namespace zfslib::executors
