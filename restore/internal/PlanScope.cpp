#include "restore/internal/PlanScope.h"

#include "exc/exc.h"
#include "restore/internal/Names.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <utility>

namespace zfslib::restore::internal {
namespace {

bool IsSaved(const HostState& saved, std::string_view name) {
    return saved.FindDataset(name) != nullptr || saved.FindPool(name) != nullptr ||
           saved.FindSnapshot(name) != nullptr;
}

} // namespace

std::vector<std::string> WantedRoots(const HostState& saved, const PlanOptions& options) {
    const std::vector<std::string>& asked = options.roots.empty() ? saved.roots : options.roots;
    std::vector<std::string> names;
    for (const std::string& root : asked) {
        if (!IsSaved(saved, root))
            throw exc::CRuntimeExc("[%1] was not saved.", root);
        names.push_back(options.NewName(root));
    }
    for (const auto& rename : options.renames) {
        if (!IsSaved(saved, rename.first))
            throw exc::CRuntimeExc("[%1], which is to be renamed, was not saved.", rename.first);
        if (saved.FindDataset(rename.first) != nullptr && options.IsWanted(rename.first))
            names.push_back(rename.second);
    }
    std::sort(names.begin(), names.end(), ComesBefore);
    names.erase(std::unique(names.begin(), names.end(),
                            [](const std::string& above, const std::string& name) {
                                return IsWithin(name, above);
                            }),
                names.end());
    return names;
}

std::vector<WantedPool> WantedPools(const HostState& saved, const PlanOptions& options) {
    std::map<std::string, std::size_t, std::less<>> sizes; // by the new names of pools
    for (const DatasetState& dataset : saved.datasets)
        if (options.IsWanted(dataset.name))
            ++sizes[std::string(PoolOf(options.NewName(dataset.name)))];
    std::vector<WantedPool> pools;
    for (const PoolState& pool : saved.pools) {
        WantedPool wanted{&pool, options.NewName(pool.name), false, 0};
        const auto size = sizes.find(wanted.name);
        if (size == sizes.end())
            continue;
        wanted.size = size->second;
        wanted.isRoot =
            options.IsWanted(pool.name) &&
            std::find(saved.roots.begin(), saved.roots.end(), pool.name) != saved.roots.end();
        pools.push_back(std::move(wanted));
    }
    return pools;
}

} // namespace zfslib::restore::internal
