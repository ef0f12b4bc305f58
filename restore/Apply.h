#pragma once

#include "../platform/zfslib_export.h"
#include "../restore/Plan.h"
#include "../zfstools/Executor.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace zfslib::restore {

/// What became of a step.
enum class Outcome {
    Done,       ///< the command succeeded, and where it can be read back, what it set is there
    NotReached, ///< the command succeeded, and something else is there
    Failed,     ///< the tool refused, or the command was not run
    Unknown,    ///< time was up, or the end of the command was lost: it may be done or not
    ForAPerson, ///< not run, as it asks a terminal (Step::asksFor)
    Skipped,    ///< not run, as a step that it needs is not done
};

/// One step, reported when its outcome is known.
struct StepReport {
    std::size_t step = 0;            ///< its place in the plan
    Outcome outcome = Outcome::Done; ///< what became of it
    /// Of a failed or unknown one, what the executor said; of one that was not reached, what is
    /// there; of one that is done, why it could not be read back; of one for a person, what it asks
    /// for. Else empty.
    std::string text;
    /// Of a skipped one, the step to look at: the first in the chain of what it needs that was not
    /// done for a reason of its own.
    std::optional<std::size_t> because;
    std::size_t reported = 0; ///< how many steps have been reported, this one included
    std::size_t count = 0;    ///< how many will be
};

/// What to run of a plan, and whom to tell.
struct ApplyOptions {
    /// Of what is before and after the data, one or both.
    enum class Part { All, BeforeData, AfterData };

    /// Which steps. Those of the other part are taken for done.
    Part part = Part::All;
    /// Is told of each step, in the order of the plan, and before the next one is run. What it
    /// throws ends everything and reaches the caller; the step it was told of stays as it is. May
    /// be empty.
    std::function<void(const StepReport& report)> report;
};

/// All that was reported.
struct ZFSLIB_EXPORT ApplyResult {
    std::vector<StepReport> steps; ///< in the order of the plan, without those of the other part

    /// How many steps came out so.
    [[nodiscard]] std::size_t Count(Outcome outcome) const noexcept;
    /// Whether every step is done.
    [[nodiscard]] bool IsComplete() const noexcept { return Count(Outcome::Done) == steps.size(); }
};

/// Runs the steps of a plan, one after the other. A step that is not done holds up only those that
/// need it, and what needs these. After a step that sets, inherits, mounts, unmounts, or is about a
/// key, what is there is read back and compared with what was foreseen: byte for byte, but for
/// words that mean the same ("gzip-6", "gzip"). What creation gives is not read back. Whether all
/// is as it was, a new plan tells.
///
/// `executor` has to use a shell; the words are quoted. Its failures are told by the kinds of
/// posix::CCommandFailure; one of another type is taken for a refusal. Runs one command for each
/// step, and one more for each that is read back.
/// Errors: what `options.report` throws; posix::CCommandFailure of the kind Stopped, when the host
/// stops its commands (posix::CSimpleCmdExec::SetStopped). The steps that were run stay done.
ZFSLIB_EXPORT ApplyResult Apply(const Plan& plan, const CommandExecutor& executor,
                                const ApplyOptions& options = {});

} // namespace zfslib::restore
