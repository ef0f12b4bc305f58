#include "restore/Plan.h"

#include "restore/internal/DatasetPairs.h"
#include "restore/internal/PlanDatasets.h"
#include "restore/internal/PlanPools.h"

#include <algorithm>
#include <utility>

namespace zfslib::restore {

using internal::IsWithin;
std::string PlanOptions::NewName(std::string_view saved) const {
    const std::pair<const std::string, std::string>* best = nullptr;
    for (const auto& rename : renames)
        if (IsWithin(saved, rename.first) &&
            (best == nullptr || rename.first.size() > best->first.size()))
            best = &rename;
    if (best == nullptr)
        return std::string(saved);
    return best->second + std::string(saved.substr(best->first.size()));
}

bool PlanOptions::IsWanted(std::string_view saved) const {
    return roots.empty() || std::any_of(roots.begin(), roots.end(), [&](const std::string& root) {
               return IsWithin(saved, root);
           });
}

Plan MakePlan(const HostState& saved, const LiveState& live, const PlanOptions& options) {
    const internal::PlanInput input{saved, live, options};
    internal::PlanDraft draft;
    internal::PlanPools(input, draft);
    internal::PlanDatasets(input, draft);
    internal::PlanPoolsLast(input, draft);
    return std::move(draft).Finish();
}

} // namespace zfslib::restore
