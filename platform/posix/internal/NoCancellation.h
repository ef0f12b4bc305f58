#pragma once

#include <pthread.h>

namespace posix::internal {

/// While one lives, a host that cancels the thread (pthread_cancel) waits for it to be gone.
/// Cancellation would unwind the thread from functions that must not throw, and leave children
/// and half-written files behind.
class NoCancellation {
public:
    NoCancellation() noexcept { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &former_); }
    ~NoCancellation() {
        int ignored = 0;
        pthread_setcancelstate(former_, &ignored);
    }
    NoCancellation(const NoCancellation&) = delete;
    NoCancellation& operator=(const NoCancellation&) = delete;

private:
    int former_ = PTHREAD_CANCEL_ENABLE;
};

} // namespace posix::internal
