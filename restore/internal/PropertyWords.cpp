#include "restore/internal/PropertyWords.h"

#include "util/str.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <system_error>

namespace zfslib::restore::internal {
namespace {

/// Words that a tool takes, or that another release prints, for what it prints as the last.
struct Alias {
    std::string_view property;
    std::string_view word;
    std::string_view same;
};
constexpr Alias aliases[] = {
    {"aclinherit", "secure", "restricted"},
    {"acltype", "disabled", "off"},
    {"acltype", "noacl", "off"},
    {"acltype", "posixacl", "posix"},
    {"compression", "gzip-6", "gzip"},
    {"compression", "zstd-3", "zstd"},
    {"encryption", "on", "aes-256-gcm"},
    {"volmode", "geom", "full"},
};

/// 0 is no limit, and `zfs set` wants the word for it.
constexpr std::string_view noneIsZero[] = {"quota", "refquota", "reservation", "refreservation"};

bool IsNoneWhenZero(std::string_view property) {
    return std::find(std::begin(noneIsZero), std::end(noneIsZero), property) !=
               std::end(noneIsZero) ||
           (util::str_is_starts_with(property, "default") &&
            util::str_is_finishes_with(property, "quota"));
}

bool IsLimit(std::string_view property) {
    return property == "filesystem_limit" || property == "snapshot_limit";
}

/// What is not given to `zfs create -o` only, and yet is no longer to be changed: the table has
/// them as read only.
constexpr std::string_view ofTheKey[] = {"keyformat", "pbkdf2iters"};

} // namespace

PropertyKind KindOf(const ToolsState& live, std::string_view property) {
    if (property.find(':') != std::string_view::npos)
        return PropertyKind::Inheritable;
    const PropertyRule* rule = FindRule(live.datasetProperties, property);
    if (rule == nullptr)
        return PropertyKind::Unknown;
    if (std::find(std::begin(ofTheKey), std::end(ofTheKey), property) != std::end(ofTheKey))
        return PropertyKind::SetOnce;
    if (!rule->isEditable)
        return rule->isInheritable ? PropertyKind::SetOnce : PropertyKind::Fixed;
    return rule->isInheritable ? PropertyKind::Inheritable : PropertyKind::Own;
}

std::string_view Canonical(std::string_view property, std::string_view value,
                           const ToolsState& tools) {
    if (value == "0" && IsNoneWhenZero(property))
        return "none";
    if (value == "18446744073709551615" && IsLimit(property))
        return "none"; // before OpenZFS 2.2
    if (property == "xattr" && value == "on" && !tools.version.empty())
        return tools.AtLeast(2, 3) ? "sa" : "dir";
    for (const Alias& alias : aliases)
        if (alias.word == value && alias.property == property)
            return alias.same;
    return value;
}

std::string_view WordToSet(std::string_view property, std::string_view printed,
                           const ToolsState& tools) {
    if (IsNoneWhenZero(property) || IsLimit(property) || property == "xattr")
        return Canonical(property, printed, tools);
    return printed;
}

std::string_view TextOnceSet(std::string_view property, std::string_view printed,
                             const ToolsState& saved, const ToolsState& live) {
    const std::string_view canonical = Canonical(property, printed, saved);
    if (IsNoneWhenZero(property))
        return canonical == "none" ? "0" : printed;
    if (IsLimit(property) || canonical != Canonical(property, printed, live))
        return canonical;
    return printed;
}

std::string_view KnownDefault(std::string_view property) {
    if (IsNoneWhenZero(property) || IsLimit(property))
        return "none";
    return property == "canmount" ? "on" : std::string_view();
}

std::string_view FeatureFor(std::string_view property, std::string_view value) {
    constexpr std::uint64_t largest = 128U << 10U;
    if (property == "compression")
        return util::str_is_starts_with(value, "zstd") ? "zstd_compress"
               : value == "lz4"                        ? "lz4_compress"
                                                       : "";
    if (property == "checksum" || property == "dedup")
        for (const std::string_view feature : {"sha512", "skein", "edonr", "blake3"})
            if (util::str_is_starts_with(value, feature))
                return feature;
    if ((property == "recordsize" || property == "volblocksize" ||
         property == "special_small_blocks") &&
        WholeNumber(value).value_or(0) > largest)
        return "large_blocks";
    if (property == "longname" && value == "on")
        return "longname";
    if (property == "dnodesize" && value != "legacy")
        return "large_dnode";
    if (IsLimit(property) && Canonical(property, value, {}) != "none")
        return "filesystem_limits";
    return {};
}

std::string_view StoredMountpoint(std::string_view printed, std::string_view altroot) {
    const bool hasRoot = altroot.size() > 1 && util::str_is_starts_with(printed, altroot) &&
                         (printed.size() == altroot.size() || printed[altroot.size()] == '/');
    if (hasRoot)
        printed.remove_prefix(altroot.size());
    if (hasRoot && printed.empty())
        return "/";
    while (printed.size() > 1 && printed.front() == '/' && printed.back() == '/')
        printed.remove_suffix(1);
    return printed;
}

std::string PrintedMountpoint(std::string_view stored, std::string_view altroot) {
    if (stored.empty() || stored.front() != '/' || altroot.size() < 2)
        return std::string(stored);
    return std::string(altroot) + (stored == "/" ? std::string() : std::string(stored));
}

std::optional<std::uint64_t> WholeNumber(std::string_view text) {
    std::uint64_t number = 0;
    const auto end = std::from_chars(text.data(), text.data() + text.size(), number);
    if (end.ec != std::errc() || end.ptr != text.data() + text.size())
        return std::nullopt;
    return number;
}

} // namespace zfslib::restore::internal
