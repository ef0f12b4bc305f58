#pragma once

#include "../platform/zfslib_export.h"

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

/// Reads the text of a recording; `name` only stands in the errors.
/// Errors: std::runtime_error "NAME:LINE: reason" when it is malformed.
[[nodiscard]] ZFSLIB_EXPORT std::vector<Exchange> ParseRecording(std::string_view text,
                                                                 const std::string& name);

/// Reads a recording from a file, named by its path in the errors.
/// Errors: those of ParseRecording; std::runtime_error when the file cannot be read.
[[nodiscard]] ZFSLIB_EXPORT std::vector<Exchange> ReadRecording(const std::string& path);

/// One exchange as it stands in a recording: ParseRecording gives it back byte for byte.
[[nodiscard]] ZFSLIB_EXPORT std::string FormatExchange(const Exchange& exchange);

} // namespace zfslib::executors
