#include "posix/internal/ChildProcess.h"

#include "posix/internal/Spawn.h"
#include "util/internal/NeverDestroyed.h"

#include <cerrno>
#include <csignal>
#include <mutex>
#include <sys/wait.h>
#include <thread>

namespace posix::internal {
namespace {

struct Stragglers {
    std::mutex mutex;
    std::list<pid_t> pids;
};

/// Never destroyed: threads may still run commands while the process ends. Built before the first
/// child, so that the destructor of one needs no memory for it.
Stragglers& AllStragglers() {
    static util::internal::NeverDestroyed<Stragglers> stragglers;
    return *stragglers;
}

} // namespace

ChildProcess::ChildProcess(const std::string& path, std::vector<std::string> words,
                           const Descriptor& output, const Descriptor& error) {
    pid_.front() = Spawn(path, std::move(words), output, error);
}

ChildProcess::~ChildProcess() {
    if (HasEnded())
        return;
    KillGroup();
    if (EndsWithin(std::chrono::seconds(1)))
        return;
    Stragglers& stragglers = AllStragglers();
    const std::lock_guard lock(stragglers.mutex);
    stragglers.pids.splice(stragglers.pids.end(), pid_);
}

bool ChildProcess::HasEnded() noexcept {
    if (ended_)
        return true;
    int status = 0;
    const pid_t reaped = waitpid(pid_.front(), &status, WNOHANG);
    if (reaped == pid_.front())
        status_ = status;
    ended_ = status_.has_value() || (reaped < 0 && errno == ECHILD);
    return ended_;
}

void ChildProcess::KillGroup() const noexcept {
    // The child itself as well: it may have left its group.
    kill(-pid_.front(), SIGKILL);
    kill(pid_.front(), SIGKILL);
}

bool ChildProcess::EndsWithin(std::chrono::seconds time) noexcept {
    const auto deadline = std::chrono::steady_clock::now() + time;
    Pause pause;
    while (!HasEnded() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(pause.Next());
    return ended_;
}

void ChildProcess::ReapStragglers() {
    Stragglers& stragglers = AllStragglers();
    const std::lock_guard lock(stragglers.mutex);
    // Anything but 0 is the end of it: reaped just now, or by somebody else.
    stragglers.pids.remove_if([](pid_t pid) { return waitpid(pid, nullptr, WNOHANG) != 0; });
}

} // namespace posix::internal
