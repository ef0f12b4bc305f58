#include "inspect/Size.h"

#include <array>
#include <cstdio>
#include <string_view>

namespace inspect {

std::string FormatSize(std::uint64_t bytes) {
    constexpr std::string_view units = "BKMGTPE";
    std::size_t unit = 0;
    for (std::uint64_t rest = bytes; rest >= 1024; rest /= 1024)
        ++unit;
    const std::uint64_t factor = std::uint64_t{1} << (10 * unit);
    if (unit == 0)
        return std::to_string(bytes);
    if (bytes % factor == 0)
        return std::to_string(bytes / factor) + units[unit];

    // As many decimals as leave room for the unit in five columns, as the tools do.
    const double number = static_cast<double>(bytes) / static_cast<double>(factor);
    std::array<char, 16> text{};
    for (int decimals = 2; decimals >= 0; --decimals)
        if (std::snprintf(text.data(), text.size(), "%.*f", decimals, number) <= 4)
            break;
    return text.data() + std::string(1, units[unit]);
}

} // namespace inspect
