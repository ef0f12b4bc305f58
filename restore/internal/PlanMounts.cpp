#include "restore/internal/PlanMounts.h"

#include "util/str.h"

#include <algorithm>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace zfslib::restore::internal {
namespace {

bool IsShareProperty(std::string_view property) {
    return property == "sharenfs" || property == "sharesmb" ||
           util::str_is_starts_with(property, "share.");
}

bool IsZoneProperty(std::string_view property) {
    return property == "zoned" || property == "jailed";
}

bool IsPath(std::string_view mountpoint) {
    return util::str_is_starts_with(mountpoint, "/");
}

/// Whether a path stands strictly below one of those in a sorted list.
template <typename Value>
const Value* FindAbove(const std::map<std::string, Value>& paths, std::string_view path) {
    while (path.size() > 1) {
        path = path.substr(0, path.rfind('/'));
        const auto found = paths.find(std::string(path.empty() ? "/" : path));
        if (found != paths.end())
            return &found->second;
    }
    return nullptr;
}

class MountPlanner {
public:
    MountPlanner(const PlanInput& input, DatasetPairs& pairs, PropertySteps& steps,
                 PlanDraft& draft)
        : input_(input), pairs_(pairs), steps_(steps), draft_(draft) {}

    void Plan() {
        LeaveZones();
        RestoreProperties();
        FindMounts();
        Unmount();
        Mount();
        RestoreLast();
        Share();
    }

private:
    /// Where a file system is mounted and is to be.
    struct Mounting {
        std::string name;
        const DatasetPair* pair = nullptr; ///< nothing when it was not saved
        std::string from;                  ///< empty when it is not mounted
        std::string to;                    ///< empty when it is not to be
        bool isUnmounted = false;          ///< has to be for a while, even if it stays in its place
        std::optional<PlanDraft::StepId> unmounted;
        std::optional<PlanDraft::StepId> mounted;

        [[nodiscard]] bool Moves() const { return isUnmounted || from != to; }
    };

    [[nodiscard]] bool IsRestored(const DatasetPair& pair, std::string_view property) const {
        const PropertyValue* saved = pair.saved->Find(property);
        const PropertyValue* live = pair.live == nullptr ? nullptr : pair.live->Find(property);
        return saved == nullptr || (live != nullptr && steps_.IsEqual(*saved, *live));
    }

    /// While a file system is zoned, its mount point and shares cannot change, nor those that it
    /// inherits.
    void LeaveZones() {
        std::set<const DatasetPair*> moving;
        for (DatasetPair& pair : pairs_.All()) {
            const bool movesItself = pair.NeedsTurns() && (!IsRestored(pair, "mountpoint") ||
                                                           !IsRestored(pair, "sharenfs") ||
                                                           !IsRestored(pair, "sharesmb"));
            if (!movesItself &&
                (moving.find(pair.parent) == moving.end() || pair.Now("mountpoint").IsOwn()))
                continue;
            moving.insert(&pair);
            for (const char* property : {"zoned", "jailed"})
                if (pair.live != nullptr && pair.live->Find(property) != nullptr &&
                    pair.Now(property).value == "on")
                    steps_.Set(pair, property, "off", {Phase::Mountpoints},
                               "a mount point cannot change while it is " + std::string(property));
        }
    }

    void RestoreProperties() {
        for (DatasetPair& pair : pairs_.All()) {
            if (!pair.NeedsTurns())
                continue;
            const bool wasOwn = pair.Now("mountpoint").IsOwn();
            const auto placed = steps_.Restore(pair, "mountpoint", {Phase::Mountpoints, true});
            if (!placed)
                continue;
            placed_[&pair] = *placed;
            if (pair.live != nullptr && wasOwn && !pair.Now("mountpoint").IsOwn())
                HoldBack(pair.name);
        }
        for (DatasetPair& pair : pairs_.All()) {
            if (!pair.NeedsTurns())
                continue;
            steps_.Restore(pair, "canmount", {Phase::Mountpoints, true});
            // What is mounted is shared anew at once.
            const bool isMounted = pair.live != nullptr && pair.live->isMounted;
            for (const PropertyValue& saved : pair.saved->properties)
                if (IsShareProperty(saved.Name()) && !IsRestored(pair, saved.Name()))
                    steps_.Restore(pair, saved, {Phase::Mountpoints, !isMounted});
            if (!IsReadOnly(pair))
                steps_.Restore(pair, "readonly", {Phase::Mountpoints});
        }
        for (const auto& [live, canmount] : heldBackOthers_) {
            Step step = CanmountStep(live->name, "noauto", "on", Phase::Mountpoints);
            step.why = "was held back";
            if (canmount->Source() != PropertySource::Local) {
                step.action = Action::Inherit;
                step.words = {"zfs", "inherit", "-S", "canmount", std::string(live->name)};
            }
            draft_.Add(std::move(step));
        }
    }

