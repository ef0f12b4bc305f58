#pragma once

#include "posix/internal/Descriptor.h"

#include <cstdint>
#include <string>
#include <string_view>

/// Files, as who may run as root in a folder of somebody else's has to use them. The errors of all
/// are std::runtime_error with the reason alone, without the path.
namespace posix::internal {

struct OpenFile {
    Descriptor descriptor;
    bool isRegular = false; ///< else a pipe, a terminal or another device
};

/// Opens what is at `path` for reading.
OpenFile OpenToRead(const std::string& path);

/// Opens what is at `path` for appending. A file that is not there is made, for its owner alone;
/// one that is there can be read, too. "/dev/stdout", "/dev/stderr" and "/dev/fd/N" are the
/// process's own descriptors, which whoever started it has opened; they are not taken for files.
///
/// Unless `anyPlace`, what another user could have put there is refused: a symbolic link; a file
/// that is not the caller's own, has other names or can be written by others; and whatever lies on
/// a way through folders that others may write to, but for folders like /tmp where nobody can
/// replace what is the caller's. Owners and modes are looked at, access-control lists are not.
OpenFile OpenToAppend(const std::string& path, bool anyPlace);

/// Takes the lock of a regular file for this process, until it closes any descriptor of that file.
/// Has no effect when it has it. An error when another process has it.
void TakeLock(const Descriptor& file);

/// Appends to `text` what can be read, until that is `size` long or the file is at its end.
void ReadUpTo(const Descriptor& file, std::string& text, std::uint64_t size);

/// Writes all of `text`. A reader that is gone, or a file that may not grow, is an error and raises
/// no signal.
void WriteAll(const Descriptor& file, std::string_view text);

/// Cuts a regular file off behind its first `size` bytes.
void Truncate(const Descriptor& file, std::uint64_t size);

/// Returns when what was written to the regular file is on the disk.
void Synchronize(const Descriptor& file);

} // namespace posix::internal
