#pragma once

#include "restore/internal/PoolSettings.h"

#include <map>
#include <string>

namespace zfslib::restore::internal {

/// The disks of all pools that are made, each of which is given once, and what as: "spare", which
/// pools may share, or "device".
using GivenDisks = std::map<std::string, std::string>;

/// Plans a pool that is missing: it is imported where that can be, else made.
void PlanMissingPool(PoolSettings& settings, GivenDisks& given);

} // namespace zfslib::restore::internal
