#include "guid/guid.h"

#include <cstddef>
#include <random>

namespace guid {

guid_t guid_t::CreateNew() {
    // The device itself and no generator seeded from it: after a fork, two processes that share a
    // generator's state would hand out the same identifiers.
    std::random_device device;
    guid_t result;
    for (std::size_t i = 0; i < result.bytes_.size(); i += sizeof(std::uint32_t)) {
        const std::uint32_t bits = device();
        for (std::size_t byte = 0; byte < sizeof bits; ++byte)
            result.bytes_[i + byte] = static_cast<std::uint8_t>(bits >> (8 * byte));
    }
    result.bytes_[6] = static_cast<std::uint8_t>((result.bytes_[6] & 0x0FU) | 0x40U); // version 4
    result.bytes_[8] = static_cast<std::uint8_t>((result.bytes_[8] & 0x3FU) | 0x80U); // variant 1
    return result;
}

std::string guid_t::ToString() const {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(36);
    for (std::size_t i = 0; i < bytes_.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10)
            text += '-';
        text += digits[bytes_[i] >> 4U];
        text += digits[bytes_[i] & 0x0FU];
    }
    return text;
}

} // namespace guid
