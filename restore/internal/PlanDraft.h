#pragma once

#include "restore/Plan.h"

#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Parts of the plan: each adds its steps to one draft.
namespace zfslib::restore::internal {

/// What all parts of a plan go by.
struct PlanInput {
    const HostState& saved;
    const LiveState& live;
    const PlanOptions& options;

    [[nodiscard]] const ToolsState& Tools() const noexcept { return live.state.tools; }
};

/// Adds a word that may look like an option: names of user properties may begin with "-".
void AddOperand(std::vector<std::string>& words, std::string operand);

class PlanDraft;

/// Whether the live pool of a dataset knows a feature, has not enabled it, and no step so far does.
[[nodiscard]] bool LacksFeature(const PlanInput& input, const PlanDraft& draft,
                                std::string_view dataset, std::string_view feature);
/// Why that keeps something from being done.
[[nodiscard]] std::string TextOfLacking(std::string_view feature);

/// Steps as they come; they get into order when all are known.
class PlanDraft {
public:
    using StepId = std::size_t;

    /// Adds a step behind those of its phase. What it needs are earlier ids; a step that makes its
    /// object is added to these by itself.
    StepId Add(Step step);
    /// Adds a step that makes its object: a pool, or a dataset.
    StepId AddMaker(Step step);
    /// Notes that a step needs an earlier one.
    void Need(StepId step, std::optional<StepId> needed);
    /// The step that makes the pool or dataset, if one does.
    [[nodiscard]] std::optional<StepId> MakerOf(std::string_view object) const;

    /// The step that enables a feature of the pool of a dataset, if one does.
    [[nodiscard]] std::optional<StepId> EnablerOf(std::string_view dataset,
                                                  std::string_view feature) const;

    /// Once, however often it is said.
    void CannotDo(std::string_view object, std::string_view property,
                  std::optional<std::string> saved, std::optional<std::string> live,
                  std::string reason);
    void Say(std::string_view object, std::string text);

    /// Nothing is planned for the datasets of this pool, under the name it is to get: it cannot be
    /// made, or has to be imported first.
    void LeaveOut(std::string_view pool) { leftOut_.emplace(pool); }
    [[nodiscard]] bool IsLeftOut(std::string_view pool) const {
        return leftOut_.find(pool) != leftOut_.end();
    }

    /// The plan, with its steps in the order of their phases.
    [[nodiscard]] Plan Finish() &&;

private:
    Plan plan_;
    std::map<std::string, StepId, std::less<>> makers_;
    std::set<std::string, std::less<>> leftOut_;
    std::map<std::pair<std::string, std::string>, StepId> features_; ///< of a pool, enabled
    std::set<std::array<std::string, 3>> said_; ///< what cannot be done: object, property, reason
};

} // namespace zfslib::restore::internal
