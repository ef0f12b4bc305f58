#pragma once

#include <string>

namespace posix::internal {

/// What an errno value means, in English whatever language the host has set: errors and recordings
/// are searched for these words. "error 123" for one that is not in the table.
std::string ErrorText(int number);

} // namespace posix::internal
