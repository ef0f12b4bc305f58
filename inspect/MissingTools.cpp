#include "inspect/MissingTools.h"

#include "executors/HostWordsExecutor.h"
#include "posix/CSimpleCmdExec.h"
#include "util/str.h"

#include <cerrno>
#include <string>
#include <utility>

namespace inspect {
namespace {

using posix::CCommandFailure;

/// The tool that a command asks for; empty when it is none of ZFS.
std::string ToolOf(const std::string& command) {
    std::string_view rest = command;
    for (const std::string_view word : {"/usr/bin/env", "-i"})
        if (util::ConsumeWord(rest) != word)
            return {};
    std::string_view word = util::ConsumeWord(rest);
    while (word.find('=') != std::string_view::npos) // a variable for the tool
        word = util::ConsumeWord(rest);
    const std::string tool(word);
    if (tool == "pkginfo") // the question whether there are tools
        return "zfs";
    return tool == "zfs" || tool == "zpool" ? tool : std::string();
}

} // namespace

std::string SearchedFolders() {
    std::string folders;
    for (const char c : zfslib::executors::toolFolders)
        folders += c == ':' ? std::string(", ") : std::string(1, c);
    return folders;
}

zfslib::CommandExecutor NamingMissingTools(zfslib::CommandExecutor executor) {
    return [executor = std::move(executor)](const std::string& command) {
        try {
            return executor(command);
        } catch (const CCommandFailure& failure) {
            const std::string tool = ToolOf(command);
            if (tool.empty() || failure.GetKind() != CCommandFailure::Kind::CannotStart ||
                failure.GetCode() != ENOENT)
                throw;
            throw MissingTools("there are no ZFS tools on the host: no " + tool + " in " +
                               SearchedFolders());
        }
    };
}

} // namespace inspect
