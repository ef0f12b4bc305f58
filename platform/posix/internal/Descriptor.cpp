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

/// Moves the descriptor to 3 or above: below, the child would lose it when its standard streams
/// are put there.
Descriptor AboveStandardStreams(Descriptor descriptor) {
    if (descriptor.Number() > STDERR_FILENO)
        return descriptor;
    const int moved = fcntl(descriptor.Number(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    Require(moved >= 0, "fcntl(F_DUPFD_CLOEXEC)");
    return Descriptor(moved);
}

} // namespace

void Descriptor::Close() noexcept {
    // Not repeated on EINTR: the number may already be another thread's new descriptor.
    if (number_ >= 0)
        close(std::exchange(number_, -1));
}

Pipe MakePipe() {
    Pipe made = MakeCloseOnExecPipe();
    made.readEnd = AboveStandardStreams(std::move(made.readEnd));
    made.writeEnd = AboveStandardStreams(std::move(made.writeEnd));
    Require(fcntl(made.readEnd.Number(), F_SETFL, O_NONBLOCK) == 0, "fcntl(F_SETFL)");
    return made;
}

} // namespace posix::internal
