#pragma once

#include "restore/HostState.h"
#include "restore/Plan.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// How a pool is meant to be laid out, whatever state its devices are in.
namespace zfslib::restore::internal {

/// A disk or file.
struct LayoutDisk {
    const Device* device = nullptr;
    /// What `zpool create` takes; empty when nobody can tell.
    std::string word;
    std::string namedBy;    ///< the name under which the options have it; empty when they do not
    std::string whatToName; ///< the saved name that the options may give another for
};

/// A top-level device.
struct LayoutGroup {
    const Device* device = nullptr;
    std::optional<unsigned> ashift; ///< as Device has it
    std::string name;               ///< "mirror-0", "sda": as the tool called it
    std::string word;               ///< "mirror", "raidz2"; empty for a disk or file alone
    std::vector<LayoutDisk> disks;  ///< in order
    Device::Use use = Device::Use::Normal;
};

/// A pool as it is made: devices that stand in for others for a while are left out, and so are the
/// spares that a draid brings along, and what is left of removed devices.
struct PoolLayout {
    std::vector<LayoutGroup> groups; ///< in the order in which `zpool create` takes them
    std::string doubt; ///< why it cannot be made again: a device of an unknown kind; or empty
};

/// `system` (`uname -s`) is that of the tools which are to use the words. The disks of the options
/// are those to use in the place of the saved ones.
[[nodiscard]] PoolLayout LayoutOf(const PoolState& pool, const PlanOptions& options,
                                  std::string_view system);

/// The folders of the files that a pool is made of, each once.
[[nodiscard]] std::vector<std::string> FoldersOf(const PoolLayout& layout);

/// The whole disk of a partition below /dev: "/dev/sda" for "/dev/sda1"; the path itself when it
/// does not look like a partition's.
[[nodiscard]] std::string WholeDisk(const std::string& path);

} // namespace zfslib::restore::internal
