#include "restore/internal/PoolsAround.h"

#include "restore/internal/PoolDevices.h"
#include "restore/internal/PoolLayout.h"
#include "util/ShellWord.h"
#include "util/str.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace zfslib::restore::internal {
namespace {

using util::ShellWord;

bool IsThere(const std::string& path, const StateCommands& commands) {
    try {
        (void)commands.Run("ls -dL " + ShellWord(path));
        return true;
    } catch (const std::exception& error) {
        if (!WasRefused(error))
            throw;
        return false;
    }
}

/// The path that a link leads to.
std::string TargetOf(const std::string& path, const StateCommands& commands) {
    try {
        std::string target = commands.Run("readlink -f " + ShellWord(path));
        if (!target.empty() && target.back() == '\n')
            target.pop_back();
        return target.empty() ? path : target;
    } catch (const std::exception& error) {
        if (!WasRefused(error))
            throw;
        return path;
    }
}

struct UsedDevice {
    std::string path; ///< without links; where the tool knows no paths, what it is called
    std::string pool;
    bool isSpare = false;
};

std::vector<UsedDevice> ReadUsedDevices(const std::string& pool, const ToolsState& tools,
                                        const StateCommands& commands) {
    std::string command = "zpool status";
    for (const char option : {'L', 'P'})
        if (TakesOption(tools.zpoolUsage, "status", option))
            command.append(" -") += option;
    const std::string text = commands.Run(command + " " + ShellWord(pool));
    std::vector<UsedDevice> used;
    bool areSpares = false;
    for (const StatusRow& row : ReadStatusRows(text))
        if (row.depth == 0)
            areSpares = row.name == "spares";
        else
            used.push_back({std::string(row.name), pool, areSpares});
    return used;
}

/// The path of a disk that may be called without one, as Solaris does.
std::string WithFolder(const std::string& name) {
    return name.find('/') == std::string::npos ? "/dev/dsk/" + name : name;
}

DiskState ReadDisk(const std::string& word, const std::vector<UsedDevice>& used,
                   const ToolsState& tools, const StateCommands& commands) {
    DiskState disk;
    disk.path = word;
    std::string path = WithFolder(word);
    // Solaris has a node for each slice, and not always one for the whole disk.
    const bool isSlice = WholeDisk(path) != path;
    disk.isThere = IsThere(tools.system == "SunOS" && !isSlice ? path + "s0" : path, commands);
    if (!disk.isThere)
        return disk;
    if (tools.system != "SunOS")
        disk.target = path = TargetOf(path, commands);
    for (const UsedDevice& device : used) {
        const std::string usedPath = WithFolder(device.path);
        if (usedPath != path && WholeDisk(usedPath) != path && usedPath != WholeDisk(path))
            continue;
        disk.isOnlySpare = device.isSpare && (disk.usedBy.empty() || disk.isOnlySpare);
        disk.usedBy = device.pool;
    }
    return disk;
}

} // namespace

std::vector<ImportablePool> ReadImportablePools(std::string_view text) {
    std::vector<ImportablePool> pools;
    std::string_view title;
    while (!text.empty()) {
        std::string_view line = util::ConsumeLine(text);
        if (line.empty())
            continue;
        if (line.front() == '\t') {
            // The titles' texts go on behind tabs, and the devices stand there.
            line.remove_prefix(1);
            if (title == "action:" && !pools.empty())
                pools.back().action.append(" ").append(line);
            else if (title == "config:" && !pools.empty()) {
                const std::string_view name = util::ConsumeWord(line);
                if (!pools.back().isDestroyed || util::ConsumeWord(line) != "UNAVAIL")
                    pools.back().devices.emplace_back(name);
            }
            continue;
        }
        title = util::ConsumeWord(line);
        line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
        if (title == "pool:")
            pools.emplace_back().name = line;
        else if (pools.empty())
            continue;
        else if (title == "id:" && util::str_is_integer(line))
            pools.back().guid = line;
        else if (title == "state:") {
            pools.back().isDestroyed = util::str_is_finishes_with(line, " (DESTROYED)");
            pools.back().state = util::ConsumeWord(line);
        } else if (title == "action:")
            pools.back().action = line;
    }
    pools.erase(std::remove_if(pools.begin(), pools.end(),
                               [](const ImportablePool& pool) { return pool.guid.empty(); }),
                pools.end());
    return pools;
}

void AddImportablePools(const std::vector<std::string>& folders, const StateCommands& commands,
                        LiveState& live) {
    std::string options;
    std::vector<std::string> there;
    for (const std::string& folder : folders)
        if (IsThere(folder, commands)) {
            options += " -d " + ShellWord(folder);
            there.push_back(folder);
        }
    if (!folders.empty() && there.empty())
        return;
    std::vector<ImportablePool>& pools = live.importablePools;
    const auto add = [&](const std::string& command) {
        for (ImportablePool& pool : ReadImportablePools(commands.Run(command + options))) {
            const auto isSame = [&](const ImportablePool& known) {
                return known.guid == pool.guid && known.state == pool.state &&
                       known.isDestroyed == pool.isDestroyed;
            };
            if (std::any_of(pools.begin(), pools.end(), isSame))
                continue;
            pool.folders = there;
            pools.push_back(std::move(pool));
        }
    };
    add("zpool import");
    try {
        add("zpool import -D");
    } catch (const std::exception& error) {
        if (!WasRefused(error))
            throw;
        live.destroyedDoubt = ReasonOf(error);
    }
}

std::vector<std::string> ReadFeatures(const StateCommands& commands) {
    const std::string text = commands.Run("zpool upgrade -v");
    std::vector<std::string> features;
    bool isTable = false;
    for (std::string_view rest = text; !rest.empty();) {
        std::string_view line = util::ConsumeLine(rest);
        if (util::str_is_starts_with(line, "---"))
            isTable = features.empty(); // that of the old versions comes behind
        else if (line.empty())
            isTable = isTable && features.empty();
        else if (isTable && !util::IsSpace(line.front()))
            features.emplace_back(util::ConsumeWord(line));
    }
    return features;
}

std::vector<DiskState> ReadDisks(const std::vector<std::string>& words,
                                 const std::vector<std::string>& livePools, const ToolsState& tools,
                                 const StateCommands& commands) {
    std::vector<UsedDevice> used;
    for (const std::string& pool : livePools)
        for (UsedDevice& device : ReadUsedDevices(pool, tools, commands))
            used.push_back(std::move(device));
    std::vector<DiskState> disks;
    disks.reserve(words.size());
    for (const std::string& word : words)
        disks.push_back(ReadDisk(word, used, tools, commands));
    return disks;
}

} // namespace zfslib::restore::internal
