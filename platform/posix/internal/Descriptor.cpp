#include "posix/internal/Descriptor.h"

#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace posix::internal {
namespace {

void Require(bool ok, const char* operation) {
    if (!ok)
        throw std::system_error(errno, std::generic_category(), operation);
}

Pipe MakeCloseOnExecPipe() {
    int ends[2];
#ifdef ZFSLIB_HAVE_PIPE2
    Require(pipe2(ends, O_CLOEXEC) == 0, "pipe2");
    return {Descriptor(ends[0]), Descriptor(ends[1])};
#else
    // What another thread starts before the fcntl calls inherits the ends. That delays nothing
    // here, because the runner waits for its child and not for the end of the pipe.
    Require(pipe(ends) == 0, "pipe");
    Pipe made{Descriptor(ends[0]), Descriptor(ends[1])};
    for (const int end : ends)
        Require(fcntl(end, F_SETFD, FD_CLOEXEC) == 0, "fcntl(F_SETFD)");
    return made;
#endif
}

} // namespace

void Descriptor::Close() noexcept {
    // Not repeated on EINTR: the number may already be another thread's new descriptor.
    if (number_ >= 0)
        close(std::exchange(number_, -1));
}

TakenStandardStreams::TakenStandardStreams() {
    for (Descriptor& taken : taken_) {
        Descriptor next(open("/dev/null", O_RDONLY | O_CLOEXEC));
        Require(next.IsOpen(), "open(/dev/null)");
        if (IsAboveStandardStreams(next))
            return;
        taken = std::move(next);
    }
}

bool IsAboveStandardStreams(const Descriptor& descriptor) noexcept {
    return descriptor.Number() > STDERR_FILENO;
}

Pipe MakePipe() {
    for (;;) {
        const TakenStandardStreams taken;
        Pipe made = MakeCloseOnExecPipe();
        if (!IsAboveStandardStreams(made.readEnd) || !IsAboveStandardStreams(made.writeEnd))
            continue; // what the host wrote to it meanwhile goes with it
        Require(fcntl(made.readEnd.Number(), F_SETFL, O_NONBLOCK) == 0, "fcntl(F_SETFL)");
        return made;
    }
}

} // namespace posix::internal
