#include "restore/internal/PlanLimits.h"

#include "restore/internal/PropertyWords.h"
#include "util/str.h"

#include <algorithm>
#include <cstdint>
#include <deque>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>

namespace zfslib::restore::internal {
namespace {

constexpr std::string_view quotas[] = {"quota", "refquota"};
constexpr std::string_view reservations[] = {"reservation", "refreservation"};

/// What a limit comes to: no quota is the greatest, no reservation the least.
struct Amount {
    bool isKnown = false;
    std::uint64_t number = 0;
};

Amount AmountOf(std::string_view property, std::string_view value) {
    if (Canonical(property, value, {}) == "none")
        return {true, property == "quota" || property == "refquota" ? UINT64_MAX : 0};
    const auto number = WholeNumber(value);
    return {number.has_value(), number.value_or(0)};
}

class LimitPlanner {
public:
    LimitPlanner(const PlanInput& input, DatasetPairs& pairs, PropertySteps& steps,
                 PlanDraft& draft)
        : input_(input), pairs_(pairs), steps_(steps), draft_(draft) {}

    void Plan() {
        std::deque<DatasetPair>& all = pairs_.All();
        for (auto pair = all.rbegin(); pair != all.rend(); ++pair)
            Move(*pair, reservations, false);
        for (DatasetPair& pair : all)
            Move(pair, quotas, true);
        for (DatasetPair& pair : all)
            if (!pair.IsFilesystem() && pair.NeedsTurns())
                Resize(pair);
        for (DatasetPair& pair : all)
            Move(pair, reservations, true);
        for (auto pair = all.rbegin(); pair != all.rend(); ++pair)
            Move(*pair, quotas, false);
    }

private:
    template <std::size_t count>
    void Move(DatasetPair& pair, const std::string_view (&properties)[count], bool isUp) {
        if (!pair.NeedsTurns())
            return;
        for (const std::string_view property : properties) {
            const PropertyValue* saved = pair.saved->Find(property);
            if (saved == nullptr ||
                (property == "refreservation" && (IsThickElsewhere(pair) || IsTooLarge(pair))))
                continue;
            const PropertyNow now = pair.Now(property);
            const Amount from = now.value ? AmountOf(property, *now.value) : Amount();
            const Amount to = AmountOf(property, saved->Value());
            // What is not known, here or there, has its turn when reservations go up.
            const bool goesUp = !from.isKnown || !to.isKnown || to.number > from.number;
            if (goesUp != isUp)
                continue;
            const bool isFirst = restored_.emplace(&pair, property).second;
            if (!isFirst && from.isKnown && to.isKnown && from.number == to.number)
                continue;
            const auto step = steps_.Restore(pair, *saved, {Phase::Limits});
            if (step && isUp && &properties == &reservations)
                for (const DatasetPair* above = &pair; above != nullptr; above = above->parent)
                    if (const auto raised = raised_.find(above); raised != raised_.end())
                        draft_.Need(*step, raised->second);
            if (step && isUp)
                raised_[&pair] = *step;
        }
    }

    [[nodiscard]] static std::optional<std::uint64_t> NumberNow(const DatasetPair& pair,
                                                                std::string_view property) {
        const PropertyNow now = pair.Now(property);
        return now.value && now.doubt.empty() ? WholeNumber(*now.value) : std::nullopt;
    }

    [[nodiscard]] static std::optional<std::uint64_t> Saved(const DatasetPair& pair,
                                                            std::string_view property) {
        const PropertyValue* saved = pair.saved->Find(property);
        return saved != nullptr && saved->IsExact() ? WholeNumber(saved->Value()) : std::nullopt;
    }

