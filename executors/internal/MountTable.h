#pragma once

#include <string>
#include <string_view>

/// The mounted file systems of a host, as `df -Z` lists them on Solaris:
///
///     /export            (tank/export       ):59435344 blocks  3683313 files
///
/// Each line is a mount point and what is mounted there, with "-" for the two counts: to know them
/// is to ask every file system, and one whose server is gone never answers. Of the mounts that
/// cover each other only the one that a path leads to is listed.
///
/// The reader of this list cuts it at white space and parentheses, and takes the longest mount
/// point that a path's text begins with. A mount point that holds one of these characters is
/// listed with what stands before it, so that the paths below it are found. Where two file systems
/// come to the same text so, "tank/?" (no name that ZFS allows) says that both are of the pool
/// tank, and "?" that not even that is so. A mount point without such characters takes precedence,
/// and one whose name begins with a blank is left out. Names of file systems keep such characters
/// as "\040".
namespace zfslib::executors::internal {

/// From Linux' /proc/self/mountinfo, proc(5). Errors: std::runtime_error for a line that is none.
[[nodiscard]] std::string DfFromMountinfo(std::string_view mountinfo);

/// From FreeBSD's `mount -p`, in the format of fstab(5), in the order of mounting. A directory
/// that is mounted a second time (nullfs) counts to the file system that holds it.
/// Errors: std::runtime_error for a line that is none.
[[nodiscard]] std::string DfFromFstab(std::string_view fstab);

} // namespace zfslib::executors::internal
