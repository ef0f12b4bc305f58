#include "inspect/Progress.h"

#include "inspect/Escape.h"
#include "util/str.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace inspect {
namespace {

/// The words of a command line behind "/usr/bin/env -i zfs VERB "; empty for every other command.
std::vector<std::string> ZfsOperands(const std::string& command, const std::string& verb) {
    const std::string prefix = "/usr/bin/env -i zfs " + verb + " ";
    if (!util::str_is_starts_with(command, prefix))
        return {};
    return util::split(command.substr(prefix.size()));
}

} // namespace

zfslib::CommandExecutor Progress::Watch(zfslib::CommandExecutor executor) {
    return [this, executor = std::move(executor)](const std::string& command) {
        BeforeCommand(command);
        std::string output = executor(command);
        AfterCommand(command, output);
        return output;
    };
}

void Progress::BeforeCommand(const std::string& command) {
    const std::vector<std::string> operands = ZfsOperands(command, "get");
    if (operands.empty() || begun_ >= listed_)
        return;
    ++begun_;
    Draw(util::str_format("%1 %2 of %3: %4", type_, begun_, listed_, operands.back()));
}

void Progress::AfterCommand(const std::string& command, const std::string& output) {
    const std::vector<std::string> operands = ZfsOperands(command, "list");
    const auto option = std::find(operands.begin(), operands.end(), "-t");
    if (option == operands.end() || std::next(option) == operands.end())
        return;
    type_ = *std::next(option);
    listed_ = static_cast<std::size_t>(std::count(output.begin(), output.end(), '\n'));
    begun_ = 0;
}

void Progress::Draw(const std::string& line) {
    constexpr std::size_t terminalColumns = 79;
    constexpr std::chrono::milliseconds pause{
        50}; // a batch or a replay answers faster than one reads
    const auto now = std::chrono::steady_clock::now();
    if (drawnColumns_ != 0 && now - drawnAt_ < pause)
        return;
    Erase();
    const std::string escaped = Escape(line);
    const std::string_view shown = CutToColumns(escaped, terminalColumns);
    terminal_ << shown << std::flush;
    drawnColumns_ = Columns(shown);
    drawnAt_ = now;
}

void Progress::Erase() {
    if (drawnColumns_ != 0)
        terminal_ << '\r' << std::string(drawnColumns_, ' ') << '\r' << std::flush;
    drawnColumns_ = 0;
}

} // namespace inspect
