#pragma once

#include "restore/internal/DatasetPairs.h"
#include "restore/internal/PropertySteps.h"

#include <string_view>

namespace zfslib::restore::internal {

/// Whether a property has to change in an order, with others of it, here and above.
[[nodiscard]] bool IsLimitProperty(std::string_view property);

/// Adds what quotas, reservations and volume sizes need, in an order in which no step is refused
/// for another one's sake: reservations go down, quotas up, sizes up, reservations up, quotas down.
void PlanLimits(const PlanInput& input, DatasetPairs& pairs, PropertySteps& steps,
                PlanDraft& draft);

} // namespace zfslib::restore::internal
