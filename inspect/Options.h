#pragma once

#include "inspect/HealthReport.h"
#include "zfstools/ZfsDataset.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace inspect {

enum class Command { Pools, Health, Tools, Datasets, Volume, Locate, Importable, State };

/// Which properties are asked for.
enum class PropertyChoice { None, Read, Changed };

/// The command line, checked.
struct Options {
    std::optional<std::string> replay; ///< answers come from this recording
    std::optional<std::string> record; ///< commands and answers are appended to this recording
    bool recordAnywhere = false;       ///< also where another user could have put the file
    std::uint64_t limit = 0;           ///< of an answer or the recording, in MiB; 0: the library's
    std::optional<std::string> host;   ///< commands are run there, over ssh
    std::vector<std::string> sshOptions; ///< each for one "-o" of ssh
    int timeoutSeconds = 0;              ///< for each command; 0 waits for ever
    std::size_t batch = 256;             ///< datasets per `zfs get all`; 0 and 1: no batching
    std::size_t jobs = 1;                ///< commands at a time
    bool json = false;
    bool verbose = false;

    Command command = Command::Pools;
    /// Pools, roots, one volume or paths, as the command takes them.
    std::vector<std::string> operands;
    PropertyChoice properties = PropertyChoice::None;
    bool flat = false;
    bool withAll = false;    ///< of a state, not only what was set
    bool allDevices = false; ///< of pools that are healthy, too
    HealthLimits limits;     ///< what counts as unhealthy
    bool metrics = false;    ///< in place of text
    /// The types of datasets that are asked for, without repetition.
    std::vector<zfslib::ZfsDataset::Type> types = {
        zfslib::ZfsDataset::filesystem, zfslib::ZfsDataset::snapshot, zfslib::ZfsDataset::volume};
};

/// Why there is nothing to do: help or the version was asked for, or the command line is wrong.
struct NothingToDo {
    int exitStatus = 0;
    std::string message; ///< for standard output when the status is 0, else what is wrong
};

[[nodiscard]] std::variant<Options, NothingToDo> ParseCommandLine(int argc,
                                                                  const char* const* argv);

} // namespace inspect
