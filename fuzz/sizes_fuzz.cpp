// The readers of sizes against the same rules written with streams; a size that is printed and
// read again stays the same as far as six decimals can tell it.

#include "fuzz/fuzz.h"
#include "zfstools/Util.h"
#include "zfstools/ZfsProperties.h"

#include <cmath>
#include <iterator>
#include <limits>
#include <optional>
#include <sstream>

namespace {

using SpaceSize = zfslib::ZfsProperties::SpaceSize;

constexpr double factors[] = {1.0, 0x1p10, 0x1p20, 0x1p30, 0x1p40};

std::uint64_t Truncated(double value) {
    if (!(value > 0))
        return 0;
    return value < 0x1p64 ? static_cast<std::uint64_t>(value)
                          : std::numeric_limits<std::uint64_t>::max();
}

/// A size column: a number with one upper-case letter behind it; a fraction needs one above B.
std::string ExpectedColumn(const std::string& text) {
    if (text == "-")
        return "0";
    std::istringstream stream(text);
    double number = 0;
    if (stream >> number) {
        const bool whole = text.find('.') == std::string::npos;
        const char suffix = stream.eof() ? 'B' : static_cast<char>(stream.get());
        const std::size_t unit = std::string_view("BKMGT").find(suffix);
        if (unit != std::string_view::npos && (unit > 0 || whole))
            return util::str(Truncated(number * factors[unit]));
    }
    return fuzz::ErrorText("Failed to parse space value: [" + text + "].");
}

/// Whether the text holds a number so small that it is the C library's own choice whether stod
/// takes it.
bool HasSubnormal(const std::string& text) {
    std::istringstream stream(text);
    double number = 0;
    return stream >> number && std::fpclassify(number) == FP_SUBNORMAL;
}

std::optional<double> ReadWhole(const std::string& text) {
    std::istringstream stream(text);
    double number = 0;
    if (!(stream >> number) || !stream.eof())
        return std::nullopt;
    return std::stod(text);
}

/// A size property: digits alone, or a number with one of the units' suffixes.
std::string ExpectedProperty(const std::string& text) {
    if (text == "auto")
        return "0 B auto";
    if (util::str_is_integer(text))
        return util::str(static_cast<std::uint64_t>(std::stoi(text))) + " B value";
    for (std::size_t unit = 0; unit < std::size(factors); ++unit) {
        for (const std::string& suffix : SpaceSize::units[unit].AltName()) {
            if (!util::str_is_finishes_with(text, suffix))
                continue;
            if (const auto number = ReadWhole(text.substr(0, text.size() - suffix.size())))
                return util::str(Truncated(factors[unit] * *number)) + " " +
                       SpaceSize::units[unit].Name() + " value";
        }
    }
    return "0 B none";
}

std::string Dump(const SpaceSize& size) {
    const char* const kinds[] = {" none", " value", " auto"};
    return util::str(size.bytes) + " " + size.unit.Name() + kinds[static_cast<int>(size.kind)];
}

void CheckPrinted(const SpaceSize& size) {
    const std::string printed = SpaceSize::ToString(size);
    const SpaceSize again = SpaceSize::FromString(printed);
    const std::uint64_t factor = size.unit.ByteFactor();
    const bool fitsSixDecimals = size.bytes % factor * 1000000 % factor == 0;
    if (size.kind != SpaceSize::Kind::Value || fitsSixDecimals)
        return fuzz::CheckEqual(Dump(again), Dump(size), printed);
    // Half of the last decimal, and the fraction of a byte that is dropped.
    const double difference = static_cast<double>(again.bytes) - static_cast<double>(size.bytes);
    fuzz::Check(std::abs(difference) <= 5e-7 * static_cast<double>(factor) + 1, printed);
    fuzz::CheckEqual(again.unit.Name(), size.unit.Name(), printed);
}

/// What a reader of size properties gives or throws; "stoi" and "stod" are the documented errors.
template <typename Read>
std::string OutcomeOf(Read&& read, const std::string& text) {
    try {
        return read(text);
    } catch (const std::out_of_range& error) {
        const bool digits = util::str_is_integer(text);
        fuzz::CheckEqual(error.what(), digits ? "stoi" : "stod", "an error of a number's range");
        return fuzz::ErrorText(error.what());
    }
}

} // namespace

void FuzzOne(const std::string& text) {
    fuzz::CheckEqual(fuzz::RepeatedOutcome([&] { return util::str(zfslib::ParseSpaceValue(text)); },
                                           {"Failed to parse space value: ["}),
                     ExpectedColumn(text), "a size column");

    const auto read = [](const std::string& value) { return Dump(SpaceSize::FromString(value)); };
    const std::string size = OutcomeOf(read, text);
    fuzz::CheckEqual(OutcomeOf(read, text), size, "the same input gives the same result");
    if (!HasSubnormal(text))
        fuzz::CheckEqual(size, OutcomeOf(ExpectedProperty, text), "a size property");
    if (!fuzz::IsError(size))
        CheckPrinted(SpaceSize::FromString(text));
}
