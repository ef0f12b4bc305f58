#pragma once

#include "util/str.h"

#include <string_view>

namespace zfslib::executors::internal {

/// What the library's own command lines begin with.
inline constexpr std::string_view bareEnvironment = "/usr/bin/env -i ";

/// The line without `bareEnvironment` and a time zone behind it: "zpool status tank" of
/// "/usr/bin/env -i TZ=UTC0 zpool status tank". Another line stays as it is.
[[nodiscard]] inline std::string_view WithoutEnvironment(std::string_view command) {
    if (!util::str_is_starts_with(command, bareEnvironment))
        return command;
    command.remove_prefix(bareEnvironment.size());
    std::string_view rest = command;
    return util::str_is_starts_with(util::ConsumeWord(rest), "TZ=") ? rest : command;
}

} // namespace zfslib::executors::internal
