#include "zfstools/logging.h"

logging::log_section_t zfslib_log("zfslib");

namespace zfslib {

logging::log_section_t _log = zfslib_log;

} // namespace zfslib
