#pragma once

#include "restore/internal/BusyMounts.h"
#include "restore/internal/DatasetPairs.h"
#include "restore/internal/PlanMountProperties.h"
#include "restore/internal/PropertySteps.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

/// Which file systems are mounted where, and are to be.
namespace zfslib::restore::internal {

/// Where a file system is mounted and is to be.
struct Mounting {
    std::string name;
    DatasetPair* pair = nullptr; ///< nothing when it was not saved
    std::string from;            ///< empty when it is not mounted
    std::string to;              ///< empty when it is not to be
    bool isUnmounted = false;    ///< has to be for a while, even if it stays in its place
    bool isLeft = false;         ///< is said to stay as it is
    std::optional<PlanDraft::StepId> placed; ///< sets its mount point, behind the unmounting
    std::optional<PlanDraft::StepId> opened; ///< what holds its folder can be written then
    std::optional<PlanDraft::StepId> unmounted;
    std::optional<PlanDraft::StepId> mounted;

    [[nodiscard]] bool Moves() const { return isUnmounted || from != to; }
};

/// What has to be mounted or unmounted.
struct Mountings {
    std::vector<Mounting> moving;
    std::map<std::string, std::string> refused; ///< names of what cannot be mounted, by places
};

/// Says why one cannot be mounted; with no reason, that what is above it is not.
void Refuse(const Mounting& mounting, const std::string& reason, Mountings& mountings,
            PlanDraft& draft);

/// Finds them behind the steps of the properties: those that move, and what stands in their way for
/// a while. Says what cannot be mounted, and opens what is read-only where a folder has to be made.
[[nodiscard]] Mountings FindMountings(const PlanInput& input, DatasetPairs& pairs,
                                      PropertySteps& steps, PlanDraft& draft,
                                      const BusyMounts& busy, const MountPropertySteps& properties);

} // namespace zfslib::restore::internal
