#pragma once

#include "restore/LiveState.h"

#include <functional>
#include <map>
#include <string>

namespace zfslib::restore::internal {

/// What is in the way of an unmount, as people are told ("other/x, at /srv/x"), by the names of the
/// mounted file systems.
using BusyMounts = std::map<std::string, std::string, std::less<>>;

/// The mounted file systems that cannot be unmounted, as something has a place below them that no
/// plan unmounts: of another pool, of outside the roots, or mounted as legacy. Those above them go
/// with them, by their places and by their names, as the tool takes along what is below. Cost:
/// linear, times the depth of names.
[[nodiscard]] BusyMounts FindBusyMounts(const LiveState& live);

/// Why a file system cannot be unmounted, with what is in the way.
[[nodiscard]] std::string TextOfBusy(const std::string& other);

} // namespace zfslib::restore::internal
