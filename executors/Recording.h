#pragma once

#include "../platform/zfslib_export.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Ready-made command executors that a host can put in.
namespace zfslib::executors {

/// A command that was run, with its answer. A recording is a sequence of them, as text that reads
/// like a terminal; docs/recordings.md describes it.
struct Exchange {
    /// The whole command line, never empty.
    std::string command;
    /// What the executor returned; empty when it failed.
    std::string output;
    /// What the executor's exception said; absent when the command succeeded.
    std::optional<std::string> failure;
};

/// What a recording holds, and whether that is all of it.
struct Recording {
    /// How it ends.
    enum class End {
        Unmarked, ///< written by hand, or made elsewhere: nothing in it says
        Ended,    ///< each recorder that wrote to it was closed (Recorder::Close)
        CutShort, ///< one was not: its process died, or goes on; or the rest of the file was lost
    };

    /// What is complete, in the order recorded.
    std::vector<Exchange> exchanges;
    /// What is cut short and left out, for people: "NAME:LINE: the answer to [zfs list] is cut
    /// short".
    std::vector<std::string> missing;
    End end = End::Unmarked; ///< how the text ends
    /// How many bytes at the end of the text are the beginning of a line and say nothing.
    std::size_t cutBytes = 0;
};

/// Reads the text of a recording; `name` only stands in the errors and in what is missing.
/// Errors: std::runtime_error "NAME:LINE: reason" when it is malformed.
[[nodiscard]] ZFSLIB_EXPORT Recording ParseRecording(std::string_view text,
                                                     const std::string& name);

/// How large a recording may be, in bytes: 4 GiB, the properties of some 700,000 datasets.
constexpr std::uint64_t defaultRecordingLimit = std::uint64_t{4} << 30;

/// Reads a recording from a file, named by its path in the errors.
/// Errors: those of ParseRecording; std::runtime_error when the file cannot be read, or holds more
/// than `limit` bytes. It takes memory for twice its size.
[[nodiscard]] ZFSLIB_EXPORT Recording ReadRecording(const std::string& path,
                                                    std::uint64_t limit = defaultRecordingLimit);

/// One exchange as it stands in a recording, with the line that ends it: ParseRecording gives it
/// back byte for byte.
[[nodiscard]] ZFSLIB_EXPORT std::string FormatExchange(const Exchange& exchange);

} // namespace zfslib::executors
