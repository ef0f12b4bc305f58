#pragma once

#include "restore/HostState.h"

#include <optional>
#include <string>
#include <string_view>

/// How the same value of a property is said in other words.
namespace zfslib::restore::internal {

/// What a plan may do with a property of a dataset.
enum class PropertyKind {
    Inheritable, ///< set, and inherited
    Own,         ///< set, and not handed down
    SetOnce,     ///< given at creation
    Fixed,       ///< figures and what is read only
    Unknown,     ///< not among what the live tool knows
};

/// By the table of the live tool.
[[nodiscard]] PropertyKind KindOf(const ToolsState& live, std::string_view property);

/// The one word for all that mean the same as this value of a native property: "gzip" of "gzip-6",
/// "none" of a quota of 0. User properties stay as they are.
[[nodiscard]] std::string_view Canonical(std::string_view property, std::string_view value,
                                         const ToolsState& tools);

/// The value that `zfs set` takes for one that `zfs get -p` printed.
[[nodiscard]] std::string_view WordToSet(std::string_view property, std::string_view printed,
                                         const ToolsState& tools);

/// What the live tool prints after a value was set, which another printed, or a word that means
/// the same.
[[nodiscard]] std::string_view TextOnceSet(std::string_view property, std::string_view printed,
                                           const ToolsState& saved, const ToolsState& live);

/// The canonical default of what is not handed down, where every system has the same; else empty.
[[nodiscard]] std::string_view KnownDefault(std::string_view property);

/// The feature that a pool has to have for a value of a property; empty when it needs none.
[[nodiscard]] std::string_view FeatureFor(std::string_view property, std::string_view value);

/// A mount point as it is stored: without the altroot before it, and without "/" behind it.
[[nodiscard]] std::string_view StoredMountpoint(std::string_view printed, std::string_view altroot);

/// A stored mount point as the tool prints it below an altroot.
[[nodiscard]] std::string PrintedMountpoint(std::string_view stored, std::string_view altroot);

/// A whole number of decimal digits; nothing for other texts and for what 64 bits do not hold.
[[nodiscard]] std::optional<std::uint64_t> WholeNumber(std::string_view text);

} // namespace zfslib::restore::internal
