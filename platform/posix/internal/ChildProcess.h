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
    /// How long a killed child is waited for. One that hangs in the kernel takes longer to die.
    static constexpr std::chrono::seconds killGrace{1};

    /// Starts the child; for the parameters and errors see Spawn.
    ChildProcess(const std::string& path, std::vector<std::string> words, const Descriptor& output,
                 const Descriptor& error);
    /// Kills the group of a child that has not ended, and reaps the child.
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// Looks whether the child has ended; never waits.
    [[nodiscard]] bool HasEnded() noexcept;
    /// How it ended, as waitpid() says. Absent while it runs, and when the status was taken by
    /// somebody else in the process, or dropped because the host ignores SIGCHLD.
    [[nodiscard]] std::optional<int> Status() const noexcept { return status_; }

    void KillGroup() const noexcept;
    /// Leaves the child to ReapStragglers.
    void Abandon() noexcept;

    /// Reaps those abandoned children that have ended since.
    static void ReapStragglers();

private:
    std::list<pid_t> pid_{
        -1}; ///< of one, none when abandoned: its node moves without an allocation
    std::optional<int> status_;
    bool ended_ = false;
};

} // namespace posix::internal
