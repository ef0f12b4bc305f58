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

/// `zfs get -Hp all` of these datasets, but for the sizes, which are not exact here either.
std::string ScriptGetOutput(const std::vector<std::string>& names);

/// `zpool status` of a pool with so many disks, in groups of eight.
std::string StatusOutput(std::size_t disks);

/// What a state is read from: file systems below "tank", 66 rows each.
struct StateHost {
    explicit StateHost(std::size_t datasets);

    std::string skeleton; ///< `zfs get -o name,property,source all`
    std::string values;   ///< the same with values and received values

    /// To the reader's command lines; nobody has a quota or a permission.
    [[nodiscard]] std::string Answer(const std::string& command) const;
};

} // namespace bench
