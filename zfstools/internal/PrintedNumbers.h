#pragma once

#include "zfstools/PoolHealth.h"

#include <cstdint>
#include <optional>
#include <string_view>

/// Numbers and times as the pool tool prints them.
namespace zfslib {

/// Decimal digits and nothing else; nothing for other text and for what does not fit.
std::optional<std::uint64_t> ParseInteger(std::string_view text);

/// "173", "4.56K", "0B": digits, perhaps with a fraction, and perhaps a unit.
PoolHealth::Amount ParseAmount(std::string_view text);

/// A time as ctime(3) prints it, "Sun Nov  2 09:13:22 2026", at the front of `text`; what follows
/// does not matter. Nothing for other text.
std::optional<PoolHealth::Time> ParseTime(std::string_view text, PoolHealth::Clock clock);

} // namespace zfslib
