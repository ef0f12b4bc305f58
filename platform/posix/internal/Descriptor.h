#pragma once

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

/// A new pipe. Both ends are closed on exec and lie at 3 or above, also in a process with 0, 1 or
/// 2 closed; reading never blocks. Errors: std::system_error.
Pipe MakePipe();

} // namespace posix::internal
