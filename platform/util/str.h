#pragma once

#include "../zfslib_export.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

/// Text as the tools print it: byte strings, read and written the same whatever locale the host
/// has set.
namespace util {

/// The decimal text of an integer, with a leading "-" when it is negative.
template <typename T>
std::string str(T value) {
    static_assert(std::is_integral_v<T>, "only integers have one decimal text");
    return std::to_string(value);
}

namespace detail {

/// One argument of `str_format` as text: a view of what the caller holds, or text of its own.
class FormatArgument {
public:
    FormatArgument(const std::string& text) : view_(text) {} // NOLINT(google-explicit-constructor)
    FormatArgument(std::string_view text) : view_(text) {}   // NOLINT(google-explicit-constructor)
    FormatArgument(const char* text) : view_(text) {}        // NOLINT(google-explicit-constructor)
    FormatArgument(char character)                           // NOLINT(google-explicit-constructor)
        : owned_(1, character), view_(owned_) {}
    template <typename T, typename = std::enable_if_t<std::is_integral_v<T>>>
    FormatArgument(T value) // NOLINT(google-explicit-constructor)
        : owned_(str(value)), view_(owned_) {}
    /// Without this, a floating-point number would be taken for a character.
    template <typename T, typename = void, typename = std::enable_if_t<!std::is_integral_v<T>>,
              typename = std::enable_if_t<std::is_arithmetic_v<T> || std::is_enum_v<T>>>
    FormatArgument(T value) = delete; // NOLINT(google-explicit-constructor)
    FormatArgument(const FormatArgument&) = delete;
    FormatArgument& operator=(const FormatArgument&) = delete;

    [[nodiscard]] std::string_view View() const { return view_; }

private:
    std::string owned_;
    std::string_view view_;
};

ZFSLIB_EXPORT std::string Format(std::string_view format,
                                 std::initializer_list<FormatArgument> arguments);

} // namespace detail

/// `format` with "%1".."%N" replaced by the N arguments (strings and integers), in one pass: text
/// that came in through an argument is never substituted again. All digits behind a "%" form the
/// number ("%10" is the tenth argument); a number without an argument stays as it stands.
template <typename... Args>
std::string str_format(std::string_view format, const Args&... args) {
    return detail::Format(format, {detail::FormatArgument(args)...});
}

/// White space of the "C" locale: space, tab, newline, vertical tab, form feed, carriage return.
constexpr bool IsSpace(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

/// Takes the next word of `text` off its front, together with the white space before it; empty
/// when no word is left.
ZFSLIB_EXPORT std::string_view ConsumeWord(std::string_view& text);

/// Takes the next line of `text` off its front: up to the next "\n", which is dropped, or up to
/// the end. `text` must not be empty.
ZFSLIB_EXPORT std::string_view ConsumeLine(std::string_view& text);

/// The words of a text: the longest runs without white space, in order; there is no quoting.
ZFSLIB_EXPORT std::vector<std::string> split(std::string_view text);

/// Whether the text is decimal digits and nothing else, at least one.
ZFSLIB_EXPORT bool str_is_integer(std::string_view text);
/// Whether the text begins with the prefix; every text begins with the empty one.
ZFSLIB_EXPORT bool str_is_starts_with(std::string_view text, std::string_view prefix);
/// Whether the text ends in the suffix; every text ends in the empty one.
ZFSLIB_EXPORT bool str_is_finishes_with(std::string_view text, std::string_view suffix);
/// Whether the two texts are equal when the case of the letters A to Z is ignored.
ZFSLIB_EXPORT bool str_caseicmp(std::string_view a, std::string_view b);

/// Takes a floating-point number off the front of `text` as formatted extraction from a stream
/// with the classic locale does: leading white space is skipped, and an exponent without digits
/// ("10E"), like anything beyond the range of a double, is no number. Nothing is consumed then.
ZFSLIB_EXPORT std::optional<double> ConsumeDouble(std::string_view& text);

/// @{
/// `std::stoi`, `std::stoul` and `std::stod` in the classic locale: leading white space is
/// skipped, trailing text ignored. Errors: std::invalid_argument without a number,
/// std::out_of_range beyond the type; what() is "stoi", "stoul", "stod".
ZFSLIB_EXPORT int StringToInt(std::string_view text);
ZFSLIB_EXPORT unsigned long StringToUnsignedLong(std::string_view text);
ZFSLIB_EXPORT double StringToDouble(std::string_view text);
/// @}

/// The number with six decimals, as printf's "%f" prints it in the "C" locale.
ZFSLIB_EXPORT std::string DoubleToString(double value);

/// The number without its fraction. A double that an unsigned 64-bit integer cannot hold goes to
/// the nearest that it can: 0 for negative numbers and NaN, 2^64 - 1 from 2^64 on.
ZFSLIB_EXPORT std::uint64_t TruncateToUint64(double value);

} // namespace util
