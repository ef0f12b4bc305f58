#include "restore/internal/PlanPools.h"

#include <optional>
#include <string>

namespace zfslib::restore::internal {

void PlanPools(const PlanInput& input, PlanDraft& draft) {
    for (const PoolState& saved : input.saved.pools) {
        const std::string name = input.options.NewName(saved.name);
        if (input.live.state.FindPool(name) != nullptr)
            continue;
        draft.CannotDo(name, "", std::nullopt, std::nullopt, "the pool is not there");
        draft.LeaveOut(name);
    }
}

} // namespace zfslib::restore::internal
