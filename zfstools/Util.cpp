#include "zfstools/Util.h"

#include "util/str.h"

#include <algorithm>
#include <optional>
#include <stdexcept>

namespace zfslib {
namespace {

/// Bytes per unit of a suffix that may follow a fraction; no value for other characters.
std::optional<double> BytesPerUnit(char suffix) {
    switch (suffix) {
    case 'K':
        return 1024.0;
    case 'M':
        return 1024.0 * 1024;
    case 'G':
        return 1024.0 * 1024 * 1024;
    case 'T':
        return 1024.0 * 1024 * 1024 * 1024;
    default:
        return std::nullopt;
    }
}

} // namespace

bool IsIntegerValue(const std::string& value) {
    return value.find('.') == std::string::npos;
}

bool IsZfsVolume(const std::string& devicePath, const std::vector<std::string>& otherPaths) {
    const auto isVolume = [](const std::string& path) {
        return util::str_is_starts_with(path, "/dev/zvol");
    };
    return isVolume(devicePath) || std::any_of(otherPaths.begin(), otherPaths.end(), isVolume);
}

unsigned long ParseSpaceValue(const std::string& text) {
    if (text == "-")
        return 0;
    std::string_view rest = text;
    const std::optional<double> number = util::ConsumeDouble(rest);
    if (number) {
        if ((rest.empty() || rest.front() == 'B') && IsIntegerValue(text))
            return util::TruncateToUint64(*number);
        if (const auto factor = rest.empty() ? std::nullopt : BytesPerUnit(rest.front()))
            return util::TruncateToUint64(*number * *factor);
    }
    throw std::runtime_error("Failed to parse space value: [" + text + "].");
}

} // namespace zfslib
