#include "restore/internal/PlanDraft.h"

#include "restore/internal/Names.h"
#include "util/str.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace zfslib::restore::internal {

void AddOperand(std::vector<std::string>& words, std::string operand) {
    if (util::str_is_starts_with(operand, "-"))
        words.emplace_back("--");
    words.push_back(std::move(operand));
}

bool LacksFeature(const PlanInput& input, const PlanDraft& draft, std::string_view dataset,
                  std::string_view feature) {
    const PoolState* pool = feature.empty() ? nullptr : input.live.state.FindPool(PoolOf(dataset));
    if (pool == nullptr)
        return false;
    const std::string property = "feature@" + std::string(feature);
    const PropertyValue* live = pool->Find(property);
    // Tools that know features print a row for each that they know.
    const bool isLacking = live != nullptr ? live->Value() == "disabled"
                                           : pool->Find("feature@async_destroy") != nullptr;
    return isLacking && !draft.EnablerOf(dataset, feature);
}

std::string TextOfLacking(std::string_view feature) {
    return "its pool has not enabled feature@" + std::string(feature) + ", which it needs for that";
}

PlanDraft::StepId PlanDraft::Add(Step step) {
    const auto maker = MakerOf(step.object.substr(0, step.object.find('@')));
    const StepId id = plan_.steps.size();
    if (util::str_is_starts_with(step.property, "feature@"))
        features_.emplace(std::pair(step.object, step.property), id);
    plan_.steps.push_back(std::move(step));
    Need(id, maker);
    return id;
}

void PlanDraft::Need(StepId step, std::optional<StepId> needed) {
    std::vector<std::size_t>& needs = plan_.steps[step].needs;
    if (needed && std::find(needs.begin(), needs.end(), *needed) == needs.end())
        needs.push_back(*needed);
}

PlanDraft::StepId PlanDraft::AddMaker(Step step) {
    const std::string object = step.object;
    const StepId id = Add(std::move(step));
    makers_[object] = id;
    return id;
}

std::optional<PlanDraft::StepId> PlanDraft::MakerOf(std::string_view object) const {
    const auto maker = makers_.find(object);
    if (maker == makers_.end())
        return std::nullopt;
    return maker->second;
}

std::optional<PlanDraft::StepId> PlanDraft::EnablerOf(std::string_view dataset,
                                                      std::string_view feature) const {
    const auto enabler =
        features_.find({std::string(PoolOf(dataset)), "feature@" + std::string(feature)});
    if (feature.empty() || enabler == features_.end())
        return std::nullopt;
    return enabler->second;
}

void PlanDraft::CannotDo(std::string_view object, std::string_view property,
                         std::optional<std::string> saved, std::optional<std::string> live,
                         std::string reason) {
    if (!said_.insert({std::string(object), std::string(property), reason}).second)
        return;
    plan_.cannot.push_back({std::string(object), std::string(property), std::move(saved),
                            std::move(live), std::move(reason)});
}

void PlanDraft::Say(std::string_view object, std::string text) {
    plan_.mentioned.push_back({std::string(object), std::move(text)});
}

Plan PlanDraft::Finish() && {
    std::vector<Step>& drafted = plan_.steps;
    std::vector<StepId> order(drafted.size());
    std::iota(order.begin(), order.end(), StepId{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](StepId a, StepId b) { return drafted[a].phase < drafted[b].phase; });
    std::vector<std::size_t> places(drafted.size());
    for (std::size_t place = 0; place < order.size(); ++place)
        places[order[place]] = place;
    std::vector<Step> steps;
    steps.reserve(drafted.size());
    for (const StepId id : order) {
        Step& step = steps.emplace_back(std::move(drafted[id]));
        for (std::size_t& need : step.needs)
            need = places[need];
        std::sort(step.needs.begin(), step.needs.end());
    }
    drafted = std::move(steps);
    return std::move(plan_);
}

} // namespace zfslib::restore::internal
