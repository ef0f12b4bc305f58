#include "restore/internal/Places.h"

#include "util/str.h"

namespace zfslib::restore::internal {

bool IsPath(std::string_view mountpoint) {
    return util::str_is_starts_with(mountpoint, "/");
}

bool IsBelowPath(std::string_view path, std::string_view top) {
    return top == "/" || (util::str_is_starts_with(path, top) &&
                          (path.size() == top.size() || path[top.size()] == '/'));
}

std::string MountedAt(const LiveState& live, const DatasetState& dataset) {
    const auto told = live.mounts.find(std::string(dataset.name));
    if (dataset.isMounted && told != live.mounts.end() && !told->second.empty())
        return told->second;
    const PropertyValue* mountpoint = dataset.Find("mountpoint");
    return dataset.isMounted && mountpoint != nullptr && IsPath(mountpoint->Value())
               ? std::string(mountpoint->Value())
               : std::string();
}

} // namespace zfslib::restore::internal
