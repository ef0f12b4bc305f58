#include "executors/HostWordsExecutor.h"

#include "util/str.h"

#include <algorithm>
#include <array>
#include <string>
#include <utility>

namespace zfslib::executors {
namespace {

constexpr std::string_view bareEnvironment = "/usr/bin/env -i ";

/// The program of a line that begins with `bareEnvironment`; empty for other lines.
std::string_view ProgramOf(std::string_view command) {
    if (!util::str_is_starts_with(command, bareEnvironment))
        return {};
    command.remove_prefix(bareEnvironment.size());
    return util::ConsumeWord(command);
}

/// What stands in place of `bareEnvironment`. No blank and nothing that a shell looks at: the line
/// may go to either.
std::string Environment() {
    return std::string(bareEnvironment) + "PATH=" + std::string(toolFolders) + " LC_ALL=C ";
}

/// A line of a tool with the folders in which that is looked for; any other line as it is.
std::string WithEnvironment(const std::string& command) {
    static constexpr std::array<std::string_view, 5> tools = {"zfs", "zpool", "mount", "ls",
                                                              "pkginfo"};
    if (std::find(tools.begin(), tools.end(), ProgramOf(command)) == tools.end())
        return command;
    return Environment() + command.substr(bareEnvironment.size());
}

} // namespace

CommandExecutor HostWordsExecutor(CommandExecutor executor) {
    return [executor = std::move(executor)](const std::string& command) {
        return executor(WithEnvironment(command));
    };
}

} // namespace zfslib::executors
