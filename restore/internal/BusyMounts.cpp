#include "restore/internal/BusyMounts.h"

#include "restore/internal/Names.h"
#include "restore/internal/Places.h"

#include <string_view>
#include <utility>
#include <vector>

namespace zfslib::restore::internal {

BusyMounts FindBusyMounts(const LiveState& live) {
    std::map<std::string, std::string> others; // names, by places
    for (const auto& [name, path] : live.mounts) {
        const DatasetState* dataset = live.state.FindDataset(name);
        const PropertyValue* point = dataset == nullptr ? nullptr : dataset->Find("mountpoint");
        if (!path.empty() &&
            (dataset == nullptr || (point != nullptr && point->Value() == "legacy")))
            others.emplace(path, name);
    }
    BusyMounts busy;
    if (others.empty())
        return busy;
    std::multimap<std::string, std::string> names; // by places
    std::map<std::string, std::string, std::less<>> places;
    for (const DatasetState& dataset : live.state.datasets)
        if (const std::string place = MountedAt(live, dataset);
            !place.empty() && others.find(place) == others.end()) {
            names.emplace(place, dataset.name);
            places.emplace(dataset.name, place);
        }
    std::vector<std::string> found;
    const auto add = [&](std::string_view name, const std::string& why) {
        if (busy.emplace(name, why).second)
            found.emplace_back(name);
    };
    for (const auto& [name, place] : places)
        if (const auto other = FindAtOrBelow(others, place); other != others.end())
            add(name, other->second + ", at " + other->first);
    while (!found.empty()) {
        const std::string name = std::move(found.back());
        found.pop_back();
        const std::string why = busy[name];
        for (auto above = NameAbove(name); !above.empty(); above = NameAbove(above))
            if (places.find(above) != places.end())
                add(above, why);
        std::string path = places[name];
        while (path.size() > 1) {
            path.resize(path.rfind('/'));
            const auto [first, last] = names.equal_range(path.empty() ? "/" : path);
            for (auto upper = first; upper != last; ++upper)
                add(upper->second, why);
        }
    }
    return busy;
}

std::string TextOfBusy(const std::string& other) {
    return "what is mounted below cannot be unmounted here: " + other;
}

} // namespace zfslib::restore::internal
