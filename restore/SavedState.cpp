#include "restore/SavedState.h"

#include "exc/exc.h"
#include "executors/ReplayingExecutor.h"
#include "restore/HostStateReader.h"
#include "util/str.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <utility>

namespace zfslib::restore {
namespace {

using executors::Exchange;

/// Every reading of a state begins with this.
constexpr std::string_view firstCommand = "/usr/bin/env -i uname -snr";

bool IsFirst(const Exchange& exchange) {
    return exchange.command == firstCommand;
}

/// The operand of a command that begins and ends so, for a shell between single quotes; empty when
/// the command is another one.
std::string OperandOf(std::string_view command, std::string_view begin, std::string_view end) {
    const std::size_t quote = command.find('\'');
    if (quote == std::string_view::npos || command.back() != '\'' || quote + 1 == command.size() ||
        !util::str_is_starts_with(command, begin) ||
        !util::str_is_finishes_with(command.substr(0, quote), end))
        return {};
    // No dataset has a quote in its name.
    return std::string(command.substr(quote + 1, command.size() - quote - 2));
}

/// What a state was read of, as ReadHostState asked for it: the first root is asked of alone, the
/// uppermost ones with all below.
std::vector<std::string> RootsOf(const std::vector<Exchange>& exchanges) {
    std::vector<std::string> roots;
    for (const Exchange& exchange : exchanges) {
        std::string root =
            OperandOf(exchange.command, "/usr/bin/env -i zfs get -Hp ", " -o received type ");
        if (root.empty())
            root = OperandOf(exchange.command, "/usr/bin/env -i zfs get -rHp ",
                             " -o name,property,source all ");
        if (!root.empty() && std::find(roots.begin(), roots.end(), root) == roots.end())
            roots.push_back(std::move(root));
    }
    return roots;
}

} // namespace

SavedState ReadSavedState(executors::Recording recording, const std::string& name) {
    SavedState saved;
    saved.warnings = recording.missing;
    std::vector<Exchange>& exchanges = recording.exchanges;
    const auto states = std::count_if(exchanges.begin(), exchanges.end(), IsFirst);
    const auto last = std::find_if(exchanges.rbegin(), exchanges.rend(), IsFirst);
    if (last != exchanges.rend())
        exchanges.erase(exchanges.begin(), last.base() - 1);
    const std::vector<std::string> roots = RootsOf(exchanges);
    if (states == 0 || roots.empty())
        throw exc::CRuntimeExc("The recording [%1] holds no state.", name);
    try {
        saved.state =
            ReadHostState(roots, executors::Replayer(std::move(recording), name).Executor());
    } catch (const std::exception&) {
        exc::RegenExc("Cannot read the state that was saved in [%1]", name);
    }
    if (states > 1) {
        std::string names;
        for (const std::string& root : roots)
            names += (names.empty() ? "" : ", ") + root;
        saved.warnings.push_back(
            util::str_format("[%1] holds %2 states; the last is used: of %3, read at %4", name,
                             states, names, saved.state.readAt));
    }
    return saved;
}

SavedState ReadSavedState(const std::string& path, std::uint64_t limit) {
    return ReadSavedState(executors::ReadRecording(path, limit), path);
}

} // namespace zfslib::restore
