#pragma once

#include "posix/internal/Descriptor.h"

#include <string>
#include <sys/types.h>
#include <vector>

namespace posix::internal {

/// Where the child's PATH has the program; a name with a "/" is its own path.
/// Errors: std::system_error.
std::string FindProgram(const std::string& program);

/// Starts the program at `path`; `words` are its name and its arguments. Its standard output goes
/// to `output`, its standard error to `error`, which may be the same. It leads its own process
/// group and has none of the host's descriptors, environment, signal mask and dispositions.
/// Errors: std::system_error.
pid_t Spawn(const std::string& path, std::vector<std::string> words, const Descriptor& output,
            const Descriptor& error);

} // namespace posix::internal
