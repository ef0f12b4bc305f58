#include "restore/Apply.h"

#include "posix/CSimpleCmdExec.h"
#include "restore/internal/PropertyWords.h"
#include "util/ShellWord.h"
#include "util/str.h"
#include "zfstools/logging.h"

#include <algorithm>
#include <exception>
#include <string_view>
#include <utility>

namespace zfslib::restore {
namespace {

using posix::CCommandFailure;

bool IsStop(const std::exception& error) {
    const auto* failure = dynamic_cast<const CCommandFailure*>(&error);
    return failure != nullptr && failure->GetKind() == CCommandFailure::Kind::Stopped;
}

/// Failed when the command has changed nothing, or the tool said that it refused.
Outcome OutcomeOf(const std::exception& error) {
    const auto* failure = dynamic_cast<const CCommandFailure*>(&error);
    if (failure == nullptr)
        return Outcome::Failed;
    switch (failure->GetKind()) {
    case CCommandFailure::Kind::CannotStart:
    case CCommandFailure::Kind::ExitStatus:
    case CCommandFailure::Kind::NotConnected:
        return Outcome::Failed;
    default:
        return Outcome::Unknown;
    }
}

/// The words of a command for a shell; the tool and its verb stand as they always do.
std::string CommandLine(const std::vector<std::string>& words) {
    std::string line;
    for (std::size_t i = 0; i < words.size(); ++i)
        line += i == 0 ? words[i] : i == 1 ? " " + words[i] : " " + util::ShellWord(words[i]);
    return line;
}

/// The command that tells what has become of what a step changes; empty when there is none.
std::string ReadBackCommand(const Step& step) {
    switch (step.action) {
    case Action::Set:
    case Action::Inherit:
    case Action::LoadKey:
    case Action::ChangeKey:
    case Action::Mount:
    case Action::Unmount:
        break;
    default:
        return {};
    }
    if (step.property.empty() || !step.willBe)
        return {};
    std::string command = step.words.front() + " get -Hp -o value,source " +
                          util::ShellOperand(step.property) + " " + util::ShellWord(step.object);
    return step.device.empty() ? command : command + " " + util::ShellWord(step.device);
}

/// Whether a value is the one that was foreseen, perhaps in another word of the tool's.
bool IsReached(const Step& step, std::string_view value) {
    using internal::Canonical;
    if (Canonical(step.property, value, {}) == Canonical(step.property, *step.willBe, {}))
        return true;
    if (step.words.front() != "zpool")
        return false;
    // A pool's text that is taken away prints as "-", and an enabled feature may be in use at once.
    return (step.willBe->empty() && value == "-") || (*step.willBe == "none" && value == "0") ||
           (util::str_is_starts_with(step.property, "feature@") && step.willBe == "enabled" &&
            value == "active");
}

class Applier {
public:
    Applier(const Plan& plan, const CommandExecutor& executor, const ApplyOptions& options)
        : plan_(plan), executor_(executor), options_(options), because_(plan.steps.size()) {}

    ApplyResult Run() && {
        const auto isWanted = [this](const Step& step) {
            return options_.part == ApplyOptions::Part::All ||
                   IsBeforeData(step.phase) == (options_.part == ApplyOptions::Part::BeforeData);
        };
        const auto count = static_cast<std::size_t>(
            std::count_if(plan_.steps.begin(), plan_.steps.end(), isWanted));
        for (std::size_t i = 0; i < plan_.steps.size(); ++i) {
            if (!isWanted(plan_.steps[i]))
                continue;
            StepReport report = RunStep(i);
            report.step = i;
            report.reported = result_.steps.size() + 1;
            report.count = count;
            if (report.outcome != Outcome::Done)
                because_[i] = report.because.value_or(i);
            result_.steps.push_back(report);
            if (options_.report)
                options_.report(report);
        }
        return std::move(result_);
    }

private:
    StepReport RunStep(std::size_t place) {
        const Step& step = plan_.steps[place];
        StepReport report;
        for (const std::size_t need : step.needs)
            if (because_.at(need)) {
                report.outcome = Outcome::Skipped;
                report.because = because_[need];
                return report;
            }
        if (!step.asksFor.empty()) {
            report.outcome = Outcome::ForAPerson;
            report.text = step.asksFor;
            return report;
        }
        try {
            const std::string output = Execute(CommandLine(step.words));
            // A name that the host does not know makes it explain itself, and end with 0.
            if (step.action == Action::Allow && !output.empty()) {
                report.outcome = Outcome::Failed;
                report.text = output.substr(output.rfind('\n', output.size() - 2) + 1);
                return report;
            }
        } catch (const std::exception& error) {
            if (IsStop(error))
                throw;
            report.outcome = OutcomeOf(error);
            report.text = error.what();
            return report;
        }
        ReadBack(step, report);
        return report;
    }

    void ReadBack(const Step& step, StepReport& report) {
        const std::string command = ReadBackCommand(step);
        if (command.empty())
            return;
        std::string answer;
        try {
            answer = Execute(command);
        } catch (const std::exception& error) {
            if (IsStop(error))
                throw;
            // A tool that cannot be asked so has done what it was told nevertheless.
            if (OutcomeOf(error) == Outcome::Unknown)
                report.outcome = Outcome::Unknown;
            report.text = std::string("not read back: ") + error.what();
            return;
        }
        // A value may hold tabs and newlines; a source holds neither.
        const std::size_t tab = answer.rfind('\t');
        const std::string value = answer.substr(0, tab);
        const std::string source =
            tab == std::string::npos ? "" : answer.substr(tab + 1, answer.size() - tab - 2);
        if (IsReached(step, value))
            return;
        report.outcome = Outcome::NotReached;
        report.text = "there is [" + value + "], source " + source;
    }

    std::string Execute(const std::string& command) const {
        const std::string line = "/usr/bin/env -i " + command;
        _log.dbg("Execute command: [%1]", line);
        std::string output = executor_(line);
        _log.dbg("Command output: [%1]", output);
        return output;
    }

    const Plan& plan_;
    const CommandExecutor& executor_;
    const ApplyOptions& options_;
    /// Of each step that is not done, the one to look at.
    std::vector<std::optional<std::size_t>> because_;
    ApplyResult result_;
};

} // namespace

std::size_t ApplyResult::Count(Outcome outcome) const noexcept {
    return static_cast<std::size_t>(
        std::count_if(steps.begin(), steps.end(),
                      [outcome](const StepReport& step) { return step.outcome == outcome; }));
}

ApplyResult Apply(const Plan& plan, const CommandExecutor& executor, const ApplyOptions& options) {
    return Applier(plan, executor, options).Run();
}

} // namespace zfslib::restore
