#include "util/str.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <locale>
#include <sstream>
#include <stdexcept>

namespace util {
namespace {

constexpr bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

constexpr char ToLower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

void SkipSpace(std::string_view& text) {
    const auto word = std::find_if_not(text.begin(), text.end(), IsSpace);
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
    const auto end = std::find_if(text.begin(), text.end(), IsSpace);
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
    // A stream, not from_chars: what ends a number ("1e5", "10E", "0x1", "1.2.3") is the stream's
    // own rule. Only the front of the text can be a number, so no more than that is copied.
    std::string_view rest = text;
    const std::size_t space = text.size() - (SkipSpace(rest), rest.size());
    const std::size_t numberEnd = std::min(rest.find_first_not_of("+-.0123456789eE"), rest.size());
    // One character more, so that the stream ends at the end of the text only when the text does.
    std::istringstream stream(std::string(rest.substr(0, numberEnd + 1)));
    stream.imbue(std::locale::classic());
    double value = 0;
    if (!(stream >> value))
        return std::nullopt;
    const std::size_t used = stream.eof() ? std::min(numberEnd + 1, rest.size())
                                          : static_cast<std::size_t>(stream.tellg());
    text.remove_prefix(space + used);
    return value;
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
