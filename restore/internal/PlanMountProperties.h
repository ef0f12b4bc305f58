#pragma once

#include "restore/internal/BusyMounts.h"
#include "restore/internal/DatasetPairs.h"
#include "restore/internal/PropertySteps.h"

#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>

/// The properties by which file systems are mounted and shared: mount points, zones, canmount,
/// shares and readonly.
namespace zfslib::restore::internal {

[[nodiscard]] bool IsShareProperty(std::string_view property);
[[nodiscard]] bool IsZoneProperty(std::string_view property);

/// Whether anything of a dataset is shared.
[[nodiscard]] bool IsShared(const DatasetState& dataset);
/// Whether it was read-only when it was saved.
[[nodiscard]] bool IsReadOnly(const DatasetPair& pair);
/// Whether it was saved as a zone's or jail's.
[[nodiscard]] bool WasInZone(const DatasetPair& pair);
/// The property by which it belongs to a zone before any step, and nothing when it does not: what
/// is mounted in a zone is that zone's.
[[nodiscard]] const PropertyValue* ZoneAtFirst(const DatasetState& live);

/// What the steps of these properties leave to the mounts, and to the properties that come last.
struct MountPropertySteps {
    std::map<const DatasetPair*, PlanDraft::StepId> placed; ///< the steps of mount points
    std::set<std::string, std::less<>> heldBack;            ///< is not mounted by the way
    /// Those of these that were not saved, with the canmount that they get back.
    std::map<const DatasetState*, const PropertyValue*> heldBackOthers;
    std::set<const DatasetPair*> inUse; ///< is mounted in a zone
};

/// Adds what these properties need before anything is mounted. What would move what is busy stays
/// where it is.
[[nodiscard]] MountPropertySteps PlanMountProperties(const PlanInput& input, DatasetPairs& pairs,
                                                     PropertySteps& steps, PlanDraft& draft,
                                                     const BusyMounts& busy);

/// Adds what has to wait until all is mounted: read-only, and what mounts or shares by the way.
void PlanMountPropertiesLast(const PlanInput& input, DatasetPairs& pairs, PropertySteps& steps,
                             PlanDraft& draft, const MountPropertySteps& before);

} // namespace zfslib::restore::internal
