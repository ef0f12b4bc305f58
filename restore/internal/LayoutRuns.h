#pragma once

#include "restore/Plan.h"
#include "restore/internal/PoolLayout.h"

#include <optional>
#include <vector>

/// The commands that make a layout.
namespace zfslib::restore::internal {

/// Whether the tool counts devices of this use when it numbers them: "mirror-0".
[[nodiscard]] bool IsNumbered(Device::Use use);

/// A part of a layout that one command makes.
struct LayoutRun {
    std::vector<const LayoutGroup*> groups;
    std::optional<unsigned> ashift;
    bool mixesRedundancy = false; ///< with itself, or with what is before it
    bool mixesAshift = false;     ///< is not that of what is before it
};

/// The commands that make these devices: one gives all that it makes one sector size, takes no disk
/// alone behind a mirror, and makes a pool of devices of one redundancy. The groups must outlive
/// the result.
[[nodiscard]] std::vector<LayoutRun> RunsOf(const std::vector<LayoutGroup>& groups);

/// Adds the devices to a command.
void AddDevices(const LayoutRun& run, Step& step);

} // namespace zfslib::restore::internal
