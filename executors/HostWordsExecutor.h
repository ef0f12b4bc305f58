#pragma once

#include "../platform/zfslib_export.h"
#include "../zfstools/Executor.h"

#include <string_view>

namespace zfslib::executors {

/// The folders in which a HostWordsExecutor has the tools looked for, in this order, divided by
/// colons.
inline constexpr std::string_view toolFolders =
    "/usr/sbin:/usr/bin:/sbin:/bin:/usr/local/sbin:/usr/local/bin";

/// An executor that says the library's command lines in the words of the host that `executor` runs
/// them on. The caller sees what it would see on Solaris; a line that is not known here passes
/// unchanged, and so does one that was put into other words already.
///
/// Wherever the host is, the tools are found in `toolFolders`, whoever the user is: `env -i` leaves
/// them no PATH, and what the system takes for one then has no sbin folder.
[[nodiscard]] ZFSLIB_EXPORT CommandExecutor HostWordsExecutor(CommandExecutor executor);

} // namespace zfslib::executors
