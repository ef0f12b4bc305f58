#pragma once

#include "zfstools/Executor.h"

#include <stdexcept>

namespace inspect {

/// The ZFS tools are not on the host; what() says so and names the folders that were searched.
class MissingTools : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// An executor that passes every command on to `executor`, and throws MissingTools when that finds
/// no such tool.
[[nodiscard]] zfslib::CommandExecutor NamingMissingTools(zfslib::CommandExecutor executor);

} // namespace inspect
