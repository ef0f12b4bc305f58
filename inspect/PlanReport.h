#pragma once

#include "restore/Plan.h"

#include <string>
#include <vector>

namespace inspect {

/// When and where a state was read.
struct StateOrigin {
    std::string host;
    std::string readAt;
    std::vector<std::string> roots;
};

struct PlanReport {
    StateOrigin saved;
    StateOrigin live;
    std::vector<std::string> warnings; ///< about the recording
    zfslib::restore::Plan plan;
    bool withExitCode = false;

    /// With an exit code: 3 when there is something to do, 4 when there is only what cannot be
    /// done, else 0.
    [[nodiscard]] int ExitStatus() const noexcept {
        if (!withExitCode)
            return 0;
        return !plan.IsEmpty() ? 3 : !plan.cannot.empty() ? 4 : 0;
    }
};

} // namespace inspect
