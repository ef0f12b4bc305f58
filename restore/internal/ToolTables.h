#pragma once

#include "restore/HostState.h"
#include "zfslib_export.h"

#include <string_view>

/// What the tools say about themselves, as text to values.
namespace zfslib::restore::internal {

/// The usage of each command, from what `zfs` or `zpool` prints when it is called alone: a command
/// stands behind one tab, what goes on behind a tab and blanks. Text of any other kind gives none.
[[nodiscard]] ZFSLIB_EXPORT CommandUsages ReadUsages(std::string_view text);

/// The table of properties from what `zfs get` or `zpool get` prints without operands. Text without
/// one gives none.
[[nodiscard]] ZFSLIB_EXPORT PropertyRules ReadPropertyTable(std::string_view text);

} // namespace zfslib::restore::internal
