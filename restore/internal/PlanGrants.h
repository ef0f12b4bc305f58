#pragma once

#include "restore/internal/DatasetPairs.h"

namespace zfslib::restore::internal {

/// Adds what is given to somebody, and is no property of a dataset: quotas of users, groups and
/// projects, permissions, and what is set on snapshots, holds among it.
void PlanGrants(const PlanInput& input, DatasetPairs& pairs, PlanDraft& draft);

} // namespace zfslib::restore::internal
