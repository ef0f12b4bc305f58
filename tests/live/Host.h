#pragma once

#include "zfstools/Executor.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

/// What the scenarios on a real ZFS share. They run as root and change the machine: all that they
/// make stands in one folder and in pools whose names begin with `poolPrefix`.
namespace live {

constexpr const char* poolPrefix = "zfslib-live-";

/// `text` as one word of a shell line, whatever bytes it holds.
std::string Quoted(const std::string& text);

/// What a shell line left behind.
struct Outcome {
    int status; ///< as the shell says it: 128 and the number of a signal
    std::string output;
    std::string errors;
};

/// Runs a line through /bin/sh, in the environment of the scenarios (PATH with the sbin folders,
/// the C locale).
Outcome Run(const std::string& line);

/// The standard output of a line that has to succeed. Errors: std::runtime_error with its status
/// and what it wrote.
std::string OutputOf(const std::string& line);

/// OutputOf with the line break at its end removed: for commands that tell one value.
std::string ValueOf(const std::string& line);

/// The lines of OutputOf, each cut at its tabs: what a tool prints under -H.
std::vector<std::vector<std::string>> RowsOf(const std::string& line);

/// Runs the library's command lines on this machine: through a shell, as the default zpool
/// executor does, so that it fits every slot. `variables` ("NAME=value") are all that the tools
/// find in their environment beside the PATH and the locale.
zfslib::CommandExecutor HostExecutor(const std::string& variables = "");

/// As HostExecutor, but as the user nobody: for operations on what belongs to another.
zfslib::CommandExecutor UnprivilegedExecutor(const std::string& variables = "");

/// The machine as one scenario, or one suite of them, uses it.
class Host {
public:
    /// Makes the folder. Errors: std::runtime_error unless this is root with the tools at hand, and
    /// when a pool has a name that begins with `poolPrefix`.
    Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;
    /// Destroys the pools that were made here, whatever they are called by now or made anew by
    /// their names, and the folder. It is a failure of the scenario when that does not succeed.
    ~Host();

    /// The folder of this host: nothing else is in it.
    [[nodiscard]] const std::filesystem::path& Folder() const { return folder_; }

    /// The paths of `count` new sparse files, each with a blank before it: the devices of a pool.
    std::string Disks(unsigned count, unsigned megabytes = 96);

    /// Makes a pool: `zpool create -o cachefile=none -m FOLDER/NAME OPTIONS NAME DEVICES`, with
    /// `poolPrefix` before `name`. Returns its name.
    std::string MakePool(const std::string& name, const std::string& devices,
                         const std::string& options = "");

    /// The variable that has `zpool import` look for devices in the folder, and nowhere else: by
    /// itself it does not look at files.
    [[nodiscard]] std::string ImportPath() const { return "ZPOOL_IMPORT_PATH=" + folder_.string(); }

private:
    std::filesystem::path folder_;
    unsigned disks_ = 0;
    std::vector<std::string> poolGuids_;
};

} // namespace live
