#pragma once

#include "restore/internal/DatasetPairs.h"
#include "restore/internal/Mountings.h"

/// What is unmounted and mounted, in an order in which nothing is covered or taken along.
namespace zfslib::restore::internal {

/// Adds these steps, keys that are loaded between them among it, and notes them in the mountings.
void PlanMountSteps(const PlanInput& input, DatasetPairs& pairs, PlanDraft& draft,
                    Mountings& mountings);

} // namespace zfslib::restore::internal
