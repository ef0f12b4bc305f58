#pragma once

#include "restore/LiveState.h"
#include "restore/internal/Reading.h"

#include <string>
#include <string_view>
#include <vector>

/// What there is besides the pools whose state is read.
namespace zfslib::restore::internal {

/// The pools that an output of `zpool import` lists. Their names and numbers are what the labels of
/// their disks say, and somebody else may have written these.
[[nodiscard]] std::vector<ImportablePool> ReadImportablePools(std::string_view text);

/// Adds the pools that `zpool import` lists, those that were destroyed too; with folders, those in
/// the ones that exist.
void AddImportablePools(const std::vector<std::string>& folders, const StateCommands& commands,
                        LiveState& live);

/// The features that the tools know, as `zpool upgrade -v` lists them; empty when it does not.
[[nodiscard]] std::vector<std::string> ReadFeatures(const StateCommands& commands);

/// Whether these disks are there, and which of the imported pools use them. Runs `ls` for each, on
/// systems that make links to disks `readlink` too, and `zpool status` for each pool.
[[nodiscard]] std::vector<DiskState> ReadDisks(const std::vector<std::string>& words,
                                               const std::vector<std::string>& livePools,
                                               const ToolsState& tools,
                                               const StateCommands& commands);

} // namespace zfslib::restore::internal
