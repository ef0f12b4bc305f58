#include "executors/HostWordsExecutor.h"

#include "executors/internal/CommandLine.h"
#include "executors/internal/MountTable.h"
#include "posix/CSimpleCmdExec.h"
#include "util/str.h"
#include "zfstools/logging.h"

#include <algorithm>
#include <array>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <typeinfo>
#include <utility>

namespace zfslib::executors {
namespace {

enum class System { Solaris, Linux, FreeBsd, Other };

using internal::bareEnvironment;

/// A line that begins with `bareEnvironment`, with the folders in which its tool is looked for.
/// Nothing in it means anything to a shell: the line may go to one or not.
std::string InToolFolders(std::string_view bareCommand) {
    return std::string(bareEnvironment) + "PATH=" + std::string(toolFolders) + " LC_ALL=C " +
           std::string(bareCommand.substr(bareEnvironment.size()));
}

bool IsOfTool(std::string_view command) {
    static constexpr std::array<std::string_view, 5> tools = {"zfs", "zpool", "mount", "ls",
                                                              "pkginfo"};
    std::string_view rest = internal::WithoutEnvironment(command);
    return util::str_is_starts_with(command, bareEnvironment) &&
           std::find(tools.begin(), tools.end(), util::ConsumeWord(rest)) != tools.end();
}

class HostWords {
public:
    explicit HostWords(CommandExecutor executor) : executor_(std::move(executor)) {}

    std::string Run(const std::string& command) {
        if (command == "df -Z")
            return MountTable(command);
        if (command == "/usr/bin/env -i pkginfo SUNWzfsu")
            return LookForTools(command);
        if (util::str_is_starts_with(command, solarisMount))
            return Mount(command);
        return IsOfTool(command) ? Execute(command, InToolFolders(command)) : executor_(command);
    }

private:
    static constexpr std::string_view solarisMount = "/usr/bin/env -i mount -F zfs ";

    /// `df -Z` is of Solaris and illumos.
    std::string MountTable(const std::string& command) {
        switch (AskedSystem()) {
        case System::Linux:
            return internal::DfFromMountinfo(
                Execute(command, InToolFolders("/usr/bin/env -i cat /proc/self/mountinfo")));
        case System::FreeBsd:
            return internal::DfFromFstab(
                Execute(command, InToolFolders("/usr/bin/env -i mount -p")));
        default:
            return executor_(command);
        }
    }

    /// Elsewhere than on Solaris the tools come in packages of other names, or none: whether they
    /// are there tells one that does nothing. It says much, and nothing of it is an answer.
    std::string LookForTools(const std::string& command) {
        if (AskedSystem() != System::Solaris) {
            Execute(command, InToolFolders("/usr/bin/env -i zfs --help"));
            return {};
        }
        try {
            return Execute(command, InToolFolders(command));
        } catch (const std::exception& error) {
            // On illumos, which calls itself by the same name; its `zfs` knows no --help.
            _log.dbg("[%1]", error.what());
            return Execute(command, InToolFolders("/usr/bin/env -i zpool list -H -o name"));
        }
    }

    std::string Mount(const std::string& command) {
        const System system = AskedSystem();
        if (system != System::Linux && system != System::FreeBsd)
            return Execute(command, InToolFolders(command));
        return Execute(command, InToolFolders("/usr/bin/env -i mount -t zfs " +
                                              command.substr(solarisMount.size())));
    }

    System AskedSystem() {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (!system_) {
            const std::string answer = executor_("uname -s");
            std::string_view rest = answer;
            const std::string_view name = util::ConsumeWord(rest);
            system_ = name == "SunOS"     ? System::Solaris
                      : name == "Linux"   ? System::Linux
                      : name == "FreeBSD" ? System::FreeBsd
                                          : System::Other;
        }
        return *system_;
    }

    /// Runs `words` in place of the command, by whose own name a failure goes: it is what the
    /// caller knows, and what stands in recordings.
    std::string Execute(const std::string& command, const std::string& words) const {
        try {
            return executor_(words);
        } catch (const posix::CCommandFailure& failure) {
            if (typeid(failure) != typeid(posix::CCommandFailure) || failure.GetCommand() != words)
                throw;
            _log.dbg("Run as [%1]", words);
            throw posix::CCommandFailure(command, failure.GetKind(), failure.GetCode(),
                                         failure.GetErrorText(), failure.GetOutput());
        }
    }

    const CommandExecutor executor_;
    std::mutex mutex_;
    std::optional<System> system_; ///< once it is known
};

} // namespace

CommandExecutor HostWordsExecutor(CommandExecutor executor) {
    return [words = std::make_shared<HostWords>(std::move(executor))](const std::string& command) {
        return words->Run(command);
    };
}

} // namespace zfslib::executors
