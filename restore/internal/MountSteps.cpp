#include "restore/internal/MountSteps.h"

#include "restore/internal/Places.h"
#include "util/str.h"

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zfslib::restore::internal {
namespace {

class MountStepPlanner {
public:
    MountStepPlanner(const PlanInput& input, DatasetPairs& pairs, PlanDraft& draft,
                     Mountings& mountings)
        : input_(input), pairs_(pairs), draft_(draft), mountings_(mountings) {}

    void Plan() {
        Unmount();
        Mount();
    }

private:
    static Step MountStep(const std::string& name, bool isMount) {
        Step step;
        step.phase = isMount ? Phase::Mounts : Phase::Unmounts;
        step.action = isMount ? Action::Mount : Action::Unmount;
        step.object = name;
        step.property = "mounted";
        step.words = {"zfs", isMount ? "mount" : "unmount", name};
        step.was = isMount ? "no" : "yes";
        step.willBe = isMount ? "yes" : "no";
        return step;
    }

    /// What is mounted below goes first, and what is below by name: the tool would take it along,
    /// without a word.
    void Unmount() {
        std::map<std::string_view, Mounting*> byName;
        std::multimap<std::string, Mounting*> byPlace;
        for (Mounting& mounting : mountings_.moving)
            if (!mounting.from.empty()) {
                byName.emplace(mounting.name, &mounting);
                byPlace.emplace(mounting.from, &mounting);
            }
        std::set<const Mounting*> begun;
        const std::function<void(Mounting&)> unmount = [&](Mounting& mounting) {
            if (!begun.insert(&mounting).second)
                return;
            const std::string place = mounting.from == "/" ? "/" : mounting.from + "/";
            for (auto below = byPlace.lower_bound(place);
                 below != byPlace.end() && util::str_is_starts_with(below->first, place); ++below)
                unmount(*below->second);
            const std::string name = mounting.name + "/";
            for (auto below = byName.lower_bound(name);
                 below != byName.end() && util::str_is_starts_with(below->first, name); ++below)
                if (!IsAbovePlace(*below->second, mounting))
                    unmount(*below->second);
            for (auto above = NameAbove(mounting.name); !above.empty(); above = NameAbove(above))
                if (const auto taker = byName.find(above);
                    taker != byName.end() && IsAbovePlace(mounting, *taker->second)) {
                    mounting.unmounted = taker->second->unmounted;
                    break;
                }
            if (!mounting.unmounted)
                mounting.unmounted = draft_.Add(UnmountStep(mounting));
            if (mounting.placed)
                draft_.Need(*mounting.placed, mounting.unmounted);
        };
        for (auto mounting = byPlace.rbegin(); mounting != byPlace.rend(); ++mounting)
            unmount(*mounting->second);
    }

    /// To unmount one that is mounted below what is below it by name takes both.
    static bool IsAbovePlace(const Mounting& upper, const Mounting& lower) {
        return upper.from != lower.from && IsBelowPath(lower.from, upper.from);
    }

    static Step UnmountStep(const Mounting& mounting) {
        Step step = MountStep(mounting.name, false);
        const bool wasMounted = mounting.pair == nullptr || mounting.pair->saved->isMounted;
        if (mounting.to.empty())
            step.why = !wasMounted                 ? "was not mounted"
                       : mounting.pair == nullptr  ? "has no place of its own then"
                       : WasInZone(*mounting.pair) ? "was mounted in its zone"
                                                   : "was mounted by something else";
        else if (mounting.from != mounting.to)
            step.why = "was mounted at " + mounting.to;
        else
            step.why = "is mounted again, when what is above it is";
        return step;
    }

    /// The upper ones first: one that comes later would cover what is mounted below it. What has
    /// its key from a file that is not there yet waits for that, and so does what is below it.
    void Mount() {
        occupied_ = Occupied();
        std::vector<Mounting*> waiting;
        for (Mounting& mounting : mountings_.moving) {
            if (mounting.unmounted)
                unmounted_.emplace(mounting.from, *mounting.unmounted);
            if (!mounting.to.empty())
                waiting.push_back(&mounting);
        }
        std::sort(waiting.begin(), waiting.end(),
                  [](const Mounting* a, const Mounting* b) { return a->to < b->to; });
        FindLateKeys();
        for (std::size_t before = 0; before != waiting.size();) {
            before = waiting.size();
            std::vector<Mounting*> still;
            std::map<std::string, bool> places;
            for (Mounting* mounting : waiting)
                if (!LocksOut(*mounting).empty() || FindAbove(places, mounting->to) != nullptr) {
                    places.emplace(mounting->to, true);
                    still.push_back(mounting);
                } else {
                    Mount(*mounting);
                }
            waiting = std::move(still);
        }
        for (const Mounting* mounting : waiting)
            Refuse(*mounting, LocksOut(*mounting), mountings_, draft_);
        for (const auto& [keeper, root] : lateKeys_)
            draft_.CannotDo(root->name, "keystatus", "available", "unavailable",
                            "it is in a file of " + keeper + ", which is not mounted before");
    }

    void Mount(Mounting& mounting) {
        if (HasCanmountOff(mounting)) {
            Refuse(mounting, "`zfs mount` refuses what has canmount=off", mountings_, draft_);
            return;
        }
        const auto other = FindAtOrBelow(occupied_, mounting.to);
        if (other != occupied_.end()) {
            Refuse(mounting,
                   other->second + " is mounted at " + other->first + ", and would be covered",
                   mountings_, draft_);
            return;
        }
        const auto* above = FindAbove(mountings_.refused, mounting.to);
        if (above != nullptr && mounting.from != mounting.to) {
            Refuse(mounting, *above + ", above it, is not mounted", mountings_, draft_);
            return;
        }
        SayOfMountOptions(mounting);
        const auto id = draft_.Add(MountStep(mounting.name, true));
        for (auto below = FindAtOrBelow(unmounted_, mounting.to);
             below != unmounted_.end() && IsBelowPath(below->first, mounting.to); ++below)
            draft_.Need(id, below->second);
        draft_.Need(id, mounting.unmounted);
        draft_.Need(id, mounting.opened);
        if (mounting.pair != nullptr) {
            draft_.Need(id, mounting.pair->key);
            if (mounting.pair->lateKey != nullptr)
                draft_.Need(id, keysLoaded_.at(mounting.pair->lateKey));
        }
        for (const DatasetPair* pair = mounting.pair; pair != nullptr; pair = pair->parent)
            for (const PlanDraft::StepId step : pair->beforeMount)
                draft_.Need(id, step);
        if (const auto* upper = FindAbove(mounted_, mounting.to))
            draft_.Need(id, *upper);
        mounted_.emplace(mounting.to, id);
        mounting.mounted = id;
        LoadKeysOf(mounting.name, id);
    }

    void FindLateKeys() {
        std::set<const DatasetPair*> known;
        for (const DatasetPair& pair : pairs_.All())
            if (pair.lateKey != nullptr && known.insert(pair.lateKey).second)
                lateKeys_.emplace(
                    pairs_.Keys().FindUnmountedKeeper(pair.lateKey->saved, *pair.lateKey->live),
                    pair.lateKey);
    }

    void LoadKeysOf(const std::string& keeper, PlanDraft::StepId mounted) {
        const auto [first, last] = lateKeys_.equal_range(keeper);
        for (auto late = first; late != last; ++late) {
            const DatasetPair& root = *late->second;
            const auto id = keysLoaded_[&root] = draft_.Add(LoadKeyStep(root, Phase::Mounts));
            draft_.Need(id, mounted);
            for (const PlanDraft::StepId step : root.beforeMount)
                draft_.Need(id, step);
        }
        lateKeys_.erase(first, last);
    }

    /// Why a file system cannot be mounted yet, as its key is not loaded; empty when it can.
    [[nodiscard]] std::string LocksOut(const Mounting& mounting) const {
        const DatasetPair* root = mounting.pair == nullptr ? nullptr : mounting.pair->lateKey;
        return root == nullptr || keysLoaded_.find(root) != keysLoaded_.end()
                   ? std::string()
                   : "the key of " + root->name + " is not loaded";
    }

    [[nodiscard]] bool HasCanmountOff(const Mounting& mounting) const {
        if (mounting.pair != nullptr)
            return mounting.pair->Now("canmount").value == "off";
        const DatasetState* live = input_.live.state.FindDataset(mounting.name);
        const PropertyValue* canmount = live == nullptr ? nullptr : live->Find("canmount");
        return canmount != nullptr && canmount->Value() == "off";
    }

    /// Those of a mount are gone when it is.
    void SayOfMountOptions(const Mounting& mounting) {
        const DatasetState* live =
            mounting.unmounted ? input_.live.state.FindDataset(mounting.name) : nullptr;
        if (live == nullptr)
            return;
        for (const PropertyValue& property : live->properties) {
            if (property.Source() != PropertySource::Temporary)
                continue;
            const PropertyValue* saved =
                mounting.pair == nullptr ? nullptr : mounting.pair->saved->Find(property.Name());
            if (saved != nullptr && saved->Source() == PropertySource::Temporary)
                draft_.CannotDo(mounting.name, property.Name(), std::string(saved->Value()),
                                std::string(property.Value()), std::string(coveredByMountOption));
            else if (mounting.pair == nullptr)
                draft_.Say(mounting.name, "is mounted again without its mount options");
        }
    }

    /// Where file systems are mounted that stay so and that the plan does not know of.
    [[nodiscard]] std::map<std::string, std::string> Occupied() const {
        std::set<std::string_view> known;
        for (const Mounting& mounting : mountings_.moving)
            known.insert(mounting.name);
        std::map<std::string, std::string> occupied;
        for (const auto& [name, path] : input_.live.mounts)
            if (!path.empty() && known.find(name) == known.end())
                occupied.emplace(path, name);
        return occupied;
    }

    const PlanInput& input_;
    DatasetPairs& pairs_;
    PlanDraft& draft_;
    Mountings& mountings_;
    std::map<std::string, std::string> occupied_; ///< names, by places that the plan leaves alone
    std::multimap<std::string, PlanDraft::StepId> unmounted_;    ///< by places
    std::map<std::string, PlanDraft::StepId> mounted_;           ///< by places
    std::multimap<std::string, const DatasetPair*> lateKeys_;    ///< roots, by who has the file
    std::map<const DatasetPair*, PlanDraft::StepId> keysLoaded_; ///< of these
};

} // namespace

void PlanMountSteps(const PlanInput& input, DatasetPairs& pairs, PlanDraft& draft,
                    Mountings& mountings) {
    MountStepPlanner(input, pairs, draft, mountings).Plan();
}

} // namespace zfslib::restore::internal
