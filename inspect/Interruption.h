#pragma once

#include <array>
#include <csignal>
#include <cstddef>

namespace inspect {

/// While one lives, a signal that asks the process to end (SIGHUP, SIGINT, SIGQUIT, SIGTERM) stops
/// the commands in progress instead, which a signal from the terminal does not reach: they have
/// process groups of their own. A signal that was ignored stays so. There is one at a time.
class Interruption {
public:
    Interruption();
    ~Interruption();
    Interruption(const Interruption&) = delete;
    Interruption& operator=(const Interruption&) = delete;

    /// The signal that came, 0 for none; also when the object is gone.
    [[nodiscard]] static int Signal() noexcept;

    /// Errors: std::runtime_error when a signal came.
    static void Check();

    /// Ends the process by `signal`, as if it had never been caught, for the caller to see.
    [[noreturn]] static void EndBy(int signal);

private:
    static constexpr std::array<int, 4> signals = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};
    std::array<struct sigaction, signals.size()> former_{};
};

} // namespace inspect