    /// `zfs inherit mountpoint` mounts the file system, and all that inherit from it, at once,
    /// unless they are not mounted automatically.
    void HoldBack(const std::string& top) {
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
            heldBack_.emplace(live->name);
            const PropertyValue* canmount = live->Find("canmount");
            if (canmount == nullptr || canmount->Value() != "on" ||
                live->type != DatasetState::Type::Filesystem)
                continue;
            if (pair != nullptr)
                HoldBack(*pair);
            else if (heldBackOthers_.emplace(live, canmount).second)
                draft_.Add(CanmountStep(live->name, "on", "noauto", Phase::Unmounts));
        }
        for (DatasetPair& pair : pairs_.All())
            if (pair.live == nullptr && IsWithin(pair.name, top) &&
                (passedOver.empty() || !IsWithin(pair.name, passedOver)))
                HoldBack(pair);
    }

    void HoldBack(DatasetPair& pair) {
        if (pair.IsFilesystem() && pair.Now("canmount").value.value_or("on") == "on")
            steps_.Set(pair, "canmount", "noauto", {Phase::Unmounts, true},
                       "is not to be mounted by the way");
    }

    static Step CanmountStep(std::string_view name, const char* was, const char* willBe,
                             Phase phase) {
        Step step;
        step.phase = phase;
        step.object = name;
        step.property = "canmount";
        step.words = {"zfs", "set", "-u", std::string("canmount=") + willBe, std::string(name)};
        step.was = was;
        step.willBe = willBe;
        step.why = "is not to be mounted by the way; it was not saved";
        return step;
    }

    static bool IsReadOnly(const DatasetPair& pair) {
        const PropertyValue* readonly = pair.saved->Find("readonly");
        return readonly != nullptr && readonly->Value() == "on";
    }

    /// Mount points as they are behind the steps, and which file systems have to be unmounted for
    /// them: those that move, and what is mounted below a place where one goes or comes.
    void FindMounts() {
        const bool isAsItWas =
            std::none_of(pairs_.All().begin(), pairs_.All().end(), [](const DatasetPair& pair) {
                return pair.NeedsTurns() || pair.live->isMounted != pair.saved->isMounted;
            });
        if (isAsItWas)
            return;
        for (DatasetPair& pair : pairs_.All()) {
            if (!pair.IsFilesystem())
                continue;
            const std::string& point = points_[pair.name] = MountpointOf(pair);
            Mounting mounting;
            mounting.name = pair.name;
            mounting.pair = &pair;
            mounting.from = pair.live == nullptr ? std::string() : MountedAt(*pair.live);
            if (pair.saved->isMounted && IsMountable(pair, point))
                mounting.to = point;
            AddMounting(std::move(mounting));
        }
        for (const DatasetState& live : input_.live.state.datasets)
            if (live.type == DatasetState::Type::Filesystem &&
                points_.find(live.name) == points_.end())
                AddOther(live);
        std::map<std::string, bool> moving;
        for (const Mounting& mounting : mounts_)
            if (mounting.Moves())
                for (const std::string& path : {mounting.from, mounting.to})
                    if (!path.empty())
                        moving.emplace(path, true);
        mounts_.erase(std::remove_if(mounts_.begin(), mounts_.end(),
                                     [&](const Mounting& mounting) {
                                         return !mounting.Moves() &&
                                                FindAbove(moving, mounting.from) == nullptr;
                                     }),
                      mounts_.end());
    }

    /// What was not saved is put back where it is, or where it is by what it inherits.
    void AddOther(const DatasetState& live) {
        Mounting mounting;
        mounting.name = live.name;
        mounting.from = mounting.to = MountedAt(live);
        const PropertyValue* mountpoint = live.Find("mountpoint");
        std::string& point = points_[mounting.name];
        point = mountpoint == nullptr ? std::string() : std::string(mountpoint->Value());
        const auto above = points_.find(NameAbove(live.name));
        if (mountpoint != nullptr && !IsOwn(*mountpoint) && above != points_.end())
            point = Below(above->second, live.name);
        if (!mounting.from.empty())
            mounting.to = IsPath(point) ? point : std::string();
        AddMounting(std::move(mounting));
    }

    void AddMounting(Mounting mounting) {
        if (mounting.from.empty() && mounting.to.empty())
            return;
        mounting.isUnmounted = heldBack_.find(mounting.name) != heldBack_.end();
        mounts_.push_back(std::move(mounting));
    }

    static std::string MountedAt(const DatasetState& live) {
        const PropertyValue* mountpoint = live.Find("mountpoint");
        return live.isMounted && mountpoint != nullptr && IsPath(mountpoint->Value())
                   ? std::string(mountpoint->Value())
                   : std::string();
    }

    /// What a dataset inherits from one with that mount point.
    static std::string Below(std::string above, std::string_view name) {
        if (!IsPath(above))
            return above;
        if (above.back() != '/')
            above += '/';
        return above.append(name.substr(NameAbove(name).size() + 1));
    }

