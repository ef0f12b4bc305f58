#pragma once

#include "inspect/Options.h"
#include "inspect/Report.h"
#include "zfstools/Executor.h"

#include <vector>

namespace inspect {

/// Finds out what the command asks for. `executor` stands in the slots of the process, too.
/// Errors: std::runtime_error for a pool that is not there, and what the library throws.
[[nodiscard]] Report Gather(const Options& options, const zfslib::CommandExecutor& executor);

/// Brings the datasets below `root` into the order of a tree: the snapshots of a dataset directly
/// below it, then its children, both sorted. Where a parent is missing a placeholder stands in.
/// Errors: std::runtime_error for a dataset that does not lie below `root`.
[[nodiscard]] std::vector<DatasetEntry> OrderAsTree(std::vector<zfslib::ZfsDataset>&& datasets,
                                                    const std::string& root);

/// The name of the dataset above: "tank/a" for "tank/a/b" and "tank/a@s"; empty for a pool's own.
[[nodiscard]] std::string ParentName(const std::string& name);

} // namespace inspect
