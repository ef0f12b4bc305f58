#pragma once

#include "restore/internal/DatasetPairs.h"
#include "restore/internal/PropertySteps.h"

#include <string_view>

namespace zfslib::restore::internal {

/// Whether a property says where and how a dataset is mounted or shared.
[[nodiscard]] bool IsMountProperty(std::string_view property);

/// Adds what mount points and shares need, read-only and zoned last, and mounts what was mounted.
void PlanMounts(const PlanInput& input, DatasetPairs& pairs, PropertySteps& steps,
                PlanDraft& draft);

} // namespace zfslib::restore::internal
