#include "zfstools/Tools.h"

#include "system/CRecoveryIsoDetector.h"
#include "util/str.h"
#include "zfstools/TextTable.h"
#include "zfstools/ZpoolsEnumerator.h"
#include "zfstools/internal/LoggedExecution.h"
#include "zfstools/logging.h"

#include <algorithm>
#include <stdexcept>

namespace {

using zfslib::CommandExecutor;

/// `text` with every occurrence of `from` replaced by `to`; replacements are not searched again.
std::string replace(std::string text, const std::string& from, const std::string& to) {
    if (from == to)
        return text;
    // An empty `from` stands before every character and at the end.
    const std::size_t step = to.size() + (from.empty() ? 1 : 0);
    for (std::size_t position = text.find(from); position != std::string::npos;
         position = text.find(from, position + step))
        text.replace(position, from.size(), to);
    return text;
}

/// The filesystem of the longest mount point that the text of `path` begins with.
std::string GetFilesystemForPath(const std::string& path, CommandExecutor executor) {
    // "/export            (tank/export       ):59435344 blocks": the parentheses may touch either
    // neighbour.
    const std::string output = replace(replace(executor("df -Z"), "(", " "), ")", " ");
    std::string bestMount;
    std::string bestFilesystem;
    for (zfslib::RowReader reader(output); reader.Next();) {
        const std::vector<std::string>& row = reader.Row();
        if (row.empty())
            continue;
        if (row.size() == 1)
            throw std::runtime_error("Failed to parse 'df' output: \n " + output);
        const std::string& mount = row[0];
        if (util::str_is_starts_with(path, mount) && mount.size() > bestMount.size()) {
            bestMount = mount;
            bestFilesystem = row[1];
        }
    }
    if (!bestFilesystem.empty())
        return bestFilesystem;
    if (path == "/")
        throw std::runtime_error("Unable to resolve filesystem for path [" + path + "].");
    // Through the host's own executor, whatever this call was given: "/" is the host's.
    return GetFilesystemForPath("/", zfslib::Executors::GetDfExecutor());
}

/// Whether a filesystem is the pool's own dataset or one below it.
bool IsFilesystemOfPool(const std::string& filesystem, const std::string& pool) {
    return filesystem == pool || util::str_is_starts_with(filesystem, pool + "/");
}

} // namespace

namespace zfslib {

bool IsZfsToolsInstalled() {
    try {
        if (orvcommonlib::system::CRecoveryIsoDetector::IsUnderRecoveryIso())
            return true;
        const CommandExecutor executor = Executors::GetProcessExecutor();
        const std::string command = "/usr/bin/env -i pkginfo SUNWzfsu";
        _log.info("Execute command: [%1]", command);
        _log.info("Command output: [%1]", executor(command));
        return true;
    } catch (const std::exception& error) {
        _log.info("[%1]", error.what());
        return false;
    }
}

bool IsZfsDataset(const std::string& path) {
    const std::vector<Zpool> pools = ZpoolEnumerator::Enumerate(Executors::GetZpoolExecutor());
    const std::string filesystem = GetDatasetForPath(path);
    return std::any_of(pools.begin(), pools.end(), [&filesystem](const Zpool& pool) {
        return IsFilesystemOfPool(filesystem, pool.name);
    });
}

std::string GetDatasetForPath(const std::string& path) {
    return GetFilesystemForPath(path, Executors::GetDfExecutor());
}

Zpool GetAssociatedZpool(const std::string& path) {
    if (!IsZfsDataset(path))
        throw std::runtime_error("[" + path + "] is not a ZFS file system.");
    // Resolved again for each pool: a path that is mounted over meanwhile is not matched against
    // what it was before.
    for (Zpool& pool : ZpoolEnumerator::Enumerate(Executors::GetZpoolExecutor()))
        if (IsFilesystemOfPool(GetDatasetForPath(path), pool.name))
            return std::move(pool);
    throw std::runtime_error("Cannot find a zpool for [" + path + "].");
}

bool IsSafeOperand(const std::string& text) noexcept {
    return !text.empty() && text.front() != '-' &&
           text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                                  "_-.:/@") == std::string::npos;
}

std::vector<Pool4Import> EnumerateZpool4Import(CommandExecutor executor) {
    const std::string output = ExecutePoolCommandLogged(executor, "/usr/bin/env -i zpool import");
    std::vector<Pool4Import> pools;
    // Each entry begins with "  pool: NAME", and its "    id: NUMBER" is the very next line.
    for (RowReader reader(output); reader.Next();) {
        const std::vector<std::string>& row = reader.Row();
        if (row.empty() || row[0] != "pool:")
            continue;
        if (row.size() < 2) {
            _log.dbg("zpool import output parsing failure: pool name is missing.");
            continue;
        }
        const std::string name = row[1];
        if (!reader.Next()) {
            _log.dbg("zpool import output parsing failure: failed to find pool [%1] identifier.",
                     name);
            break;
        }
        const std::vector<std::string>& next = reader.Row();
        if (next.empty())
            _log.dbg("zpool import output parsing failure: pool [%1] identifier line is empty.",
                     name);
        else if (next[0] != "id:")
            _log.dbg("zpool import output parsing failure: pool [%1] identifier not found, next "
                     "line expected.",
                     name);
        else if (next.size() < 2)
            _log.dbg("zpool import output parsing failure: pool [%1] cannot be parsed.", name);
        else
            pools.push_back({name, next[1]});
    }
    return pools;
}

void ImportZfsPool(const Pool4Import& pool, const std::string& newName, const std::string& altRoot,
                   CommandExecutor executor) {
    std::string command = "/usr/bin/env -i zpool import -f -N ";
    if (!altRoot.empty())
        command += "-R " + altRoot + " ";
    command += pool.id + " ";
    if (!newName.empty())
        command += newName + " ";
    command += "2>&1";
    ExecutePoolCommandLogged(executor, command);
}

} // namespace zfslib
