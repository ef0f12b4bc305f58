#include "inspect/Escape.h"
#include "inspect/ExecutorChain.h"
#include "inspect/Gather.h"
#include "inspect/HealthView.h"
#include "inspect/Interruption.h"
#include "inspect/JsonView.h"
#include "inspect/Options.h"
#include "inspect/PlanView.h"
#include "inspect/Progress.h"
#include "inspect/TextView.h"
#include "inspect/ToolWarnings.h"
#include "logging/logging.h"
#include "util/str.h"

#include <exception>
#include <fcntl.h>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unistd.h>
#include <variant>

namespace {

using namespace inspect;

void PrintError(std::string_view message) {
    std::cerr << "zfsinspect: " + Escape(Fold(message)) + "\n";
}

/// Opens what the caller closed of the first three descriptors, for reading: a recording must not
/// become the standard output, and writing to a closed one stays the failure it is.
void OccupyStandardDescriptors() {
    int descriptor = 0;
    while (descriptor >= 0 && descriptor <= STDERR_FILENO)
        descriptor = open("/dev/null", O_RDONLY);
    if (descriptor >= 0)
        close(descriptor);
}

void LogToStandardError() {
    logging::SetSink(
        [](logging::Level level, const std::string& section, const std::string& message) {
            static constexpr const char* names[] = {"debug", "info", "warning", "error"};
            const std::string prefix = names[static_cast<int>(level)] + (" " + section + ": ");
            std::string lines;
            std::string_view rest = message;
            do {
                const std::string_view line = rest.empty() ? rest : util::ConsumeLine(rest);
                lines += prefix + Escape(line) + "\n";
            } while (!rest.empty());
            std::cerr << lines;
        });
}

void PrintWarning(const std::string& message) {
    PrintError("warning: " + message);
}

/// A run that failed has recorded all that it asked for; an interrupted one has not.
Report GatherAndClose(const Options& options, const InstalledExecutor& installed) {
    const auto close = [&installed] {
        if (Interruption::Signal() == 0)
            installed.CloseRecording();
    };
    try {
        Report report = Gather(options, installed.Executor());
        close();
        return report;
    } catch (const std::exception&) {
        try {
            close();
        } catch (const std::exception&) { // NOLINT(bugprone-empty-catch)
            // The first failure says more.
        }
        throw;
    }
}

Report GatherUnlessInterrupted(const Options& options) {
    const Interruption interruption; // also while a connection to another host is ended
    ToolWarnings warnings(PrintWarning);
    std::optional<Progress> progress;
    if (isatty(STDERR_FILENO) != 0 && !options.verbose)
        progress.emplace(std::cerr, TerminalColumns);
    const InstalledExecutor installed(options, progress ? &*progress : nullptr, warnings);
    for (const std::string& missing : installed.Missing())
        PrintWarning(missing);
    Report report = GatherAndClose(options, installed);
    Interruption::Check();
    installed.CheckHost();
    return report;
}

void PrintWarnings(const Report& report) {
    if (const auto* datasets = std::get_if<DatasetsReport>(&report))
        for (const std::string& warning : datasets->warningLines)
            PrintWarning(warning);
    if (const auto* plan = std::get_if<PlanReport>(&report))
        for (const std::string& warning : plan->warnings)
            PrintWarning(warning);
}

void FlushOutput() {
    if (!std::cout.flush())
        throw std::runtime_error("cannot write to standard output");
}

int Run(int argc, const char* const* argv) {
    const auto parsed = ParseCommandLine(argc, argv);
    if (const auto* nothing = std::get_if<NothingToDo>(&parsed)) {
        if (nothing->exitStatus != 0)
            PrintError(nothing->message + " (see zfsinspect --help)");
        else
            std::cout << nothing->message;
        FlushOutput();
        return nothing->exitStatus;
    }
    const Options& options = std::get<Options>(parsed);
    if (options.verbose)
        LogToStandardError();
    const Report report = GatherUnlessInterrupted(options);
    PrintWarnings(report);
    const auto* const health = std::get_if<HealthReport>(&report);
    const auto* const plan = std::get_if<PlanReport>(&report);
    if (options.json)
        PrintJson(std::cout, report);
    else if (health != nullptr && options.metrics)
        PrintHealthMetrics(std::cout, *health);
    else if (plan != nullptr && options.script)
        PrintPlanScript(std::cout, *plan);
    else
        PrintText(std::cout, report);
    FlushOutput();
    const std::string missing = Incompleteness(report);
    if (!missing.empty()) {
        PrintError(missing);
        return 1;
    }
    return health != nullptr ? health->ExitStatus() : plan != nullptr ? plan->ExitStatus() : 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        OccupyStandardDescriptors();
        return Run(argc, argv);
    } catch (const std::exception& error) {
        if (const int signal = Interruption::Signal())
            Interruption::EndBy(signal);
        PrintError(logging::Describe(error));
        return 1;
    }
}
