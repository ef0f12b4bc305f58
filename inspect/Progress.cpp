#include "inspect/Progress.h"

#include "inspect/Escape.h"
#include "util/str.h"

#include <algorithm>
#include <string_view>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace inspect {
namespace {

constexpr std::string_view environment = "/usr/bin/env -i ";

/// The words of a command line behind "/usr/bin/env -i zfs VERB "; empty for every other command.
std::vector<std::string> ZfsOperands(const std::string& command, const std::string& verb) {
    const std::string prefix = std::string(environment) + "zfs " + verb + " ";
    if (!util::str_is_starts_with(command, prefix))
        return {};
    return util::split(command.substr(prefix.size()));
}

} // namespace

std::size_t TerminalColumns() {
    constexpr std::size_t usual = 80;
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : usual;
}

Progress::Progress(std::ostream& terminal, std::function<std::size_t()> columns,
                   std::chrono::milliseconds patience)
    : terminal_(terminal), columns_(std::move(columns)), patience_(patience),
      timer_([this] { WatchTheTime(); }) {}

Progress::~Progress() {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        isOver_ = true;
        Erase();
    }
    over_.notify_one();
    timer_.join();
}

/// The time for which a command is waited for.
class Progress::Waiting {
public:
    Waiting(Progress& progress, const std::string& command) : progress_(progress) {
        progress_.BeforeCommand(command);
    }
    ~Waiting() { progress_.AfterCommand(); }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;

private:
    Progress& progress_;
};

zfslib::CommandExecutor Progress::Watch(zfslib::CommandExecutor executor) {
    return [this, executor = std::move(executor)](const std::string& command) {
        std::string output;
        {
            const Waiting waiting(*this, command);
            output = executor(command);
        }
        AfterList(command, output);
        return output;
    };
}

void Progress::BeforeCommand(const std::string& command) {
    const std::lock_guard<std::mutex> lock(mutex_);
    waitedFor_ = command;
    if (util::str_is_starts_with(waitedFor_, environment))
        waitedFor_.erase(0, environment.size());
    waitedSince_ = Clock::now();

    const std::vector<std::string> operands = ZfsOperands(command, "get");
    if (operands.empty() || begun_ >= listed_)
        return;
    ++begun_;
    constexpr std::chrono::milliseconds pause{
        50}; // a batch or a replay answers faster than one reads
    if (drawn_.empty() || waitedSince_ - drawnAt_ >= pause)
        Draw(util::str_format("%1 %2 of %3: %4", type_, begun_, listed_, operands.back()));
}

void Progress::AfterCommand() {
    const std::lock_guard<std::mutex> lock(mutex_);
    waitedFor_.clear();
    if (std::exchange(showsWaiting_, false))
        Erase();
}

void Progress::AfterList(const std::string& command, const std::string& output) {
    const std::vector<std::string> operands = ZfsOperands(command, "list");
    const auto option = std::find(operands.begin(), operands.end(), "-t");
    if (option == operands.end() || std::next(option) == operands.end())
        return;
    const std::lock_guard<std::mutex> lock(mutex_);
    type_ = *std::next(option);
    listed_ = static_cast<std::size_t>(std::count(output.begin(), output.end(), '\n'));
    begun_ = 0;
}

/// Looks some times a second, which also follows a change of the terminal's width. To be told of
/// each command would cost every one of them a change of threads.
void Progress::WatchTheTime() {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!over_.wait_for(lock, patience_ / 8, [this] { return isOver_; })) {
        const auto waited = Clock::now() - waitedSince_;
        if (waitedFor_.empty() || waited < patience_)
            continue;
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(waited).count();
        Draw(util::str_format("waiting %1 s: %2", seconds, waitedFor_));
        showsWaiting_ = true;
    }
}

void Progress::Draw(const std::string& line) {
    const std::string escaped = Escape(line);
    const std::string_view shown = CutToColumns(escaped, WritableColumns());
    if (shown == drawn_)
        return;
    Erase();
    terminal_ << shown << std::flush;
    drawn_ = shown;
    drawnAt_ = Clock::now();
}

void Progress::Erase() {
    // Of a line that is longer than the terminal has become, this is what stands in its last row.
    const std::size_t columns = std::min(Columns(drawn_), WritableColumns());
    if (!drawn_.empty())
        terminal_ << '\r' << std::string(columns, ' ') << '\r' << std::flush;
    drawn_.clear();
}

/// The last column stays free: some terminals go to the next line when it is written to.
std::size_t Progress::WritableColumns() const {
    return std::max<std::size_t>(columns_(), 1) - 1;
}

} // namespace inspect
