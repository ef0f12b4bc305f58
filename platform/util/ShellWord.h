#pragma once

#include "../zfslib_export.h"

#include <string>
#include <string_view>
#include <vector>

namespace util {

/// A text as one word of a command line for `sh`, whatever is in it: between single quotes, always.
/// Not for csh and its kind, which act upon "!" there.
[[nodiscard]] ZFSLIB_EXPORT std::string ShellWord(std::string_view text);

/// The same of the first operand behind the options of a command: with "--" before one that begins
/// with "-".
[[nodiscard]] ZFSLIB_EXPORT std::string ShellOperand(std::string_view text);

/// Words as people write them in a line for `sh`: with quotes only where a word needs them.
[[nodiscard]] ZFSLIB_EXPORT std::string ShellLine(const std::vector<std::string>& words);

} // namespace util
