#include "zfstools/Executor.h"

#include "posix/CSimpleCmdExec.h"
#include "util/internal/NeverDestroyed.h"
#include "util/str.h"

#include <stdexcept>
#include <utility>
#include <vector>

namespace zfslib::Executors {
namespace {

struct Slots {
    CommandExecutor df = &posix::CSimpleCmdExec::RunCommand;
    CommandExecutor zpool = &posix::CSimpleCmdExec::RunCommand;
    CommandExecutor process = &ChildProcessExecute;
};

Slots& TheSlots() {
    static util::internal::NeverDestroyed<Slots> slots;
    return *slots;
}

std::string ExecuteWords(const std::string& command, int timeoutSeconds) {
    std::vector<std::string> words = util::split(command);
    if (words.empty())
        throw std::runtime_error("Command is empty. ");
    const std::string program = std::move(words.front());
    words.erase(words.begin());

    std::string firstText;
    std::string secondText;
    posix::CSimpleCmdExec::RunCommandAndGetOutput(program, words, firstText, secondText, false,
                                                  timeoutSeconds);
    // The second text leads: it is standard output, where the parsers look for the tools' headers.
    std::string output = std::move(secondText);
    if (!firstText.empty())
        output += "\n" + firstText;
    return output;
}

} // namespace

CommandExecutor GetDfExecutor() {
    return TheSlots().df;
}

void SetDfExecutor(CommandExecutor executor) {
    TheSlots().df.swap(executor);
}

CommandExecutor GetZpoolExecutor() {
    return TheSlots().zpool;
}

void SetZpoolExecutor(CommandExecutor executor) {
    TheSlots().zpool.swap(executor);
}

CommandExecutor GetProcessExecutor() {
    return TheSlots().process;
}

void SetProcessExecutor(CommandExecutor executor) {
    TheSlots().process.swap(executor);
}

std::string ChildProcessExecute(const std::string& command) {
    return ExecuteWords(command, 0);
}

CommandExecutor TimedChildProcessExecutor(int timeoutSeconds) {
    return [timeoutSeconds](const std::string& command) {
        return ExecuteWords(command, timeoutSeconds);
    };
}

CommandExecutor TimedShellExecutor(int timeoutSeconds) {
    return [timeoutSeconds](const std::string& command) {
        return posix::CSimpleCmdExec::RunShellCommand(command, timeoutSeconds);
    };
}

} // namespace zfslib::Executors
