// Puts a saved state back on a host, both of them recorded.

#include "executors/ReplayingExecutor.h"
#include "restore/Apply.h"
#include "restore/SavedState.h"
#include "restore/Script.h"

#include <exception>
#include <iostream>

using namespace zfslib::restore;

const char* Describe(Outcome outcome) {
    switch (outcome) {
    case Outcome::Done:
        return "done";
    case Outcome::NotReached:
        return "not what it was to be";
    case Outcome::Failed:
        return "failed";
    case Outcome::Unknown:
        return "may be done or not";
    case Outcome::ForAPerson:
        return "for a person";
    case Outcome::Skipped:
        return "not tried";
    }
    return "";
}

/// Whether everything that can be put back is as it was.
bool PutBack(const std::string& savedFile, const zfslib::CommandExecutor& host) {
    const SavedState saved = ReadSavedState(savedFile);
    for (const std::string& warning : saved.warnings)
        std::cerr << warning << '\n';
    const Plan plan = MakePlan(saved.state, ReadLiveState(saved.state, {}, host));
    for (const Cannot& cannot : plan.cannot)
        std::cout << "cannot: " << cannot.object << ' ' << cannot.property << ": " << cannot.reason
                  << '\n';
    ApplyOptions options;
    options.report = [&plan](const StepReport& report) {
        std::cout << report.reported << '/' << report.count << ' '
                  << DescribeStep(plan.steps[report.step]) << ": " << Describe(report.outcome);
        if (report.because)
            std::cout << ", as step " << *report.because + 1 << " is not done";
        std::cout << (report.text.empty() ? "" : ": ") << report.text << '\n';
    };
    // With data to bring back: Part::BeforeData, then the data, then a new plan.
    return Apply(plan, host, options).IsComplete();
}

int main(int /*argc*/, char** argv) {
    try {
        const bool isDone = PutBack(argv[1], zfslib::executors::Replayer(argv[2]).Executor());
        std::cout << (isDone ? "all is done\n" : "not all is done\n");
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
