#include "zfstools/Executor.h"

#include "posix/CSimpleCmdExec.h"
#include "util/str.h"

#include <stdexcept>
#include <utility>
#include <vector>

namespace zfslib::Executors {
namespace {

CommandExecutor dfExecutor = &posix::CSimpleCmdExec::RunCommand;
CommandExecutor zpoolExecutor = &posix::CSimpleCmdExec::RunCommand;
CommandExecutor processExecutor = &ChildProcessExecute;

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
    return dfExecutor;
}

void SetDfExecutor(CommandExecutor executor) {
    dfExecutor.swap(executor);
}

CommandExecutor GetZpoolExecutor() {
    return zpoolExecutor;
}

void SetZpoolExecutor(CommandExecutor executor) {
    zpoolExecutor.swap(executor);
}

CommandExecutor GetProcessExecutor() {
    return processExecutor;
}

void SetProcessExecutor(CommandExecutor executor) {
    processExecutor.swap(executor);
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
