#pragma once

#include "restore/internal/PlanDraft.h"

namespace zfslib::restore::internal {

/// Adds what pools need: those that are missing are imported or made (AddMaker), features and
/// properties are set, and what differs and cannot be changed is said. Pools whose datasets cannot
/// be planned are left out.
void PlanPools(const PlanInput& input, PlanDraft& draft);

/// Adds what pools get when the datasets are planned: `bootfs`, which needs one, and what acts upon
/// the devices by itself.
void PlanPoolsLast(const PlanInput& input, PlanDraft& draft);

} // namespace zfslib::restore::internal
