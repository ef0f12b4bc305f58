#pragma once

#include <string_view>

/// The names of datasets and snapshots.
namespace zfslib::restore::internal {

/// Whether a dataset or snapshot is `top`, or stands below it.
[[nodiscard]] bool IsWithin(std::string_view name, std::string_view top);
/// A dataset's name without its last component; empty of a pool.
[[nodiscard]] std::string_view NameAbove(std::string_view dataset);
/// The pool of a dataset or snapshot.
[[nodiscard]] std::string_view PoolOf(std::string_view dataset);

} // namespace zfslib::restore::internal
