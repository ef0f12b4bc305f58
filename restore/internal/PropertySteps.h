#pragma once

#include "restore/internal/DatasetPairs.h"

#include <optional>
#include <string>
#include <string_view>

namespace zfslib::restore::internal {

/// When a property has its turn, and how it is set.
struct Turn {
    Phase phase = Phase::Properties;
    /// Only recorded: nothing is mounted or shared by the way, where the tool has an option for it.
    bool isOnlyRecorded = false;
};

/// Why a temporary value cannot be put back, nor what stands behind it.
constexpr std::string_view coveredByMountOption = "a mount option covered what was stored";

/// What makes one property of a dataset again what it was.
class PropertySteps {
public:
    PropertySteps(const PlanInput& input, PlanDraft& draft) : input_(input), draft_(draft) {}

    /// Adds the step that a saved property needs, if it needs one, or says why there is none.
    std::optional<PlanDraft::StepId> Restore(DatasetPair& pair, const PropertyValue& saved,
                                             const Turn& turn);
    /// As Restore, of the property of that name; nothing when there is none.
    std::optional<PlanDraft::StepId> Restore(DatasetPair& pair, std::string_view property,
                                             const Turn& turn);
    /// Inherits anew what is inherited already: a mount does not follow when that changes above.
    void Follow(DatasetPair& pair, std::string_view property, const Turn& turn);
    /// Inherits the user properties that are live and were not saved.
    void RemoveOthers(DatasetPair& pair);

    /// Whether a property that was changed for a while can be given back.
    [[nodiscard]] bool CanRestore(const DatasetPair& pair, std::string_view property) const;
    /// Whether a property is the same here and there, source and all.
    [[nodiscard]] bool IsEqual(const PropertyValue& saved, const PropertyValue& live) const;
    /// Whether the saved value says the same as the one that is there now.
    [[nodiscard]] bool IsSame(const DatasetPair& pair, const PropertyValue& saved,
                              const PropertyNow& now) const;

    /// A step that sets a property, with the words for it; the pair has it from then on. `value` is
    /// as the tool prints it.
    PlanDraft::StepId Set(DatasetPair& pair, std::string_view property, std::string_view value,
                          const Turn& turn, std::string why, bool isPinned = false);

private:
    enum class Back { ToNone, ToReceived };

    /// The step to what a stream brought, if that is what it was, and is covered by another value.
    std::optional<PlanDraft::StepId> GoBackToReceived(DatasetPair& pair, const PropertyValue& saved,
                                                      const Turn& turn);
    std::optional<PlanDraft::StepId>
    RestoreInheritable(DatasetPair& pair, const PropertyValue& saved, const Turn& turn);
    std::optional<PlanDraft::StepId> RestoreUnset(DatasetPair& pair, const PropertyValue& saved,
                                                  const Turn& turn);
    std::optional<PlanDraft::StepId> RestoreOwn(DatasetPair& pair, const PropertyValue& saved,
                                                const Turn& turn);
    PlanDraft::StepId Inherit(DatasetPair& pair, std::string_view property, Back back,
                              PropertyNow becomes, const Turn& turn, std::string why);
    void Cannot(const DatasetPair& pair, const PropertyValue& saved, std::string reason);
    void SayOfReceived(const DatasetPair& pair, const PropertyValue& saved);

    const PlanInput& input_;
    PlanDraft& draft_;
};

} // namespace zfslib::restore::internal
