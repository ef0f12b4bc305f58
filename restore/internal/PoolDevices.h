#pragma once

#include "restore/HostState.h"
#include "zfslib_export.h"

#include <string>
#include <string_view>
#include <vector>

/// The devices of a pool, as text to values.
namespace zfslib::restore::internal {

/// A line of the table of devices that `zpool status` prints.
struct StatusRow {
    unsigned depth = 0;     ///< 0: the pool, or the head of a section; 1: a top-level device
    std::string_view name;  ///< may have blanks in it
    std::string_view state; ///< empty where there is none
    std::string_view note;  ///< what follows the counters: "was /dev/sda1"
};

/// The table of devices of the one pool in the text; empty when there is none.
/// `text` must outlive the result.
[[nodiscard]] ZFSLIB_EXPORT std::vector<StatusRow> ReadStatusRows(std::string_view text);

/// The devices of a pool from three tables with the same lines: as it calls them by default, and
/// with whole paths (`zpool status -P`) and numbers (`-g`), which may both be empty where the tool
/// has no such options. `system` (`uname -s`) tells how it names whole disks. Errors: StateMoved
/// when the tables do not have the same lines; std::runtime_error for a table that does not begin
/// with the pool.
[[nodiscard]] ZFSLIB_EXPORT std::vector<Device> ReadDevices(const std::vector<StatusRow>& byName,
                                                            const std::vector<StatusRow>& byPath,
                                                            const std::vector<StatusRow>& byGuid,
                                                            std::string_view system);

} // namespace zfslib::restore::internal
