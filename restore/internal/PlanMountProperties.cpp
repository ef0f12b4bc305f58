#include "restore/internal/PlanMountProperties.h"

#include "util/ShellWord.h"
#include "util/str.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

namespace zfslib::restore::internal {
namespace {

class MountPropertyPlanner {
public:
    MountPropertyPlanner(const PlanInput& input, DatasetPairs& pairs, PropertySteps& steps,
                         PlanDraft& draft, MountPropertySteps done = {})
        : input_(input), pairs_(pairs), steps_(steps), draft_(draft),
          records_(TakesOption(input.Tools().zfsUsage, "set", 'u')), done_(std::move(done)) {}

    MountPropertySteps Plan(const BusyMounts& busy) && {
        LeaveZones();
        LeaveBusy(busy);
        RestoreProperties();
        return std::move(done_);
    }

    void PlanLast() {
        for (DatasetPair& pair : pairs_.All())
            if (pair.NeedsTurns() && HasCanmountLast(pair))
                steps_.Restore(pair, "canmount", {Phase::Mounts});
        if (!records_)
            ReleaseOthers(Phase::Mounts);
        for (DatasetPair& pair : pairs_.All())
            if (pair.NeedsTurns())
                RestoreShares(pair, false, true);
        for (DatasetPair& pair : pairs_.All())
            if (pair.NeedsTurns() && IsReadOnly(pair)) {
                steps_.Restore(pair, "readonly", {Phase::Mounts});
                if (pair.saved->isMounted)
                    steps_.Follow(pair, "readonly", {Phase::Mounts});
            }
    }

private:
    /// The source that a property will have, if it has a step to come.
    [[nodiscard]] std::optional<PropertySource> WillBe(const DatasetPair& pair,
                                                       std::string_view property) const {
        DatasetPair copy = pair;
        PlanDraft scratch;
        if (!PropertySteps(input_, scratch).Restore(copy, property, {}))
            return std::nullopt;
        return copy.Now(property).source;
    }

    [[nodiscard]] bool WillChange(const DatasetPair& pair, std::string_view property) const {
        return WillBe(pair, property).has_value();
    }

    /// The property by which a live file system belongs to a zone or jail; nothing when it does
    /// not.
    [[nodiscard]] static const char* ZoneOf(const DatasetPair& pair) {
        for (const char* property : {"zoned", "jailed"})
            if ((pair.live == nullptr || pair.live->Find(property) != nullptr) &&
                pair.Now(property).value == "on")
                return property;
        return nullptr;
    }

    /// While a file system is zoned, its mount point and shares cannot change, nor those that it
    /// inherits from.
    void LeaveZones() {
        std::set<const DatasetPair*> moving;
        for (DatasetPair& pair : pairs_.All()) {
            const bool movesItself = pair.NeedsTurns() && WillChange(pair, "mountpoint");
            const bool moves = movesItself || (moving.find(pair.parent) != moving.end() &&
                                               !pair.Now("mountpoint").IsOwn());
            if (moves)
                moving.insert(&pair);
            const char* const zone = ZoneOf(pair);
            if (zone == nullptr)
                continue;
            if (!WasInZone(pair)) {
                steps_.Restore(pair, zone, {Phase::Mountpoints});
            } else if (moves || WillChange(pair, "sharenfs") || WillChange(pair, "sharesmb")) {
                if ((pair.live != nullptr && pair.live->isMounted) ||
                    !steps_.CanRestore(pair, zone))
                    LeaveInZone(pair, "it is in a zone, which has to let go of it first");
                else
                    steps_.Set(pair, zone, "off", {Phase::Mountpoints},
                               "a mount point cannot change while it is " + std::string(zone));
            }
        }
        MindOthersInZones(moving);
    }