    /// A volume that has all its space reserved needs another number for it on other devices.
    [[nodiscard]] bool IsThickElsewhere(const DatasetPair& pair) {
        const PoolState* savedPool = input_.saved.FindPool(PoolOf(pair.saved->name));
        const PoolState* livePool = input_.live.state.FindPool(PoolOf(pair.name));
        if (pair.IsFilesystem() || pair.live == nullptr || savedPool == nullptr ||
            livePool == nullptr || savedPool->guid == livePool->guid)
            return false;
        const auto savedSize = Saved(pair, "volsize");
        const auto liveSize = NumberNow(pair, "volsize");
        const auto saved = Saved(pair, "refreservation");
        const auto live = NumberNow(pair, "refreservation");
        const auto isThick = [&](std::optional<std::uint64_t> reservation) {
            constexpr std::uint64_t metadata = 8U << 20U;
            return reservation && *reservation >= *savedSize &&
                   *reservation / 2 <= *savedSize + metadata;
        };
        const bool isThere = savedSize && savedSize == liveSize && isThick(saved) && isThick(live);
        if (isThere && saved != live && thick_.insert(&pair).second)
            draft_.Say(pair.name,
                       util::str_format("has all its space reserved, which are %1 bytes on these "
                                        "devices, and were %2",
                                        *live, *saved));
        return isThere;
    }

    /// What stays larger than it was stays reserved as it is.
    [[nodiscard]] static bool IsTooLarge(const DatasetPair& pair) {
        const auto saved = Saved(pair, "volsize");
        const auto live = NumberNow(pair, "volsize");
        return !pair.IsFilesystem() && saved && live && *saved < *live;
    }

    void Resize(DatasetPair& pair) {
        const PropertyValue* saved = pair.saved->Find("volsize");
        if (saved != nullptr && !(saved->IsExact() && pair.Now("volsize").doubt.empty()))
            draft_.CannotDo(pair.name, "volsize", std::string(saved->Value()),
                            pair.Now("volsize").value, "one of the values is not certain");
        const auto wanted = Saved(pair, "volsize");
        const auto now = NumberNow(pair, "volsize");
        if (saved == nullptr || !wanted || !now || wanted == now)
            return;
        if (*wanted < *now) {
            draft_.CannotDo(pair.name, "volsize", std::string(saved->Value()),
                            pair.Now("volsize").value,
                            "what is beyond its end would be lost; its reservation stays, too");
            return;
        }
        std::optional<PlanDraft::StepId> writable;
        if (pair.Now("readonly").value == "on" && !steps_.CanRestore(pair, "readonly")) {
            draft_.CannotDo(pair.name, "volsize", std::string(saved->Value()),
                            pair.Now("volsize").value, "it is read-only");
            return;
        }
        if (pair.Now("readonly").value == "on")
            writable = steps_.Set(pair, "readonly", "off", {Phase::Limits},
                                  "its size cannot change while it is read-only");
        Step step;
        step.phase = Phase::Limits;
        step.object = pair.name;
        step.property = "volsize";
        step.words = {"zfs", "set", "volsize=" + std::string(saved->Value())};
        step.was = pair.Now("volsize").value;
        step.willBe = std::string(saved->Value());
        // A reservation for the whole size follows the size, unless it is given with it.
        const PropertyValue* reservation = pair.saved->Find("refreservation");
        if (reservation != nullptr && reservation->IsExact() && input_.Tools().SetsSeveral()) {
            step.words.push_back(
                "refreservation=" +
                std::string(WordToSet("refreservation", reservation->Value(), input_.saved.tools)));
            pair.changed["refreservation"] = {
                PropertySource::Local, std::string(reservation->Value()), std::nullopt, {}};
        } else {
            pair.changed["refreservation"] = {PropertySource::Local, std::nullopt, {}, {}};
        }
        step.words.push_back(pair.name);
        pair.changed["volsize"] = {PropertySource::Local, step.willBe, std::nullopt, {}};
        draft_.Need(draft_.Add(std::move(step)), writable);
    }

    const PlanInput& input_;
    DatasetPairs& pairs_;
    PropertySteps& steps_;
    PlanDraft& draft_;
    std::map<const DatasetPair*, PlanDraft::StepId> raised_;
    std::set<const DatasetPair*> thick_; ///< of which that was said
    std::set<std::pair<const DatasetPair*, std::string_view>> restored_;
};

} // namespace

bool IsLimitProperty(std::string_view property) {
    constexpr std::string_view names[] = {"quota", "refquota", "reservation", "refreservation",
                                          "volsize"};
    return std::find(std::begin(names), std::end(names), property) != std::end(names);
}

void PlanLimits(const PlanInput& input, DatasetPairs& pairs, PropertySteps& steps,
                PlanDraft& draft) {
    LimitPlanner(input, pairs, steps, draft).Plan();
}

} // namespace zfslib::restore::internal
