#include "util/str.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace util {
namespace {

constexpr bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

constexpr char ToLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// IsSpace of every byte. The tools' tables are half blanks, and a look-up is the fastest test.
constexpr auto spaces = [] {
    std::array<bool, 256> table{};
    for (std::size_t byte = 0; byte < table.size(); ++byte)
        table[byte] = IsSpace(static_cast<char>(byte));
    return table;
}();

constexpr bool LooksUpSpace(char c) {
    return spaces[static_cast<unsigned char>(c)];
}

void SkipSpace(std::string_view& text) {
    const auto word = std::find_if_not(text.begin(), text.end(), LooksUpSpace);
    text.remove_prefix(static_cast<std::size_t>(word - text.begin()));
}

/// Takes an optional sign off the front; true for "-".
bool ConsumeSign(std::string_view& text) {
    if (text.empty() || (text.front() != '-' && text.front() != '+'))
        return false;
    const bool negative = text.front() == '-';
    text.remove_prefix(1);
    return negative;
}

/// The number at the front of `text`; `name` is the what() of the errors.
template <typename T>
T ParseNumber(std::string_view text, const char* name) {
    T value{};
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec == std::errc::invalid_argument)
        throw std::invalid_argument(name);
    if (result.ec == std::errc::result_out_of_range)
        throw std::out_of_range(name);
    return value;
}

std::string_view ConsumeDigits(std::string_view& text) {
    const auto end = std::find_if_not(text.begin(), text.end(), IsDigit);
    const std::string_view digits = text.substr(0, static_cast<std::size_t>(end - text.begin()));
    text.remove_prefix(digits.size());
    return digits;
}

/// "12.50e-3", as far as a stream takes a number: it is all or nothing, so an "e" always belongs to
/// the number ("1e" is none), and a second point or "e" never does.
struct NumberParts {
    std::string_view all;
    std::string_view whole;
    std::string_view fraction;
    bool isExponentNegative = false;
    std::string_view exponent;
};

NumberParts ConsumeNumberParts(std::string_view& text) {
    NumberParts parts;
    const std::string_view start = text;
    parts.whole = ConsumeDigits(text);
    if (!text.empty() && text.front() == '.') {
        text.remove_prefix(1);
        parts.fraction = ConsumeDigits(text);
    }
    const bool hasDigits = !parts.whole.empty() || !parts.fraction.empty();
    if (hasDigits && !text.empty() && ToLower(text.front()) == 'e') {
        text.remove_prefix(1);
        parts.isExponentNegative = ConsumeSign(text);
        parts.exponent = ConsumeDigits(text);
    }
    parts.all = start.substr(0, start.size() - text.size());
    return parts;
}

/// Whether a number is below 1.
bool IsFraction(const NumberParts& parts) {
    std::int32_t exponent = 0;
    if (const auto result = std::from_chars(
            parts.exponent.data(), parts.exponent.data() + parts.exponent.size(), exponent);
        result.ec == std::errc::result_out_of_range)
        exponent = std::numeric_limits<std::int32_t>::max();
    const std::string_view whole =
        parts.whole.substr(std::min(parts.whole.find_first_not_of('0'), parts.whole.size()));
    const auto order = static_cast<std::int64_t>(whole.size()); // digits before the point, ...
    const auto zeros = static_cast<std::int64_t>(               // ... or zeros behind it
        std::min(parts.fraction.find_first_not_of('0'), parts.fraction.size()));
    return (order > 0 ? order : -zeros) + (parts.isExponentNegative ? -exponent : exponent) <= 0;
}

/// Nothing for what is no number and for one above all doubles; 0 for one too small.
std::optional<double> ToDouble(const NumberParts& parts) {
    double value = 0;
    const char* const end = parts.all.data() + parts.all.size();
    const auto result = std::from_chars(parts.all.data(), end, value);
    if (result.ec == std::errc::invalid_argument || result.ptr != end)
        return std::nullopt;
    if (result.ec == std::errc::result_out_of_range)
        return IsFraction(parts) ? std::optional<double>(0) : std::nullopt;
    return value;
}

} // namespace

namespace detail {

std::string Format(std::string_view format, std::initializer_list<FormatArgument> arguments) {
    std::string result;
    while (!format.empty()) {
        const std::size_t percent = std::min(format.find('%'), format.size());
        result += format.substr(0, percent);
        format.remove_prefix(percent);
        if (format.empty())
            break;
        std::size_t number = 0;
        const auto parsed =
            std::from_chars(format.data() + 1, format.data() + format.size(), number);
        const auto length = static_cast<std::size_t>(parsed.ptr - format.data());
        const bool isPlaceholder =
            parsed.ec == std::errc() && number >= 1 && number <= arguments.size();
        result += isPlaceholder ? arguments.begin()[number - 1].View() : format.substr(0, length);
        format.remove_prefix(length);
    }
    return result;
}

} // namespace detail

std::string_view ConsumeWord(std::string_view& text) {
    SkipSpace(text);
    const auto end = std::find_if(text.begin(), text.end(), LooksUpSpace);
    const std::string_view word = text.substr(0, static_cast<std::size_t>(end - text.begin()));
    text.remove_prefix(word.size());
    return word;
}

std::string_view ConsumeLine(std::string_view& text) {
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return line;
}

std::vector<std::string> split(std::string_view text) {
    std::vector<std::string> words;
    for (std::string_view word = ConsumeWord(text); !word.empty(); word = ConsumeWord(text))
        words.emplace_back(word);
    return words;
}

bool str_is_integer(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), IsDigit);
}

bool str_is_starts_with(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

bool str_is_finishes_with(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

bool str_caseicmp(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return ToLower(x) == ToLower(y); });
}

std::optional<double> ConsumeDouble(std::string_view& text) {
    // Not a stream: where libstdc++ has its generic locale model (Solaris), a stream switches the
    // locale of the whole process for as long as it converts.
    std::string_view rest = text;
    SkipSpace(rest);
    const bool negative = ConsumeSign(rest);
    const NumberParts parts = ConsumeNumberParts(rest);
    const std::optional<double> value = ToDouble(parts);
    if (!value)
        return std::nullopt;
    text = rest;
    return negative ? -*value : *value;
}

int StringToInt(std::string_view text) {
    SkipSpace(text);
    if (text.size() > 1 && text[0] == '+' && IsDigit(text[1]))
        text.remove_prefix(1);
    return ParseNumber<int>(text, "stoi");
}

unsigned long StringToUnsignedLong(std::string_view text) {
    SkipSpace(text);
    const bool negative = ConsumeSign(text);
    const auto value = ParseNumber<unsigned long>(text, "stoul");
    return negative ? 0UL - value : value; // strtoul's own rule: "-1" is the largest value
}

double StringToDouble(std::string_view text) {
    SkipSpace(text);
    const bool negative = ConsumeSign(text);
    if (!text.empty() && (text.front() == '-' || text.front() == '+'))
        throw std::invalid_argument("stod");
    const auto value = ParseNumber<double>(text, "stod");
    return negative ? -value : value;
}

std::string DoubleToString(double value) {
    std::array<char, 512> digits{}; // the largest double has 309 digits before its point
    constexpr int decimals = 6;
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), value,
                                      std::chars_format::fixed, decimals);
    return {digits.data(), result.ptr};
}

std::uint64_t TruncateToUint64(double value) {
    if (std::isnan(value) || value <= 0)
        return 0;
    constexpr double twoToThe64 = 18446744073709551616.0;
    if (value >= twoToThe64)
        return std::numeric_limits<std::uint64_t>::max();
    return static_cast<std::uint64_t>(value);
}

} // namespace util
