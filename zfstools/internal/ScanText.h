#pragma once

#include "zfstools/PoolHealth.h"

#include <string>

namespace zfslib {

/// What stands behind "scan:", its lines joined by blanks; of any system since Solaris 10.
PoolHealth::Scan ParseScan(const std::string& text, PoolHealth::Clock clock);

} // namespace zfslib
