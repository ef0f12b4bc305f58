#include "guid/guid.h"

#include <algorithm>
#include <fcntl.h>
#include <random>
#include <unistd.h>

namespace guid {
namespace {

/// Fills the bytes from the random device of the file system; how many could be had of them.
std::size_t ReadRandom(std::uint8_t* bytes, std::size_t count) {
    const int device = open("/dev/urandom", O_RDONLY | O_CLOEXEC);
    if (device < 0)
        return 0;
    std::size_t done = 0;
    while (done < count) {
        const ssize_t part = read(device, bytes + done, count - done);
        if (part <= 0)
            break;
        done += static_cast<std::size_t>(part);
    }
    close(device);
    return done;
}

} // namespace

guid_t guid_t::CreateNew() {
    return CreateNew(1).front();
}

std::vector<guid_t> guid_t::CreateNew(std::size_t count) {
    // The system's random bytes and no generator seeded from them: after a fork, two processes that
    // share a generator's state would hand out the same identifiers.
    constexpr std::size_t size = sizeof(bytes_);
    std::vector<std::uint8_t> random(count * size);
    std::size_t done = ReadRandom(random.data(), random.size());
    if (done < random.size())
        for (std::random_device device; done < random.size(); ++done) // as in a bare chroot
            random[done] = static_cast<std::uint8_t>(device());

    std::vector<guid_t> result(count);
    for (std::size_t i = 0; i < count; ++i) {
        auto& bytes = result[i].bytes_;
        std::copy_n(random.begin() + static_cast<std::ptrdiff_t>(i * size), size, bytes.begin());
        bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0FU) | 0x40U); // version 4
        bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3FU) | 0x80U); // variant 1
    }
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
