#pragma once

#include "../executors/Recording.h"
#include "../platform/zfslib_export.h"
#include "../restore/HostState.h"

#include <cstdint>
#include <string>
#include <vector>

namespace zfslib::restore {

/// A state that was saved: what ReadHostState ran, as a recording.
struct SavedState {
    HostState state; ///< what was saved
    /// What to tell the user, a sentence each: what the recording lacks, and that it holds earlier
    /// states as well.
    std::vector<std::string> warnings;
};

/// Reads the state that a recording holds, and finds out from it what its roots were. When it holds
/// several, the last one counts. `name` stands in errors and warnings.
/// Errors: std::runtime_error when it holds none, or not all of it; those of ReadHostState.
[[nodiscard]] ZFSLIB_EXPORT SavedState ReadSavedState(executors::Recording recording,
                                                      const std::string& name);

/// The same from a file. Errors: also those of executors::ReadRecording.
[[nodiscard]] ZFSLIB_EXPORT SavedState
ReadSavedState(const std::string& path, std::uint64_t limit = executors::defaultRecordingLimit);

} // namespace zfslib::restore
