#pragma once

#include <array>
#include <utility>

namespace posix::internal {

/// Owns one file descriptor, or none.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int number) noexcept : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        Close();
        number_ = std::exchange(other.number_, -1);
        return *this;
    }
    ~Descriptor() { Close(); }

    void Close() noexcept;
    [[nodiscard]] bool IsOpen() const noexcept { return number_ >= 0; }
    /// -1 when it owns none.
    [[nodiscard]] int Number() const noexcept { return number_; }

private:
    int number_ = -1;
};

struct Pipe {
    Descriptor readEnd;
    Descriptor writeEnd;
};

/// While one lives, the numbers 0 to 2 are taken, by /dev/null where the host has them closed: what
/// is opened meanwhile does not receive what a thread of the host writes to its standard streams.
class TakenStandardStreams {
public:
    /// Errors: std::system_error.
    TakenStandardStreams();

private:
    std::array<Descriptor, 3> taken_;
};

/// Whether the number is none of 0 to 2. A thread of the host may have closed one of these since
/// they were taken.
[[nodiscard]] bool IsAboveStandardStreams(const Descriptor& descriptor) noexcept;

/// A new pipe. Both ends are closed on exec and lie at 3 or above, also in a process with 0, 1 or
/// 2 closed; reading never blocks. Errors: std::system_error.
Pipe MakePipe();

} // namespace posix::internal
