#include "posix/internal/ErrorText.h"

#include "util/str.h"

#include <algorithm>
#include <cerrno>
#include <iterator>

namespace posix::internal {

std::string ErrorText(int number) {
    static constexpr struct {
        int number;
        const char* text;
    } texts[] = {
        {E2BIG, "Argument list too long"},
        {EACCES, "Permission denied"},
        {EAGAIN, "Resource temporarily unavailable"},
        {EBADF, "Bad file descriptor"},
        {EBUSY, "Device or resource busy"},
        {EDQUOT, "Disk quota exceeded"},
        {EEXIST, "File exists"},
        {EFBIG, "File too large"},
        {EINTR, "Interrupted system call"},
        {EINVAL, "Invalid argument"},
        {EIO, "Input/output error"},
        {EISDIR, "Is a directory"},
        {ELOOP, "Too many levels of symbolic links"},
        {EMFILE, "Too many open files"},
        {ENAMETOOLONG, "File name too long"},
        {ENFILE, "Too many open files in system"},
        {ENODEV, "No such device"},
        {ENOENT, "No such file or directory"},
        {ENOEXEC, "Exec format error"},
        {ENOLCK, "No locks available"},
        {ENOMEM, "Cannot allocate memory"},
        {ENOSPC, "No space left on device"},
        {ENOTDIR, "Not a directory"},
        {ENXIO, "No such device or address"},
        {EPERM, "Operation not permitted"},
        {EPIPE, "Broken pipe"},
        {EROFS, "Read-only file system"},
        {ESTALE, "Stale file handle"},
        {ETXTBSY, "Text file busy"},
    };
    const auto* const found = std::find_if(std::begin(texts), std::end(texts),
                                           [&](const auto& row) { return row.number == number; });
    return found == std::end(texts) ? "error " + util::str(number) : found->text;
}

} // namespace posix::internal
