#pragma once

#include "../platform/logging/logging.h"
#include "../platform/zfslib_export.h"

/// The library's log section, named "zfslib". Where its messages go: logging::SetSink.
ZFSLIB_EXPORT extern logging::log_section_t zfslib_log;

namespace zfslib {

/// What the library itself logs through: a copy of `zfslib_log`.
ZFSLIB_EXPORT extern logging::log_section_t _log;

} // namespace zfslib
