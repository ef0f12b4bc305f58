#include "restore/internal/KeyFiles.h"

#include "restore/internal/DatasetPairs.h"
#include "restore/internal/Places.h"
#include "restore/internal/PropertyWords.h"
#include "util/str.h"

namespace zfslib::restore::internal {

void KeyFiles::FindPlaces() {
    places_.emplace();
    for (const DatasetState& saved : input_.saved.datasets) {
        const PropertyValue* mountpoint = saved.Find("mountpoint");
        if (!saved.isMounted || mountpoint == nullptr || !IsPath(mountpoint->Value()) ||
            !input_.options.IsWanted(saved.name))
            continue;
        const std::string name = input_.options.NewName(saved.name);
        if (name != saved.name && !IsOwn(*mountpoint))
            continue; // another name is another place
        places_->emplace(PrintedMountpoint(StoredMountpoint(mountpoint->Value(),
                                                            AltrootOf(input_.saved, saved.name)),
                                           AltrootOf(input_.live.state, name)),
                         &saved);
    }
    places_->erase("/"); // no plan mounts it
    for (const DatasetState& live : input_.live.state.datasets)
        taken_.emplace(MountedAt(input_.live, live), true);
    for (const auto& [name, path] : input_.live.mounts)
        taken_.emplace(path, true);
}

std::string KeyFiles::FindUnmountedKeeper(std::string_view keylocation) {
    constexpr std::string_view scheme = "file://";
    if (!util::str_is_starts_with(keylocation, scheme))
        return {};
    if (!places_)
        FindPlaces();
    std::string path(keylocation.substr(scheme.size()));
    while (path.rfind('/') != 0 && path.rfind('/') != std::string::npos) {
        path.resize(path.rfind('/'));
        const auto place = places_->find(path);
        if (taken_.find(path) != taken_.end())
            return {};
        if (place != places_->end())
            return input_.options.NewName(place->second->name);
    }
    return {};
}

std::string KeyFiles::FindUnmountedKeeper(const DatasetState* saved, const DatasetState& live) {
    const PropertyValue* place = saved == nullptr || saved->encryptionRoot != saved->name
                                     ? nullptr
                                     : saved->Find("keylocation");
    if (place == nullptr || place->Source() != PropertySource::Local)
        place = live.Find("keylocation");
    return place == nullptr ? std::string() : FindUnmountedKeeper(place->Value());
}

std::string TextOfLateKey(std::string_view root, std::string_view keeper) {
    return util::str_format(
        "the key of %1 is in a file of %2, which has to be mounted: plan again then", root, keeper);
}

} // namespace zfslib::restore::internal
