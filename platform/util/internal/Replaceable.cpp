#include "util/internal/Replaceable.h"

#include "util/internal/NeverDestroyed.h"

#include <mutex>
#include <pthread.h>

namespace util::internal {
namespace {

std::mutex& Mutex() {
    static NeverDestroyed<std::mutex> mutex;
    return *mutex;
}

void Lock() {
    Mutex().lock();
}

void Unlock() {
    Mutex().unlock();
}

} // namespace

ReplaceableLock::ReplaceableLock() {
    // Without memory for the handlers (the only error) no more is lost than they are for.
    [[maybe_unused]] static const int registered = pthread_atfork(Lock, Unlock, Unlock);
    Lock();
}

ReplaceableLock::~ReplaceableLock() {
    Unlock();
}

} // namespace util::internal
