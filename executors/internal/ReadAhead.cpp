#include "executors/internal/ReadAhead.h"

#include "executors/internal/CommandLine.h"
#include "posix/CSimpleCmdExec.h"
#include "posix/internal/BlockedSignals.h"
#include "posix/internal/NoCancellation.h"
#include "posix/internal/ThreadStop.h"
#include "util/str.h"
#include "zfstools/Tools.h"
#include "zfstools/logging.h"

#include <algorithm>
#include <new>
#include <system_error>
#include <utility>

namespace zfslib::executors {
namespace {

using posix::internal::NoCancellation;

constexpr std::string_view datasetList =
    "/usr/bin/env -i zfs list -rH -o name,avail,used,usedrefreserv -t ";
constexpr std::string_view filesystemList =
    "/usr/bin/env -i zfs list -rH -o name,avail,used,usedrefreserv -t filesystem ";
constexpr std::string_view snapshotList =
    "/usr/bin/env -i zfs list -rH -o name,avail,used,usedrefreserv -t snapshot ";
constexpr std::string_view volumeList =
    "/usr/bin/env -i zfs list -rH -o name,avail,used,usedrefreserv -t volume ";
constexpr std::string_view poolList = "/usr/bin/env -i zpool list -o name,size,alloc";

/// Whether the command leaves every property of every dataset as it is.
bool OnlyReads(std::string_view command) {
    command = internal::WithoutEnvironment(command);
    const std::string_view program = util::ConsumeWord(command);
    const std::string_view verb = util::ConsumeWord(command);
    return program == "df" || ((program == "zfs" || program == "zpool") &&
                               (verb == "list" || verb == "get" || verb == "status" ||
                                verb == "userspace" || verb == "groupspace"));
}

/// A hung tool, a dead host and one that ends are not to be asked again for each part of a batch.
bool IsHopeless(const std::exception& error, bool& isStopped) {
    using Kind = posix::CCommandFailure::Kind;
    const auto* failure = dynamic_cast<const posix::CCommandFailure*>(&error);
    if (failure == nullptr)
        return false;
    const Kind kind = failure->GetKind();
    isStopped = kind == Kind::Stopped;
    return isStopped || kind == Kind::TimeOut || kind == Kind::NotConnected ||
           kind == Kind::ConnectionLost;
}

void LogFailure(const std::string& command, const char* reason) noexcept {
    try {
        _log.dbg("The answer to [%1] is not used: %2", command, reason);
    } catch (...) { // NOLINT(bugprone-empty-catch)
        // No memory for a log line; the command will be run again.
    }
}

} // namespace

void Plan::Assign(std::vector<FollowingCommand*> commands, std::string listOutput, char nameEnd) {
    steps.clear();
    next = frontier = 0;
    positions_.clear();
    names_.clear();
    commands_ = std::move(commands);
    text_ = std::move(listOutput);
    std::string_view rest = text_;
    while (!rest.empty()) {
        const std::string_view line = util::ConsumeLine(rest);
        const std::string_view name = line.substr(0, line.find(nameEnd));
        // ZFS allows blanks in names, and a recording or a host's own executor may bring anything.
        if (IsSafeOperand(std::string(name)) && positions_.emplace(name, names_.size()).second)
            names_.push_back(name);
    }
    steps.resize(names_.size() * commands_.size());
}

std::optional<std::size_t> Plan::Find(std::string_view command) const {
    for (std::size_t i = 0; i < commands_.size(); ++i) {
        if (!util::str_is_starts_with(command, commands_[i]->line))
            continue;
        const auto found = positions_.find(command.substr(commands_[i]->line.size()));
        if (found != positions_.end())
            return found->second * commands_.size() + i;
    }
    return std::nullopt;
}

std::size_t Pace::Take() {
    if (pause_ > 0) {
        --pause_;
        return 1;
    }
    return std::max<std::size_t>(std::min(most_, credit_ / std::max<std::size_t>(widest_, 1)), 1);
}

void Pace::Succeeded(std::size_t count, std::size_t text, std::size_t padding) {
    failures_ = 0;
    nextPause_ = shortestPause;
    widest_ = std::max(widest_, text / count);
    const std::size_t earned = text - padding;
    credit_ = credit_ + earned > padding ? credit_ + earned - padding : 0;
    credit_ = std::clamp(credit_, leastCredit, mostCredit);
}

bool Pace::Failed(bool isHopeless) {
    ++failures_;
    if (!isHopeless && failures_ <= mostFailures)
        return true;
    pause_ = nextPause_;
    nextPause_ = std::min(2 * nextPause_, longestPause);
    return false;
}

/// What became of a job's command.
struct ReadAhead::Outcome {
    bool isAnswered = false;
    bool isHopeless = false; ///< not because of one of the datasets
    bool isStopped = false;
    std::size_t size = 0; ///< of the whole answer
    GetAnswer answer;
};

/// While one lives, nothing is read ahead, and what was is gone.
class ReadAhead::ChangeInProgress {
public:
    explicit ChangeInProgress(ReadAhead& ahead) : ahead_(ahead) {
        const NoCancellation noCancellation;
        Lock lock(ahead_.mutex_);
        ++ahead_.changes_;
        ahead_.DropAll();
        ahead_.jobEnded_.wait(lock, [this] { return ahead_.busyWorkers_ == 0; });
    }
    ~ChangeInProgress() {
        const Lock lock(ahead_.mutex_);
        ahead_.DropAll(); // what other callers read meanwhile
        --ahead_.changes_;
    }
    ChangeInProgress(const ChangeInProgress&) = delete;
    ChangeInProgress& operator=(const ChangeInProgress&) = delete;

private:
    ReadAhead& ahead_;
};

/// A caller's turn to ask for the quotas of a filesystem: waits until nobody else does.
class ReadAhead::QuotasTurn {
public:
    QuotasTurn(ReadAhead& ahead, Lock& lock, std::string_view filesystem)
        : ahead_(ahead), filesystem_(filesystem) {
        const NoCancellation noCancellation;
        std::vector<std::string>& names = ahead_.quotasInProgress_;
        ahead_.jobEnded_.wait(lock, [&] {
            return std::find(names.begin(), names.end(), filesystem_) == names.end();
        });
        names.push_back(filesystem_);
    }
    ~QuotasTurn() {
        const Lock lock(ahead_.mutex_);
        ahead_.EndQuotas(filesystem_);
    }
    QuotasTurn(const QuotasTurn&) = delete;
    QuotasTurn& operator=(const QuotasTurn&) = delete;

private:
    ReadAhead& ahead_;
    std::string filesystem_;
};

ReadAhead::ReadAhead(CommandExecutor executor, const PrefetchingOptions& options)
    : executor_(std::move(executor)),
      options_(options), getAll_{"/usr/bin/env -i zfs get all ",
                                 options.batching.namesPerCommand > 1},
      userspace_{"/usr/bin/env -i zfs userspace "}, groupspace_{"/usr/bin/env -i zfs groupspace "},
      poolStatus_{"/usr/bin/env -i zpool status "}, poolGetAll_{"/usr/bin/env -i zpool get all "},
      snapshotList_{snapshotList}, volumeList_{volumeList},
      pace_(options.batching.namesPerCommand) {}

ReadAhead::~ReadAhead() {
    const NoCancellation noCancellation;
    {
        const Lock lock(mutex_);
        isEnding_ = true;
        DropAll();
    }
    mayWork_.notify_all();
    for (std::thread& worker : workers_)
        worker.join();
}

std::string ReadAhead::Run(const std::string& command) {
    if (util::str_is_starts_with(command, filesystemList))
        return RunList(command, datasets_, {&getAll_, &userspace_, &groupspace_});
    if (util::str_is_starts_with(command, datasetList))
        return RunList(command, datasets_, {&getAll_});
    if (command == poolList)
        return RunList(command, pools_, {&poolStatus_, &poolGetAll_});
    return OnlyReads(command) ? RunRead(command) : RunChange(command);
}

std::string ReadAhead::RunList(const std::string& command, Plan& plan,
                               std::vector<FollowingCommand*> following) {
    {
        const Lock lock(mutex_);
        Drop(plan); // those who asked for it are through, or will see other names
    }
    std::string output = RunRead(command);
    {
        const Lock lock(mutex_);
        Drop(plan);
        if (&plan == &datasets_) {
            plan.Assign(std::move(following), output, '\t'); // from "tank/home\t1G\t96K\t0"
            ForeseeList(command);
        } else {
            plan.Assign(std::move(following),
                        output.substr(std::min(output.find('\n'), output.size())),
                        ' '); // from "tank  10G  1G", below a header
        }
        plan.isReadAhead = changes_ == 0;
        if (!plan.steps.empty())
            StartWorkers();
        window_ = std::min(workers_.size(), options_.commandsAhead);
    }
    mayWork_.notify_all();
    return output;
}

/// Below a root, an enumeration lists the filesystems, then the snapshots, then the volumes.
void ReadAhead::ForeseeList(const std::string& command) {
    if (!lists_.steps.empty() && lists_.next == 0)
        lists_.CommandOf(0).isWanted = false; // nobody asked for the list that was foreseen
    Drop(lists_);
    lists_.Assign({}, "", '\n');
    if (util::str_is_starts_with(command, filesystemList))
        lists_.Assign({&snapshotList_}, command.substr(filesystemList.size()), '\n');
    else if (util::str_is_starts_with(command, snapshotList))
        lists_.Assign({&volumeList_}, command.substr(snapshotList.size()), '\n');
    lists_.isReadAhead = changes_ == 0;
}

std::string ReadAhead::RunChange(const std::string& command) {
    const ChangeInProgress change(*this);
    return executor_(command);
}

std::string ReadAhead::RunRead(const std::string& command) {
    bool isBatched = false;
    std::optional<QuotasTurn> turn;
    Lock lock(mutex_);
    for (;;) { // each time round, others may have changed everything
        Plan* plan = nullptr;
        std::optional<std::size_t> step;
        for (auto each = plans_.begin(); !step && each != plans_.end(); ++each)
            step = (plan = *each)->Find(command);
        if (!step)
            break;
        FollowingCommand& following = plan->CommandOf(*step);
        Plan::Step& planned = plan->steps[*step];
        following.isWanted = true;
        isBatched = following.isBatched;
        plan->next = *step + 1;
        if (IsWindowFull())
            DropPassed(*plan);

        const std::shared_ptr<Job> job = planned.job;
        if (job && job->state == Job::State::Running) {
            const NoCancellation noCancellation;
            jobEnded_.wait(lock, [&job] { return job->state != Job::State::Running; });
        } else if (job) {
            return TakeAnswer(*plan, *step);
        } else {
            const std::size_t count = isBatched && !planned.isTried ? BatchSize(*plan, *step) : 1;
            if (count < 2) {
                planned.isTried = true;
                if (IsQuota(following) && !turn) {
                    turn.emplace(*this, lock, plan->NameOf(*step));
                    continue; // the names may be others by now
                }
                break;
            }
            DropOldest();
            RunJob(lock, MakeJob(*plan, *step, count));
        }
    }
    lock.unlock();
    std::string output = executor_(command);
    if (isBatched) {
        // So that it does not matter to the caller which datasets were in a batch.
        const std::string_view name = std::string_view(command).substr(getAll_.line.size());
        GetAnswer answer = SplitGetAnswer(output, {name});
        if (answer.single.front())
            return *std::move(answer.single.front());
    }
    return output;
}

/// How many names to ask for with the one of the step: those that follow in the list, were not
/// asked for yet and fit into one command line. 0 when not even that one fits.
std::size_t ReadAhead::BatchSize(const Plan& plan, std::size_t step) {
    constexpr std::size_t leastForEach =
        32; // below, the start of a command costs more than its work
    std::size_t most = pace_.Take();
    if (!workers_.empty()) {
        const std::size_t left = (plan.steps.size() - step) / plan.Stride() + 1;
        most = std::min(most, std::max(leastForEach, left / workers_.size()));
    }
    std::size_t length = plan.CommandOf(step).line.size();
    std::size_t count = 0;
    for (; step < plan.steps.size(); step += plan.Stride()) {
        most = std::min<std::size_t>(most, plan.steps[step].most);
        length += plan.NameOf(step).size() + 1;
        if (count >= most || plan.steps[step].isTried ||
            length - 1 > options_.batching.commandLength)
            break;
        ++count;
    }
    return count;
}

std::shared_ptr<Job> ReadAhead::MakeJob(Plan& plan, std::size_t step, std::size_t count) {
    auto job = std::make_shared<Job>();
    job->plan = &plan;
    job->firstStep = step;
    job->count = count;
    job->bytes = pace_.Expected(count);
    job->command = plan.CommandOf(step).line;
    for (std::size_t i = 0; i < count; ++i)
        job->command.append(i == 0 ? "" : " ").append(plan.NameOf(step + i * plan.Stride()));
    jobs_.push_back(job);
    for (std::size_t i = 0; i < count; ++i) {
        Plan::Step& planned = plan.steps[step + i * plan.Stride()];
        planned.job = job;
        planned.isTried = true;
    }
    return job;
}

void ReadAhead::RunJob(Lock& lock, const std::shared_ptr<Job>& job) {
    const bool isBatched = job->plan->CommandOf(job->firstStep).isBatched;
    lock.unlock();
    Outcome outcome = Execute(*job, isBatched);
    lock.lock();
    if (job->state != Job::State::Over)
        Finish(*job, outcome);
    jobEnded_.notify_all();
}

ReadAhead::Outcome ReadAhead::Execute(const Job& job, bool isBatched) const noexcept {
    const NoCancellation noCancellation;
    Outcome outcome;
    try {
        std::string output = executor_(job.command);
        outcome.size = output.size();
        if (!isBatched) {
            outcome.answer.single.emplace_back(std::move(output));
            outcome.isAnswered = true;
            return outcome;
        }
        std::vector<std::string_view> names;
        std::string_view rest = std::string_view(job.command).substr(getAll_.line.size());
        while (!rest.empty())
            names.push_back(util::ConsumeWord(rest));
        outcome.answer = SplitGetAnswer(output, names);
        std::vector<std::optional<std::string>>& single = outcome.answer.single;
        if (names.size() == 1 && !single.front())
            single.front() = std::move(output);
        outcome.isAnswered = std::any_of(single.begin(), single.end(),
                                         [](const auto& answer) { return answer.has_value(); });
        outcome.isHopeless = outcome.answer.error == nullptr;
        if (!outcome.isAnswered)
            LogFailure(job.command,
                       outcome.isHopeless ? "no row has its cells in place" : outcome.answer.error);
    } catch (const std::exception& error) {
        outcome.isHopeless = IsHopeless(error, outcome.isStopped);
        LogFailure(job.command, error.what());
    } catch (...) {
        LogFailure(job.command, "unknown failure");
    }
    return outcome;
}

void ReadAhead::Finish(Job& job, Outcome& outcome) {
    if (!outcome.isAnswered)
        return Fail(job, outcome);
    Plan& plan = *job.plan;
    if (job.count > 1)
        pace_.Succeeded(job.count, outcome.size, outcome.answer.padding);
    job.state = Job::State::Done;
    job.answers = std::move(outcome.answer.single);
    job.bytes = 0;
    for (std::size_t i = 0; i < job.count; ++i) {
        const std::size_t step = job.firstStep + i * plan.Stride();
        if (job.answers[i]) {
            ++job.answersLeft;
            job.bytes += job.answers[i]->size();
            continue;
        }
        plan.steps[step] = {nullptr, 1, false};
        plan.frontier = std::min(plan.frontier, step);
    }
}

void ReadAhead::Fail(Job& job, const Outcome& outcome) {
    Plan& plan = *job.plan;
    if (outcome.isStopped)
        ReadNothingAhead();
    if (job.count == 1) {
        FollowingCommand& following = plan.CommandOf(job.firstStep);
        following.isWanted = following.isBatched;
        End(job);
        return;
    }
    const std::size_t most = pace_.Failed(outcome.isHopeless) ? job.count / 2 : 1;
    for (std::size_t i = 0; i < job.count; ++i)
        plan.steps[job.firstStep + i * plan.Stride()] = {nullptr, static_cast<std::uint32_t>(most),
                                                         false};
    plan.frontier = std::min(plan.frontier, job.firstStep);
    End(job);
}

std::string ReadAhead::TakeAnswer(Plan& plan, std::size_t step) {
    const std::shared_ptr<Job> job = std::exchange(plan.steps[step].job, nullptr);
    std::optional<std::string>& answer = job->answers[(step - job->firstStep) / plan.Stride()];
    std::string text = *std::exchange(answer, std::nullopt);
    job->bytes -= text.size();
    const bool endsJob = --job->answersLeft == 0;
    if (endsJob)
        End(*job);
    if (endsJob || window_ < options_.commandsAhead)
        mayWork_.notify_one();
    window_ = std::min(window_ + 1, options_.commandsAhead);
    return text;
}

/// Takes the job off its steps and off the list.
void ReadAhead::End(Job& job) noexcept {
    job.state = Job::State::Over;
    job.stop = true;
    for (std::size_t i = 0; i < job.count; ++i) {
        Plan::Step& planned = job.plan->steps[job.firstStep + i * job.plan->Stride()];
        if (planned.job.get() == &job)
            planned.job.reset();
    }
    const auto isIt = [&job](const std::shared_ptr<Job>& other) { return other.get() == &job; };
    jobs_.erase(std::remove_if(jobs_.begin(), jobs_.end(), isIt), jobs_.end());
}

/// Nothing that was read for the plan so far is given to anybody.
void ReadAhead::Drop(Plan& plan) noexcept {
    plan.isReadAhead = false;
    for (std::size_t i = jobs_.size(); i > 0; --i)
        if (jobs_[i - 1]->plan == &plan)
            End(*jobs_[i - 1]);
    jobEnded_.notify_all();
}

void ReadAhead::DropAll() noexcept {
    for (Plan* plan : plans_)
        Drop(*plan);
}

/// Until the next list.
void ReadAhead::ReadNothingAhead() noexcept {
    for (Plan* plan : plans_)
        plan->isReadAhead = false;
}

/// Makes room for what is still to come: drops what the caller did not ask for when it went by.
void ReadAhead::DropPassed(const Plan& plan) noexcept {
    const std::size_t currentName = (plan.next - 1) / plan.Stride();
    for (std::size_t i = jobs_.size(); i > 0; --i) {
        Job& job = *jobs_[i - 1];
        const std::size_t lastName = job.firstStep / plan.Stride() + job.count - 1;
        if (job.plan != &plan || job.state != Job::State::Done || lastName >= currentName)
            continue;
        if (job.answersLeft == job.count)
            plan.CommandOf(job.firstStep).isWanted = false;
        End(job);
        mayWork_.notify_one();
    }
}

/// Makes room for a caller that asks in an order of its own.
void ReadAhead::DropOldest() noexcept {
    while (jobs_.size() > 2 * options_.commandsAhead || HeldBytes() >= options_.bytesAhead) {
        const auto oldest =
            std::find_if(jobs_.begin(), jobs_.end(), [](const std::shared_ptr<Job>& job) {
                return job->state == Job::State::Done;
            });
        if (oldest == jobs_.end())
            return;
        End(**oldest);
    }
}

void ReadAhead::StartWorkers() {
    if (!workers_.empty() || options_.workers == 0)
        return;
    const posix::internal::BlockedSignals blockedSignals;
    try {
        workers_.reserve(options_.workers);
        while (workers_.size() < options_.workers)
            workers_.emplace_back(&ReadAhead::Work, this);
    } catch (const std::system_error& error) {
        LogFailure("thread", error.what());
    }
}

void ReadAhead::Work() noexcept {
    Lock lock(mutex_);
    while (!isEnding_) {
        const std::shared_ptr<Job> job = NextJob();
        if (!job) {
            mayWork_.wait(lock);
            continue;
        }
        mayWork_.notify_one(); // there may be room for another
        ++busyWorkers_;
        const posix::internal::ThreadStop stop(job->stop);
        RunJob(lock, job);
        --busyWorkers_;
        if (!job->quotasOf.empty())
            EndQuotas(job->quotasOf);
        jobEnded_.notify_all();
    }
}

/// The next command to run ahead; none when there is none, or no room for its answer.
std::shared_ptr<Job> ReadAhead::NextJob() {
    try {
        if (changes_ > 0 || IsWindowFull())
            return nullptr;
        for (Plan* plan : plans_) {
            plan->frontier = std::max(plan->frontier, plan->next);
            bool isFirst = true; // of those that can be read ahead, now or later
            for (std::size_t step = plan->frontier; plan->isReadAhead && step < plan->steps.size();
                 ++step) {
                const FollowingCommand& following = plan->CommandOf(step);
                if (plan->steps[step].isTried || !following.isWanted)
                    continue;
                if (std::exchange(isFirst, false))
                    plan->frontier = step;
                const std::string filesystem(IsQuota(following) ? plan->NameOf(step) : "");
                const auto& busy = quotasInProgress_;
                if (!filesystem.empty() &&
                    std::find(busy.begin(), busy.end(), filesystem) != busy.end())
                    continue;
                const std::size_t count = following.isBatched ? BatchSize(*plan, step) : 1;
                auto job = MakeJob(*plan, step, std::max<std::size_t>(count, 1));
                if (!filesystem.empty())
                    quotasInProgress_.push_back(job->quotasOf = filesystem);
                return job;
            }
        }
    } catch (const std::bad_alloc&) {
        ReadNothingAhead();
    }
    return nullptr;
}

bool ReadAhead::IsQuota(const FollowingCommand& following) const noexcept {
    return &following == &userspace_ || &following == &groupspace_;
}

void ReadAhead::EndQuotas(const std::string& filesystem) noexcept {
    auto& names = quotasInProgress_;
    names.erase(std::find(names.begin(), names.end(), filesystem));
    jobEnded_.notify_all();
    mayWork_.notify_one();
}

bool ReadAhead::IsWindowFull() const noexcept {
    return jobs_.size() >= window_ || HeldBytes() >= options_.bytesAhead;
}

std::size_t ReadAhead::HeldBytes() const noexcept {
    std::size_t bytes = 0;
    for (const std::shared_ptr<Job>& job : jobs_)
        bytes += job->bytes;
    return bytes;
}

} // namespace zfslib::executors
