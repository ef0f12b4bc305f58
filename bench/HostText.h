#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// What the tools print on an invented large host with one pool "tank".
namespace bench {

/// The names of `count` datasets: the pool, then snapshots of its file systems in list order.
std::vector<std::string> DatasetNames(std::size_t count);

/// `zfs list -rH -o name,avail,used,usedrefreserv` of these datasets.
std::string ListOutput(const std::vector<std::string>& names);

/// `zfs get all` of these datasets, 65 rows each below one header line.
std::string GetOutput(const std::vector<std::string>& names);

/// `zpool status` of a pool with so many disks, in groups of eight.
std::string StatusOutput(std::size_t disks);

} // namespace bench
