#pragma once

#include "posix/internal/Descriptor.h"

#include <algorithm>
#include <chrono>
#include <list>
#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

namespace posix::internal {

/// The pauses between looks at a child: short at first, for a command that is over at once should
/// not cost a timer's tick, then growing, for a long one should not keep a processor busy. The
/// longest bounds how late a stop or a time-out is noticed.
class Pause {
public:
    std::chrono::microseconds Next() noexcept {
        return std::exchange(length_, std::min(2 * length_, longest));
    }
    void StartAgain() noexcept { length_ = shortest; }

private:
    static constexpr std::chrono::microseconds shortest{20};
    static constexpr std::chrono::microseconds longest{20000};
    std::chrono::microseconds length_ = shortest;
};

/// A child process of ours, the leader of its process group, until its end. It is asked again and
/// again, because each way to be told of its end (a handler for SIGCHLD, a waiting thread) would
/// be seen by the host.
class ChildProcess {
public:
    /// Starts the child; for the parameters and errors see Spawn.
    ChildProcess(const std::string& path, std::vector<std::string> words, const Descriptor& output,
                 const Descriptor& error);
    /// Kills a child that has not ended, with its group, and reaps it. One that is stuck in the
    /// kernel survives even SIGKILL for a while, or for ever: it is waited for a second, and left
    /// to ReapStragglers.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// Looks whether the child has ended; never waits.
    [[nodiscard]] bool HasEnded() noexcept;
    /// Waits for the end, but no longer than `time`; whether it came.
    [[nodiscard]] bool EndsWithin(std::chrono::seconds time) noexcept;
    /// How it ended, as waitpid() says. Absent while it runs, and when the status was taken by
    /// somebody else in the process, or dropped because the host ignores SIGCHLD.
    [[nodiscard]] std::optional<int> Status() const noexcept { return status_; }

    /// Reaps those of the children left to it that have ended since.
    static void ReapStragglers();

private:
    void KillGroup() const noexcept;

    /// One id. In a list, because its node can be handed to the stragglers without an allocation.
    std::list<pid_t> pid_{-1};
    std::optional<int> status_;
    bool ended_ = false;
};

} // namespace posix::internal
