#pragma once

#include "restore/LiveState.h"

#include <map>
#include <string>
#include <string_view>

/// Paths where file systems are mounted.
namespace zfslib::restore::internal {

/// Whether a mount point is a place: not "none", nor "legacy".
[[nodiscard]] bool IsPath(std::string_view mountpoint);

/// Whether a path is `top`, or stands below it.
[[nodiscard]] bool IsBelowPath(std::string_view path, std::string_view top);

/// Where a file system is mounted; empty when it is not, or when nobody knows.
[[nodiscard]] std::string MountedAt(const LiveState& live, const DatasetState& dataset);

/// What a map has for the nearest path strictly above this one; nothing when it has none.
template <typename Value>
const Value* FindAbove(const std::map<std::string, Value>& paths, std::string_view path) {
    while (path.size() > 1) {
        path = path.substr(0, path.rfind('/'));
        const auto found = paths.find(std::string(path.empty() ? "/" : path));
        if (found != paths.end())
            return &found->second;
    }
    return nullptr;
}

/// The first of the sorted paths that is `path` or stands below it.
template <typename Paths>
typename Paths::const_iterator FindAtOrBelow(const Paths& paths, const std::string& path) {
    auto found = paths.lower_bound(path);
    if (found != paths.end() && found->first != path)
        found = paths.lower_bound(path == "/" ? path : path + "/");
    return found != paths.end() && IsBelowPath(found->first, path) ? found : paths.end();
}

} // namespace zfslib::restore::internal
