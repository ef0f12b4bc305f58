#include "tests/live/Host.h"

#include "executors/HostWordsExecutor.h"
#include "util/str.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

namespace live {
namespace {

std::filesystem::path MakeFolder() {
    std::string path = std::filesystem::temp_directory_path() / "zfslib-live-XXXXXX";
    if (mkdtemp(path.data()) == nullptr)
        throw std::runtime_error("cannot make a folder " + path);
    return path;
}

std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

int StatusForShell(int waitStatus) {
    return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : 128 + WTERMSIG(waitStatus);
}

/// The library's lines in this host's words, each behind `prefix`, with `variables` in the
/// environment.
zfslib::CommandExecutor Executor(const std::string& prefix, const std::string& variables) {
    return zfslib::executors::HostWordsExecutor(
        [=, shell = zfslib::Executors::TimedShellExecutor(0)](std::string command) {
            const std::string environment = "/usr/bin/env -i ";
            if (util::str_is_starts_with(command, environment))
                command.insert(environment.size(), variables + " ");
            return shell(prefix + command);
        });
}

/// The kernel may hold a file system for some moments after it was unmounted.
void Destroy(const std::string& pool) {
    OutputOf("for n in 1 2 3 4 5 6 7 8 9; do zpool destroy -f " + Quoted(pool) +
             " && exit; sleep 1; done; exit 1");
}

} // namespace

std::string Quoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text)
        quoted += c == '\'' ? "'\\''" : std::string(1, c);
    return quoted + "'";
}

Outcome Run(const std::string& line) {
    const std::filesystem::path folder = MakeFolder();
    const std::string whole =
        "{ " + line + "\n} >" + Quoted(folder / "output") + " 2>" + Quoted(folder / "errors");
    const int status = std::system(whole.c_str()); // NOLINT(cert-env33-c)
    Outcome outcome{StatusForShell(status), ReadFile(folder / "output"),
                    ReadFile(folder / "errors")};
    std::filesystem::remove_all(folder);
    return outcome;
}

std::string OutputOf(const std::string& line) {
    Outcome outcome = Run(line);
    if (outcome.status != 0)
        throw std::runtime_error("[" + line + "] ended with " + std::to_string(outcome.status) +
                                 ": " + outcome.errors + outcome.output);
    return std::move(outcome.output);
}

std::string ValueOf(const std::string& line) {
    std::string value = OutputOf(line);
    if (!value.empty() && value.back() == '\n')
        value.pop_back();
    return value;
}

std::vector<std::vector<std::string>> RowsOf(const std::string& line) {
    const std::string output = OutputOf(line);
    std::vector<std::vector<std::string>> rows;
    for (std::string_view rest = output; !rest.empty();) {
        std::string_view row = util::ConsumeLine(rest);
        std::vector<std::string>& cells = rows.emplace_back();
        for (std::size_t tab = row.find('\t'); tab != std::string_view::npos;
             tab = row.find('\t')) {
            cells.emplace_back(row.substr(0, tab));
            row.remove_prefix(tab + 1);
        }
        cells.emplace_back(row);
    }
    return rows;
}

zfslib::CommandExecutor HostExecutor(const std::string& variables) {
    return Executor("", variables);
}

zfslib::CommandExecutor UnprivilegedExecutor(const std::string& variables) {
    return Executor("setpriv --reuid=65534 --regid=65534 --clear-groups ", variables);
}

Host::Host() {
    if (geteuid() != 0)
        throw std::runtime_error("only root can make pools");
    for (const auto& row : RowsOf("zpool list -H -o name"))
        if (util::str_is_starts_with(row[0], poolPrefix))
            throw std::runtime_error("refused: there is a pool " + row[0] +
                                     ", which may be somebody's");
    folder_ = MakeFolder();
    // Open to other users, so that what they are refused is refused by ZFS.
    std::filesystem::permissions(folder_, std::filesystem::perms{0755});
}

Host::~Host() {
    try {
        for (const auto& row : RowsOf("zpool list -H -o guid,name"))
            if (std::find(poolGuids_.begin(), poolGuids_.end(), row[0]) != poolGuids_.end() ||
                util::str_is_starts_with(row[1], poolPrefix)) // made anew by a plan
                Destroy(row[1]);
        std::filesystem::remove_all(folder_);
    } catch (const std::exception& error) {
        ADD_FAILURE() << "left behind in " << folder_ << ": " << error.what();
    }
}

std::string Host::Disks(unsigned count, unsigned megabytes) {
    std::string paths;
    for (; count != 0; --count) {
        const std::filesystem::path path = folder_ / ("disk" + std::to_string(disks_++));
        std::ofstream{path};
        std::filesystem::resize_file(path, std::uintmax_t{megabytes} << 20U);
        paths += " " + path.string();
    }
    return paths;
}

std::string Host::MakePool(const std::string& name, const std::string& devices,
                           const std::string& options) {
    const std::string pool = poolPrefix + name;
    OutputOf("zpool create -o cachefile=none -m " + Quoted(folder_ / name) + " " + options + " " +
             pool + " " + devices);
    poolGuids_.push_back(ValueOf("zpool get -Hp -o value guid " + pool));
    return pool;
}

} // namespace live