    /// A mount point that moves what cannot be unmounted stays as it is.
    void LeaveBusy(const BusyMounts& busyMounts) {
        if (busyMounts.empty())
            return;
        std::map<const DatasetPair*, const DatasetPair*> movers; // by what moves with them
        for (const DatasetPair& pair : pairs_.All()) {
            const auto above = movers.find(pair.parent);
            if (pair.NeedsTurns() && WillChange(pair, "mountpoint"))
                movers.emplace(&pair, &pair);
            else if (above != movers.end() && !pair.Now("mountpoint").IsOwn())
                movers.emplace(&pair, above->second);
            else
                continue;
            const auto busy = busyMounts.find(pair.name);
            const DatasetPair* mover = movers.at(&pair);
            if (busy != busyMounts.end() && stays_.insert(mover).second)
                draft_.CannotDo(mover->name, "mountpoint", std::nullopt, std::nullopt,
                                TextOfBusy(busy->second));
        }
    }

    /// The tool refuses a mount point that a zoned file system inherits.
    void MindOthersInZones(const std::set<const DatasetPair*>& moving) {
        for (const DatasetState& live : input_.live.state.datasets) {
            if (pairs_.FindLive(live.name) != nullptr || ZoneAtFirst(live) == nullptr)
                continue;
            const PropertyValue* mountpoint = live.Find("mountpoint");
            for (std::string_view name = live.name;
                 !name.empty() && (mountpoint == nullptr || !IsOwn(*mountpoint));) {
                name = NameAbove(name);
                const DatasetPair* pair = pairs_.FindLive(name);
                const DatasetState* above = input_.live.state.FindDataset(name);
                mountpoint = above == nullptr ? nullptr : above->Find("mountpoint");
                if (pair != nullptr && moving.find(pair) != moving.end())
                    LeaveInZone(*pair,
                                "what it hands down is in a zone: " + std::string(live.name));
            }
        }
    }

    void LeaveInZone(const DatasetPair& pair, std::string reason) {
        if (done_.inUse.insert(&pair).second)
            draft_.CannotDo(pair.name, "mountpoint", std::nullopt, std::nullopt, std::move(reason));
    }

    void RestoreProperties() {
        for (DatasetPair& pair : pairs_.All()) {
            if (!pair.NeedsTurns() || done_.inUse.find(&pair) != done_.inUse.end() ||
                stays_.find(&pair) != stays_.end())
                continue;
            std::vector<PlanDraft::StepId> held;
            const std::optional<PropertySource> source = WillBe(pair, "mountpoint");
            if (source && pair.live != nullptr && (!records_ || *source != PropertySource::Local))
                held = HoldBack(pair.name);
            const auto placed = steps_.Restore(pair, "mountpoint", {Phase::Mountpoints, true});
            if (!placed)
                continue;
            done_.placed[&pair] = *placed;
            pair.beforeMount.push_back(*placed);
            for (const PlanDraft::StepId step : held)
                draft_.Need(*placed, step);
        }
        // What closes comes first: what is open above is open below as well.
        for (const bool isClosing : {true, false}) {
            for (DatasetPair& pair : pairs_.All()) {
                if (!pair.NeedsTurns())
                    continue;
                RestoreShares(pair, isClosing, false);
                if (isClosing ? IsReadOnly(pair) && pair.Now("readonly").value == "on"
                              : !IsReadOnly(pair))
                    steps_.Restore(pair, "readonly", {Phase::Mountpoints});
                if (!isClosing && !IsReadOnly(pair) && pair.live != nullptr && pair.live->isMounted)
                    steps_.Follow(pair, "readonly", {Phase::Mountpoints});
            }
            if (isClosing)
                for (DatasetPair& pair : pairs_.All())
                    if (pair.NeedsTurns() && !HasCanmountLast(pair))
                        RestoreCanmount(pair);
        }
        for (const char* property : {"zoned", "jailed"})
            for (DatasetPair& pair : pairs_.All())
                if (pair.NeedsTurns())
                    steps_.Restore(pair, property, {Phase::Mountpoints});
        if (records_)
            ReleaseOthers(Phase::Mountpoints);
    }

    /// A tool that cannot just record it mounts what is shared by the way.
    [[nodiscard]] bool HasCanmountLast(const DatasetPair& pair) const {
        const PropertyValue* saved = pair.saved->Find("canmount");
        return !records_ && saved != nullptr && saved->Value() == "on" &&
               pair.Now("canmount").value == "noauto";
    }

