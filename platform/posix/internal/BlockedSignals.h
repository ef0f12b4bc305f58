#pragma once

#include <csignal>
#include <pthread.h>

namespace posix::internal {

/// While one lives, no signal is delivered to this thread, nor ever to those that it starts: the
/// host's handlers run in the host's threads. What the thread itself causes (SIGSEGV and the like)
/// still is.
class BlockedSignals {
public:
    BlockedSignals() noexcept {
        sigset_t signals;
        sigfillset(&signals);
        for (const int own : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGTRAP})
            sigdelset(&signals, own);
        pthread_sigmask(SIG_BLOCK, &signals, &former_);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &former_, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

private:
    sigset_t former_{};
};

} // namespace posix::internal
