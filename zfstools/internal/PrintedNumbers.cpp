#include "zfstools/internal/PrintedNumbers.h"

#include "util/str.h"

#include <charconv>

namespace zfslib {
namespace {

/// 0 to 11; nothing for what is no month of ctime.
std::optional<std::int64_t> MonthIndex(std::string_view name) {
    constexpr std::string_view months = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const std::size_t position = name.size() == 3 ? months.find(name) : std::string_view::npos;
    if (position == std::string_view::npos || position % 3 != 0)
        return std::nullopt;
    return static_cast<std::int64_t>(position / 3);
}

/// Days from 1970-01-01 to a day of the Gregorian calendar. Years are counted from March on, so
/// that the leap day is a year's last.
std::int64_t DaysSinceEpoch(std::int64_t year, std::int64_t month, std::int64_t day) {
    const std::int64_t shiftedYear = month < 2 ? year - 1 : year;
    const std::int64_t shiftedMonth = (month + 10) % 12;
    const std::int64_t dayOfYear = (153 * shiftedMonth + 2) / 5 + day - 1;
    constexpr std::int64_t daysToEpoch = 719468; // from 0000-03-01
    return 365 * shiftedYear + shiftedYear / 4 - shiftedYear / 100 + shiftedYear / 400 + dayOfYear -
           daysToEpoch;
}

/// "09:13:22"; nothing for other text.
std::optional<std::int64_t> SecondsOfDay(std::string_view text) {
    if (text.size() != 8 || text[2] != ':' || text[5] != ':')
        return std::nullopt;
    const auto hours = ParseInteger(text.substr(0, 2));
    const auto minutes = ParseInteger(text.substr(3, 2));
    const auto seconds = ParseInteger(text.substr(6, 2));
    if (!hours || !minutes || !seconds || *hours > 23 || *minutes > 59 || *seconds > 60)
        return std::nullopt;
    return static_cast<std::int64_t>((*hours * 60 + *minutes) * 60 + *seconds);
}

} // namespace

std::optional<std::uint64_t> ParseInteger(std::string_view text) {
    std::uint64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end)
        return std::nullopt;
    return value;
}

PoolHealth::Amount ParseAmount(std::string_view text) {
    PoolHealth::Amount amount{std::string(text), ParseInteger(text)};
    if (amount.value || text.empty() || text.front() < '0' || text.front() > '9')
        return amount;
    constexpr std::string_view units = "BKMGTPE";
    const std::size_t unit = units.find(text.back());
    if (unit == std::string_view::npos)
        return amount;
    text.remove_suffix(1);
    const std::optional<double> number = util::ConsumeDouble(text);
    if (number && text.empty())
        amount.value =
            util::TruncateToUint64(*number * static_cast<double>(std::uint64_t{1} << (10 * unit)));
    return amount;
}

std::optional<PoolHealth::Time> ParseTime(std::string_view text, PoolHealth::Clock clock) {
    std::string_view rest = text;
    const std::string_view weekday = util::ConsumeWord(rest);
    const auto month = MonthIndex(util::ConsumeWord(rest));
    const auto day = ParseInteger(util::ConsumeWord(rest));
    const auto secondsOfDay = SecondsOfDay(util::ConsumeWord(rest));
    const std::string_view yearWord = util::ConsumeWord(rest).substr(0, 4); // "2026," as well
    const auto year = ParseInteger(yearWord);
    if (!month || !day || !secondsOfDay || !year || *day < 1 || *day > 31 || *year < 1970)
        return std::nullopt;
    PoolHealth::Time time;
    time.text.assign(weekday.data(), yearWord.data() + yearWord.size());
    if (clock == PoolHealth::Clock::Utc) {
        constexpr std::int64_t secondsPerDay = std::int64_t{24} * 60 * 60;
        time.seconds = DaysSinceEpoch(static_cast<std::int64_t>(*year), *month,
                                      static_cast<std::int64_t>(*day)) *
                           secondsPerDay +
                       *secondsOfDay;
    }
    return time;
}

} // namespace zfslib