    void RestoreCanmount(DatasetPair& pair) {
        const PropertyValue* saved = pair.saved->Find("canmount");
        if (records_ && saved != nullptr && saved->Source() == PropertySource::Default &&
            steps_.CanRestore(pair, "canmount") && pair.Now("canmount").IsOwn() &&
            !steps_.IsSame(pair, *saved, pair.Now("canmount")) && IsSharedAtOrBelow(pair.name))
            steps_.Set(pair, "canmount", saved->Value(), {Phase::Mountpoints, true},
                       "was default, but to inherit it mounts what is shared");
        else
            steps_.Restore(pair, "canmount", {Phase::Mountpoints, true});
    }

    [[nodiscard]] bool IsSharedAtOrBelow(const std::string& top) const {
        const std::vector<DatasetState>& datasets = input_.live.state.datasets;
        const DatasetState* live = input_.live.state.FindDataset(top);
        for (; live != nullptr && live != datasets.data() + datasets.size() &&
               IsWithin(live->name, top);
             ++live)
            if (IsShared(*live))
                return true;
        return false;
    }

    /// What cannot just be recorded mounts by the way: it is the `last`, when all is mounted.
    void RestoreShares(DatasetPair& pair, bool isClosing, bool last) {
        if (done_.inUse.find(&pair) != done_.inUse.end())
            return;
        // What is mounted is shared anew at once.
        const bool isMounted = pair.live != nullptr && pair.live->isMounted;
        for (const PropertyValue& saved : pair.saved->properties) {
            if (!IsShareProperty(saved.Name()) || (saved.Value() == "off") != isClosing)
                continue;
            const bool isLast =
                !isClosing && !WasInZone(pair) && (!records_ || isMounted || !IsOwn(saved));
            if (isLast != last)
                continue;
            const auto shared =
                steps_.Restore(pair, std::string_view(saved.Name()),
                               {isLast ? Phase::Mounts : Phase::Mountpoints, !isMounted});
            if (shared && !isLast)
                pair.beforeMount.push_back(*shared);
        }
    }

    void ReleaseOthers(Phase phase) {
        for (const auto& [live, canmount] : done_.heldBackOthers) {
            Step step = CanmountStep(live->name, "noauto", "on", phase);
            step.why = "was held back";
            step.words = WordsToRelease(live->name, *canmount);
            if (canmount->Source() != PropertySource::Local)
                step.action = Action::Inherit;
            draft_.Add(std::move(step));
        }
    }

    /// `zfs inherit mountpoint`, and a `zfs set` that cannot just record it, mounts the file
    /// system, and all that inherit from it, at once, unless they are not mounted automatically.
    std::vector<PlanDraft::StepId> HoldBack(const std::string& top) {
        std::vector<PlanDraft::StepId> held;
        const std::vector<DatasetState>& datasets = input_.live.state.datasets;
        std::string passedOver; // has a mount point of its own, and what is below has that
        for (const DatasetState* live = input_.live.state.FindDataset(top);
             live != datasets.data() + datasets.size() && IsWithin(live->name, top); ++live) {
            if (!passedOver.empty() && IsWithin(live->name, passedOver))
                continue;
            DatasetPair* pair = pairs_.FindLive(live->name);
            const PropertyValue* mountpoint = live->Find("mountpoint");
            const bool isOwn = pair != nullptr ? pair->Now("mountpoint").IsOwn()
                                               : mountpoint != nullptr && IsOwn(*mountpoint);
            if (isOwn && live->name != top) {
                passedOver = live->name;
                continue;
            }
            done_.heldBack.emplace(live->name);
            const PropertyValue* canmount = live->Find("canmount");
            if (canmount == nullptr || canmount->Value() != "on" ||
                live->type != DatasetState::Type::Filesystem)
                continue;
            if (pair != nullptr && steps_.CanRestore(*pair, "canmount"))
                HoldBack(*pair, held);
            else if (done_.heldBackOthers.emplace(live, canmount).second)
                held.push_back(HoldBackOther(*live, *canmount));
        }
        for (auto pair = pairs_.FirstWithin(top);
             pair != pairs_.All().end() && IsWithin(pair->name, top); ++pair)
            if (pair->live == nullptr)
                HoldBack(*pair, held);
        return held;
    }

