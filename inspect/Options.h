#pragma once

#include "executors/Recording.h"
#include "inspect/HealthReport.h"
#include "restore/Plan.h"
#include "zfstools/ZfsDataset.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace inspect {

enum class Command { Pools, Health, Tools, Datasets, Volume, Locate, Importable, State, Plan };

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
    /// How many bytes an answer may have, if `limit` says so.
    [[nodiscard]] std::uint64_t LimitInBytes() const {
        return std::min(limit, std::numeric_limits<std::uint64_t>::max() >> 20U) << 20U;
    }
    /// How many bytes a recording may have.
    [[nodiscard]] std::uint64_t RecordingLimit() const {
        return limit == 0 ? zfslib::executors::defaultRecordingLimit : LimitInBytes();
    }

    /// Pools, roots, one volume or paths, as the command takes them.
    std::vector<std::string> operands;
    PropertyChoice properties = PropertyChoice::None;
    bool flat = false;
    bool withAll = false;    ///< of a state, not only what was set
    bool allDevices = false; ///< of pools that are healthy, too
    HealthLimits limits;     ///< what counts as unhealthy
    bool metrics = false;    ///< in place of text
    std::string saved;       ///< the recording of the state that a plan puts back
    /// What the operands of a plan, and its further options, ask for.
    zfslib::restore::PlanOptions plan;
    bool script = false;       ///< in place of text
    bool withExitCode = false; ///< says whether a plan has steps
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
