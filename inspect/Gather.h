#pragma once

#include "inspect/Options.h"
#include "inspect/Report.h"
#include "zfstools/Executor.h"

#include <string_view>
#include <vector>

namespace inspect {

/// Finds out what the command asks for. `executor` stands in the slots of the process, too.
/// Errors: std::runtime_error for a pool that is not there, and what the library throws.
[[nodiscard]] Report Gather(const Options& options, const zfslib::CommandExecutor& executor);

/// What is missing in a report although it has to be shown: the reason why showing it is no
/// success; empty when nothing is missing.
[[nodiscard]] std::string Incompleteness(const Report& report);

/// The datasets below `root` in the order of a tree: the snapshots of a dataset directly below it,
/// then its children, both sorted. Where a parent is missing a placeholder stands in. The entries
/// are of the given records. Errors: std::runtime_error for a dataset that does not lie below
/// `root`.
[[nodiscard]] std::vector<DatasetEntry>
OrderAsTree(const std::vector<std::vector<zfslib::ZfsDataset>>& records, const std::string& root);

/// The name of the dataset above: "tank/a" for "tank/a/b" and "tank/a@s"; empty for a pool's own.
[[nodiscard]] std::string ParentName(std::string_view name);

} // namespace inspect
