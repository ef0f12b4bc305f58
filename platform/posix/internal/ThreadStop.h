#pragma once

#include <atomic>
#include <utility>

namespace posix::internal {

/// While one lives, its flag ends the commands of this thread, as CSimpleCmdExec::SetStopped ends
/// those of the process.
class ThreadStop {
public:
    explicit ThreadStop(const std::atomic<bool>& flag) noexcept
        : former_(std::exchange(current, &flag)) {}
    ~ThreadStop() { current = former_; }
    ThreadStop(const ThreadStop&) = delete;
    ThreadStop& operator=(const ThreadStop&) = delete;

    /// Whether the commands of this thread are to end.
    [[nodiscard]] static bool IsSet() noexcept { return current != nullptr && *current; }

private:
    inline static thread_local const std::atomic<bool>* current = nullptr;
    const std::atomic<bool>* former_;
};

} // namespace posix::internal
