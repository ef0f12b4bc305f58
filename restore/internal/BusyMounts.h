#pragma once

#include "restore/LiveState.h"

#include <map>
#include <string>

namespace zfslib::restore::internal {

/// The mounted file systems that cannot be unmounted, as something has a place below them that no
/// plan unmounts: of another pool, of outside the roots, or mounted as legacy. Those above them go
/// with them, by their places and by their names, as the tool takes along what is below. Has what
/// is in the way, as people are told: "other/x, at /srv/x". Cost: linear, times the depth of names.
[[nodiscard]] std::map<std::string, std::string, std::less<>> FindBusyMounts(const LiveState& live);

} // namespace zfslib::restore::internal
