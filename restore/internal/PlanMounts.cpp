#include "restore/internal/PlanMounts.h"

#include "restore/internal/BusyMounts.h"
#include "restore/internal/MountSteps.h"
#include "restore/internal/Mountings.h"
#include "restore/internal/PlanMountProperties.h"

#include <string_view>
#include <utility>

namespace zfslib::restore::internal {
namespace {

/// As PropertySteps::Follow, of what was mounted again and was not saved.
void FollowOther(const PlanInput& input, const DatasetPairs& pairs, PlanDraft& draft,
                 const Mounting& mounting) {
    for (std::string_view name = mounting.name; !name.empty(); name = NameAbove(name)) {
        const DatasetPair* pair = pairs.FindLive(name);
        const DatasetState* live = input.live.state.FindDataset(name);
        const PropertyValue* readonly = live == nullptr ? nullptr : live->Find("readonly");
        if (pair == nullptr && (readonly == nullptr || IsOwn(*readonly)))
            return;
        if (pair == nullptr)
            continue;
        if (!pair->HandsDownOther("readonly") || pair->Now("readonly").value != "on")
            return;
        Step step;
        step.phase = Phase::Mounts;
        step.action = Action::Inherit;
        step.object = mounting.name;
        step.property = "readonly";
        step.words = {"zfs", "inherit", "readonly", mounting.name};
        step.was = "off";
        step.willBe = "on";
        step.why = "the mount follows only then";
        draft.Need(draft.Add(std::move(step)), mounting.mounted);
        return;
    }
}

/// What was mounted while a file system above it was not read-only yet.
void FollowReadOnly(const PlanInput& input, const DatasetPairs& pairs, PropertySteps& steps,
                    PlanDraft& draft, const Mountings& mountings) {
    for (const Mounting& mounting : mountings.moving) {
        if (!mounting.mounted)
            continue;
        if (mounting.pair == nullptr)
            FollowOther(input, pairs, draft, mounting);
        else if (IsReadOnly(*mounting.pair))
            steps.Follow(*mounting.pair, "readonly", {Phase::Mounts});
    }
}

/// OpenZFS shares what it mounts, and refuses what is shared.
void Share(const PlanInput& input, PlanDraft& draft, const Mountings& mountings) {
    if (!input.Tools().version.empty())
        return;
    for (const Mounting& mounting : mountings.moving) {
        if (!mounting.mounted || mounting.pair == nullptr)
            continue;
        if (!IsShared(*mounting.pair->saved))
            continue;
        Step step;
        step.phase = Phase::Shares;
        step.action = Action::Share;
        step.object = mounting.name;
        step.words = {"zfs", "share", mounting.name};
        draft.Need(draft.Add(std::move(step)), mounting.mounted);
    }
}

} // namespace

bool IsMountProperty(std::string_view property) {
    return property == "mountpoint" || property == "canmount" || property == "readonly" ||
           IsShareProperty(property) || IsZoneProperty(property);
}

void PlanMounts(const PlanInput& input, DatasetPairs& pairs, PropertySteps& steps,
                PlanDraft& draft) {
    const BusyMounts busy = FindBusyMounts(input.live);
    const MountPropertySteps properties = PlanMountProperties(input, pairs, steps, draft, busy);
    Mountings mountings = FindMountings(input, pairs, steps, draft, busy, properties);
    PlanMountSteps(input, pairs, draft, mountings);
    PlanMountPropertiesLast(input, pairs, steps, draft, properties);
    FollowReadOnly(input, pairs, steps, draft, mountings);
    Share(input, draft, mountings);
}

} // namespace zfslib::restore::internal