    [[nodiscard]] std::string MountpointOf(const DatasetPair& pair) const {
        const PropertyNow now = pair.Now("mountpoint");
        if (now.IsOwn())
            return now.value.value_or("");
        if (pair.parent == nullptr)
            return now.value.value_or(std::string(pair.liveAltroot) + "/" + pair.name);
        return Below(points_.at(pair.parent->name), pair.name);
    }

    [[nodiscard]] bool IsMountable(const DatasetPair& pair, const std::string& point) {
        const bool isThere = pair.live != nullptr && pair.live->isMounted;
        for (const char* property : {"zoned", "jailed"}) {
            const PropertyValue* zoned = pair.saved->Find(property);
            if (zoned != nullptr && zoned->Value() == "on") {
                if (!isThere)
                    draft_.Say(pair.name, "was mounted in its zone, which has to do that");
                return false;
            }
        }
        if (!IsPath(point) && !isThere)
            draft_.Say(pair.name, "was mounted by something else than `zfs mount`");
        return IsPath(point) && pair.Now("canmount").value != "off";
    }

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

    /// What is mounted below goes first: the tool would take it along, without a word.
    void Unmount() {
        std::sort(mounts_.begin(), mounts_.end(),
                  [](const Mounting& a, const Mounting& b) { return a.from > b.from; });
        for (Mounting& mounting : mounts_) {
            if (mounting.from.empty())
                continue;
            Step step = MountStep(mounting.name, false);
            if (mounting.to.empty())
                step.why = "was not mounted";
            else if (mounting.from != mounting.to)
                step.why = "was mounted at " + mounting.to;
            else
                step.why = "is mounted again, when what is above it is";
            mounting.unmounted = draft_.Add(std::move(step));
        }
    }

    /// The upper ones first: one that comes later would cover what is mounted below it.
    void Mount() {
        std::sort(mounts_.begin(), mounts_.end(),
                  [](const Mounting& a, const Mounting& b) { return a.to < b.to; });
        std::map<std::string, PlanDraft::StepId> done;
        for (Mounting& mounting : mounts_) {
            if (mounting.to.empty())
                continue;
            const auto id = draft_.Add(MountStep(mounting.name, true));
            draft_.Need(id, mounting.unmounted);
            if (mounting.pair != nullptr)
                draft_.Need(id, mounting.pair->key);
            for (const DatasetPair* pair = mounting.pair; pair != nullptr; pair = pair->parent)
                if (const auto placed = placed_.find(pair); placed != placed_.end()) {
                    draft_.Need(id, placed->second);
                    break;
                }
            if (const auto* above = FindAbove(done, mounting.to))
                draft_.Need(id, *above);
            done.emplace(mounting.to, id);
            mounting.mounted = id;
        }
    }

    void RestoreLast() {
        for (DatasetPair& pair : pairs_.All())
            if (pair.NeedsTurns() && IsReadOnly(pair))
                steps_.Restore(pair, "readonly", {Phase::Mounts});
        for (const char* property : {"zoned", "jailed"})
            for (DatasetPair& pair : pairs_.All())
                if (pair.NeedsTurns())
                    steps_.Restore(pair, property, {Phase::Mounts});
    }

    /// OpenZFS shares what it mounts, and refuses what is shared.
    void Share() {
        if (!input_.Tools().version.empty())
            return;
        for (const Mounting& mounting : mounts_) {
            if (!mounting.mounted || mounting.pair == nullptr)
                continue;
            const auto& properties = mounting.pair->saved->properties;
            const bool isShared =
                std::any_of(properties.begin(), properties.end(), [](const PropertyValue& saved) {
                    return IsShareProperty(saved.Name()) && saved.Value() != "off" &&
                           saved.Value() != "-";
                });
            if (!isShared)
                continue;
            Step step;
            step.phase = Phase::Shares;
            step.action = Action::Share;
            step.object = mounting.name;
            step.words = {"zfs", "share", mounting.name};
            draft_.Need(draft_.Add(std::move(step)), mounting.mounted);
        }
    }

    const PlanInput& input_;
    DatasetPairs& pairs_;
    PropertySteps& steps_;
    PlanDraft& draft_;
    std::map<std::string, std::string, std::less<>>
        points_; ///< mount points behind the steps, by name
    std::vector<Mounting> mounts_;
    std::map<const DatasetPair*, PlanDraft::StepId> placed_;
    std::set<std::string, std::less<>> heldBack_;
    std::map<const DatasetState*, const PropertyValue*> heldBackOthers_;
};

} // namespace

bool IsMountProperty(std::string_view property) {
    return property == "mountpoint" || property == "canmount" || property == "readonly" ||
           IsShareProperty(property) || IsZoneProperty(property);
}

void PlanMounts(const PlanInput& input, DatasetPairs& pairs, PropertySteps& steps,
                PlanDraft& draft) {
    MountPlanner(input, pairs, steps, draft).Plan();
}

} // namespace zfslib::restore::internal
