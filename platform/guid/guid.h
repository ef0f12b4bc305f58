#pragma once

#include "../zfslib_export.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace guid {

/// A 128-bit identifier. A default one is all zeros.
class ZFSLIB_EXPORT guid_t {
public:
    guid_t() = default;

    /// A new random identifier (version 4 of the universally unique ones).
    static guid_t CreateNew();

    /// So many new ones, for one read of the system's random device in all. A new one each time:
    /// none is kept for later, so that processes which fork cannot come by the same.
    static std::vector<guid_t> CreateNew(std::size_t count);

    /// @{
    /// Identifiers are ordered byte by byte.
    bool operator==(const guid_t& other) const { return bytes_ == other.bytes_; }
    bool operator!=(const guid_t& other) const { return bytes_ != other.bytes_; }
    bool operator<(const guid_t& other) const { return bytes_ < other.bytes_; }
    /// @}

    /// Lower-case hexadecimal in the usual groups: "123e4567-e89b-42d3-a456-426614174000".
    [[nodiscard]] std::string ToString() const;

private:
    std::array<std::uint8_t, 16> bytes_{};
};

} // namespace guid
