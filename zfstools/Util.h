#pragma once

#include "../platform/zfslib_export.h"

#include <string>
#include <vector>

namespace zfslib {

/// Whether a size text has no fraction: true exactly when it holds no ".". Nothing else is
/// checked: an empty text and "12K" count as integers.
ZFSLIB_EXPORT bool IsIntegerValue(const std::string& value);

/// Whether a device, by its own path or one of its others, is a ZFS volume: a path that begins
/// with "/dev/zvol". A test of the text alone; no command is run.
ZFSLIB_EXPORT bool IsZfsVolume(const std::string& devicePath,
                               const std::vector<std::string>& otherPaths);

/// The bytes of a size column of `zfs list` or `zpool list`: "512", "512B", "1.5K", "20G"; "-" is
/// 0. The suffixes B, K, M, G and T are read, by powers of 1024, and what stands behind one is
/// ignored; a fraction needs one of K to T. What 64 bits cannot hold goes to the nearest that they
/// can. Errors: std::runtime_error "Failed to parse space value: [text]." for anything else.
ZFSLIB_EXPORT unsigned long ParseSpaceValue(const std::string& text);

} // namespace zfslib