    void HoldBack(DatasetPair& pair, std::vector<PlanDraft::StepId>& held) {
        if (pair.IsFilesystem() && pair.Now("canmount").value.value_or("on") == "on")
            held.push_back(steps_.Set(pair, "canmount", "noauto", {HoldBackPhase(), true},
                                      "is not to be mounted by the way"));
    }

    /// A later plan knows nothing of what was not saved, and what it was is said here.
    PlanDraft::StepId HoldBackOther(const DatasetState& live, const PropertyValue& canmount) {
        draft_.Say(live.name, "has canmount=noauto for a while: should the script stop in between, "
                              "give it back with: " +
                                  util::ShellLine(WordsToRelease(live.name, canmount)));
        return draft_.Add(CanmountStep(live.name, "on", "noauto", HoldBackPhase()));
    }

    [[nodiscard]] std::vector<std::string> WordsToRelease(std::string_view name,
                                                          const PropertyValue& canmount) const {
        if (canmount.Source() != PropertySource::Local)
            return {"zfs", "inherit", "-S", "canmount", std::string(name)};
        return CanmountStep(name, "noauto", "on", Phase::Mountpoints).words;
    }

    /// As late as can be: a script may stop at what is busy. A tool that cannot just record it
    /// mounts what is unmounted by then.
    [[nodiscard]] Phase HoldBackPhase() const {
        return records_ ? Phase::Mountpoints : Phase::Unmounts;
    }

    [[nodiscard]] Step CanmountStep(std::string_view name, const char* was, const char* willBe,
                                    Phase phase) const {
        Step step;
        step.phase = phase;
        step.object = name;
        step.property = "canmount";
        step.words = {"zfs", "set"};
        if (records_)
            step.words.emplace_back("-u");
        step.words.insert(step.words.end(), {std::string("canmount=") + willBe, std::string(name)});
        step.was = was;
        step.willBe = willBe;
        step.why = "is not to be mounted by the way; it was not saved";
        return step;
    }

    const PlanInput& input_;
    DatasetPairs& pairs_;
    PropertySteps& steps_;
    PlanDraft& draft_;
    bool records_;                       ///< whether the tool sets a mount point and mounts nothing
    std::set<const DatasetPair*> stays_; ///< would have to be unmounted
    MountPropertySteps done_;
};

} // namespace

bool IsShareProperty(std::string_view property) {
    return property == "sharenfs" || property == "sharesmb" ||
           util::str_is_starts_with(property, "share.");
}

bool IsZoneProperty(std::string_view property) {
    return property == "zoned" || property == "jailed";
}

bool IsShared(const DatasetState& dataset) {
    return std::any_of(dataset.properties.begin(), dataset.properties.end(),
                       [](const PropertyValue& property) {
                           return IsShareProperty(property.Name()) && property.Value() != "off" &&
                                  property.Value() != "-";
                       });
}

bool IsReadOnly(const DatasetPair& pair) {
    const PropertyValue* readonly = pair.saved->Find("readonly");
    return readonly != nullptr && readonly->Value() == "on";
}

bool WasInZone(const DatasetPair& pair) {
    return std::any_of(pair.saved->properties.begin(), pair.saved->properties.end(),
                       [](const PropertyValue& saved) {
                           return IsZoneProperty(saved.Name()) && saved.Value() == "on";
                       });
}

const PropertyValue* ZoneAtFirst(const DatasetState& live) {
    for (const PropertyValue& property : live.properties)
        if (IsZoneProperty(property.Name()) && property.Value() == "on")
            return &property;
    return nullptr;
}

MountPropertySteps PlanMountProperties(const PlanInput& input, DatasetPairs& pairs,
                                       PropertySteps& steps, PlanDraft& draft,
                                       const BusyMounts& busy) {
    return MountPropertyPlanner(input, pairs, steps, draft).Plan(busy);
}

void PlanMountPropertiesLast(const PlanInput& input, DatasetPairs& pairs, PropertySteps& steps,
                             PlanDraft& draft, const MountPropertySteps& before) {
    MountPropertyPlanner(input, pairs, steps, draft, before).PlanLast();
}

} // namespace zfslib::restore::internal
