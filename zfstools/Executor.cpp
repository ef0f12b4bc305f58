#include "zfstools/Executor.h"

#include "posix/CSimpleCmdExec.h"
#include "util/internal/NeverDestroyed.h"
#include "util/str.h"
#include "zfstools/logging.h"

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

struct Answer {
    std::string output;
    std::string errorText;
};

Answer ExecuteWords(const std::string& command, int timeoutSeconds) {
    std::vector<std::string> words = util::split(command);
    if (words.empty())
        throw std::runtime_error("Command is empty. ");
    const std::string program = std::move(words.front());
    words.erase(words.begin());

    Answer answer;
    posix::CSimpleCmdExec::RunCommandAndGetOutput(program, words, answer.errorText, answer.output,
                                                  false, timeoutSeconds);
    return answer;
}

Answer ExecuteLine(const std::string& line, int timeoutSeconds) {
    Answer answer;
    answer.output = posix::CSimpleCmdExec::RunShellCommand(line, timeoutSeconds, answer.errorText);
    return answer;
}

/// Both texts in one, standard output first: there the parsers look for the tools' headers.
std::string Joined(Answer answer) {
    if (!answer.errorText.empty())
        answer.output += "\n" + answer.errorText;
    return std::move(answer.output);
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
    return Joined(ExecuteWords(command, 0));
}

CommandExecutor TimedChildProcessExecutor(int timeoutSeconds) {
    return [timeoutSeconds](const std::string& command) {
        return Joined(ExecuteWords(command, timeoutSeconds));
    };
}

CommandExecutor ChildExecutor(ChildOptions options) {
    return [options = std::move(options)](const std::string& command) {
        Answer answer = options.shell ? ExecuteLine(command, options.timeoutSeconds)
                                      : ExecuteWords(command, options.timeoutSeconds);
        if (answer.errorText.empty())
            return std::move(answer.output);
        if (options.standardError)
            options.standardError(command, answer.errorText);
        else
            _log.dbg("Command [%1] wrote to standard error: [%2]", command, answer.errorText);
        return std::move(answer.output);
    };
}

CommandExecutor TimedShellExecutor(int timeoutSeconds) {
    return [timeoutSeconds](const std::string& command) {
        return posix::CSimpleCmdExec::RunShellCommand(command, timeoutSeconds);
    };
}

} // namespace zfslib::Executors
