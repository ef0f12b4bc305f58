#pragma once

#include <string>
#include <string_view>

namespace inspect {

/// Text from outside (a name, a value, a message) as it may go to a terminal: control characters,
/// those that are invisible or change the direction of writing, and what is not UTF-8 stand as
/// "\n", "\t", "\r", "\e" or, byte for byte, "\x9b"; a backslash stands as "\\", so that the text
/// can be told back.
[[nodiscard]] std::string Escape(std::string_view text);

/// Whether the text is UTF-8 throughout.
[[nodiscard]] bool IsUtf8(std::string_view text);

/// A message on one line and of bearable length: line breaks become blanks, and of a long message
/// the middle is left out. Not escaped.
[[nodiscard]] std::string Fold(std::string_view message);

/// How many columns an escaped text takes, with each character counted as one.
[[nodiscard]] std::size_t Columns(std::string_view escaped);

/// The longest beginning of an escaped text that takes at most `columns`.
[[nodiscard]] std::string_view CutToColumns(std::string_view escaped, std::size_t columns);

} // namespace inspect
