#pragma once

#include "zfstools/Executor.h"

#include <stdexcept>
#include <string>

namespace inspect {

/// The ZFS tools are not on the host; what() says so and names the folders that were searched.
class MissingTools : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The folders that the tools are looked for in, divided by ", ".
[[nodiscard]] std::string SearchedFolders();

/// An executor that passes every command on to `executor`, and throws MissingTools when that finds
/// no such tool.
[[nodiscard]] zfslib::CommandExecutor NamingMissingTools(zfslib::CommandExecutor executor);

} // namespace inspect
