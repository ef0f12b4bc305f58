#include "restore/internal/Mountings.h"

#include "restore/internal/Places.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

namespace zfslib::restore::internal {
namespace {

class MountingFinder {
public:
    MountingFinder(const PlanInput& input, DatasetPairs& pairs, PropertySteps& steps,
                   PlanDraft& draft, const BusyMounts& busy, const MountPropertySteps& properties)
        : input_(input), pairs_(pairs), steps_(steps), draft_(draft), busy_(busy),
          properties_(properties) {}

    Mountings Find() && {
        FindMounts();
        return std::move(found_);
    }

private:
    /// Mount points as they are behind the steps, and which file systems have to be unmounted for
    /// them: those that move, and what is mounted below a place where one goes or comes.
    void FindMounts() {
        const bool isAsItWas =
            std::none_of(pairs_.All().begin(), pairs_.All().end(), [this](const DatasetPair& pair) {
                return pair.NeedsTurns() || pair.live->isMounted != pair.saved->isMounted ||
                       IsElsewhere(*pair.live);
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
            if (pair.live != nullptr && ZoneAtFirst(*pair.live) == nullptr)
                mounting.from = MountedAt(input_.live, *pair.live);
            if (pair.saved->isMounted && IsMountable(pair, point))
                mounting.to = point;
            if (!mounting.to.empty() && IsLocked(pair)) {
                Refuse(mounting, "its key is not loaded", found_, draft_);
                continue;
            }
            if (mounting.from == "/" && mounting.to != "/") {
                draft_.CannotDo(pair.name, "mounted", "no", "yes", "the host runs from it");
                continue;
            }
            if (mounting.from != mounting.to && IsLegacy(pair)) {
                if (pair.saved->isMounted && !IsPath(point))
                    continue;
                draft_.CannotDo(pair.name, "mounted", pair.saved->isMounted ? "yes" : "no", "yes",
                                "it is mounted by something else than `zfs mount`");
                continue;
            }
            AddMounting(std::move(mounting));
        }
        for (const DatasetState& live : input_.live.state.datasets)
            if (live.type == DatasetState::Type::Filesystem &&
                points_.find(live.name) == points_.end())
                AddOther(live);
        LeaveToTheirRoot();
        OpenForFolders();
        TakeAlongWhatIsBelow();
        found_.moving.erase(
            std::remove_if(found_.moving.begin(), found_.moving.end(),
                           [](const Mounting& mounting) { return !mounting.Moves(); }),
            found_.moving.end());
    }

    /// What stands below a place where one goes or comes has to be unmounted for a while, and so
    /// has what is below a dataset that is unmounted: the tool takes it along, wherever it is
    /// mounted.
    void TakeAlongWhatIsBelow() {
        std::map<std::string, bool> places;
        std::set<std::string_view> names;
        const auto isBelowName = [&names](std::string_view name) {
            for (name = NameAbove(name); !name.empty(); name = NameAbove(name))
                if (names.find(name) != names.end())
                    return true;
            return false;
        };
        const auto move = [&](const Mounting& mounting) {
            for (const std::string& path : {mounting.from, mounting.to})
                if (!path.empty())
                    places.emplace(path, true);
            if (!mounting.from.empty())
                names.insert(mounting.name);
        };
        for (const Mounting& mounting : found_.moving)
            if (mounting.Moves())
                move(mounting);
        for (bool isNew = true; isNew;) {
            isNew = false;
            for (Mounting& mounting : found_.moving)
                if (!mounting.Moves() &&
                    (FindAbove(places, mounting.from) != nullptr || isBelowName(mounting.name))) {
                    mounting.isUnmounted = isNew = true;
                    move(mounting);
                }
        }
    }

    /// Another root than that of the host that runs is not mounted over that, nor is what goes with
    /// it, in whichever pool: it would be mounted over folders of the host that runs.
    void LeaveToTheirRoot() {
        if (std::none_of(found_.moving.begin(), found_.moving.end(), [](const Mounting& mounting) {
                return mounting.to == "/" && mounting.from != "/";
            }))
            return;
        const auto isLeft = [&](const Mounting& mounting) {
            if (mounting.from == mounting.to || mounting.to.empty() ||
                AltrootOf(input_.live.state, mounting.name).size() > 1)
                return false;
            draft_.CannotDo(mounting.name, "mounted", "yes", mounting.from.empty() ? "no" : "yes",
                            "the host runs from another root: plan again when it is booted from "
                            "this one, or the pool is imported below an altroot");
            return true;
        };
        found_.moving.erase(std::remove_if(found_.moving.begin(), found_.moving.end(), isLeft),
                            found_.moving.end());
    }

    /// A folder to mount on is made where there is none, and not in what is read-only. That is open
    /// for the while.
    void OpenForFolders() {
        std::map<std::string, Mounting*> places;
        for (Mounting& mounting : found_.moving)
            if (!mounting.to.empty())
                places.emplace(mounting.to, &mounting);
        std::map<const DatasetPair*, PlanDraft::StepId> opened;
        for (auto& [place, mounting] : places) {
            Mounting* const* const holder = FindAbove(places, place);
            if (holder == nullptr || !MayLackFolder(*mounting))
                continue;
            DatasetPair* const pair = (*holder)->pair;
            if (!HoldsReadOnly(**holder))
                continue;
            if (pair == nullptr || !steps_.CanRestore(*pair, "readonly")) {
                mounting->isLeft = true;
                Refuse(*mounting,
                       "its folder has to be made, and " + (*holder)->name +
                           ", above it, is read-only",
                       found_, draft_);
                continue;
            }
            if (opened.find(pair) == opened.end())
                opened[pair] = steps_.Set(*pair, "readonly", "off", {Phase::Mountpoints},
                                          "what is mounted in it gets a folder there");
            mounting->opened = opened[pair];
        }
        found_.moving.erase(
            std::remove_if(found_.moving.begin(), found_.moving.end(),
                           [](const Mounting& mounting) { return mounting.isLeft; }),
            found_.moving.end());
    }

    /// Whether the folder of a mount point may not be there: what was mounted on it has left it.
    [[nodiscard]] bool MayLackFolder(const Mounting& mounting) const {
        if (mounting.from == mounting.to)
            return false;
        const DatasetState* live = input_.live.state.FindDataset(mounting.name);
        const PropertyValue* point = live == nullptr ? nullptr : live->Find("mountpoint");
        return point == nullptr || point->Value() != mounting.to || mounting.pair == nullptr ||
               mounting.pair->saved->guid != live->guid;
    }

    /// Whether nothing can be made in a file system as it is mounted now or will be.
    [[nodiscard]] bool HoldsReadOnly(const Mounting& holder) const {
        const DatasetState* live = input_.live.state.FindDataset(holder.name);
        const DatasetPair* pair = holder.pair;
        if (pair != nullptr && (!IsReadOnly(*pair) || holder.from != holder.to))
            return pair->Now("readonly").value == "on";
        const PropertyValue* readonly = live == nullptr ? nullptr : live->Find("readonly");
        return readonly != nullptr && readonly->Value() == "on";
    }

    /// What was not saved is put back where it is, or where it is by what it inherits.
    void AddOther(const DatasetState& live) {
        Mounting mounting;
        mounting.name = live.name;
        mounting.from = mounting.to = MountedAt(input_.live, live);
        const PropertyValue* mountpoint = live.Find("mountpoint");
        std::string& point = points_[mounting.name];
        point = mountpoint == nullptr ? std::string() : std::string(mountpoint->Value());
        const auto above = points_.find(NameAbove(live.name));
        if (mountpoint != nullptr && !IsOwn(*mountpoint) && above != points_.end())
            point = Below(above->second, live.name);
        if (mountpoint != nullptr && mountpoint->Value() == "legacy")
            return; // whoever mounts it
        if (!mounting.from.empty())
            mounting.to = IsPath(point) ? point : std::string();
        AddMounting(std::move(mounting));
    }

    void AddMounting(Mounting mounting) {
        if (mounting.from.empty() && mounting.to.empty())
            return;
        const auto busy = mounting.from == mounting.to ? busy_.end() : busy_.find(mounting.name);
        if (busy != busy_.end()) {
            draft_.CannotDo(mounting.name, "mounted", mounting.to.empty() ? "no" : "yes", "yes",
                            TextOfBusy(busy->second));
            return;
        }
        mounting.isUnmounted =
            properties_.heldBack.find(mounting.name) != properties_.heldBack.end();
        if (const auto placed = properties_.placed.find(mounting.pair);
            placed != properties_.placed.end())
            mounting.placed = placed->second;
        found_.moving.push_back(std::move(mounting));
    }

    /// Whether its key is not loaded, and stays so.
    static bool IsLocked(const DatasetPair& pair) {
        const PropertyValue* status = pair.live == nullptr ? nullptr : pair.live->Find("keystatus");
        return status != nullptr && status->Value() == "unavailable" && !pair.key &&
               pair.lateKey == nullptr;
    }

    static bool IsLegacy(const DatasetPair& pair) {
        const PropertyValue* mountpoint =
            pair.live == nullptr ? nullptr : pair.live->Find("mountpoint");
        return mountpoint != nullptr && pair.live->isMounted && mountpoint->Value() == "legacy";
    }

    /// Whether it is mounted where its mount point is not.
    [[nodiscard]] bool IsElsewhere(const DatasetState& live) const {
        if (!live.isMounted || input_.live.mounts.empty())
            return false;
        const PropertyValue* mountpoint = live.Find("mountpoint");
        return mountpoint != nullptr && IsPath(mountpoint->Value()) &&
               MountedAt(input_.live, live) != mountpoint->Value();
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
        const auto above = points_.find(pair.parent->name);
        return above == points_.end() ? std::string() : Below(above->second, pair.name);
    }

    [[nodiscard]] bool IsMountable(const DatasetPair& pair, const std::string& point) {
        const bool isThere = pair.live != nullptr && pair.live->isMounted;
        if (WasInZone(pair)) {
            if (!isThere)
                draft_.Say(pair.name, "was mounted in its zone, which has to do that");
            else if (ZoneAtFirst(*pair.live) == nullptr)
                draft_.Say(pair.name, "is unmounted here: its zone has to mount it again");
            return false;
        }
        if (!IsPath(point) && !isThere)
            draft_.Say(pair.name, "was mounted by something else than `zfs mount`");
        else if (!IsPath(point) && !IsLegacy(pair))
            draft_.Say(pair.name, "is unmounted here, and was mounted by something else than `zfs "
                                  "mount`: that, fstab or vfstab, has to mount it again");
        return IsPath(point);
    }

    const PlanInput& input_;
    DatasetPairs& pairs_;
    PropertySteps& steps_;
    PlanDraft& draft_;
    const BusyMounts& busy_;
    const MountPropertySteps& properties_;
    std::map<std::string, std::string, std::less<>>
        points_; ///< mount points behind the steps, by name
    Mountings found_;
};

} // namespace

void Refuse(const Mounting& mounting, const std::string& reason, Mountings& mountings,
            PlanDraft& draft) {
    const auto* above = FindAbove(mountings.refused, mounting.to);
    draft.CannotDo(mounting.name, "mounted", "yes", "no",
                   reason.empty() && above != nullptr ? *above + ", above it, is not mounted"
                                                      : reason);
    mountings.refused.emplace(mounting.to, mounting.name);
}

Mountings FindMountings(const PlanInput& input, DatasetPairs& pairs, PropertySteps& steps,
                        PlanDraft& draft, const BusyMounts& busy,
                        const MountPropertySteps& properties) {
    return MountingFinder(input, pairs, steps, draft, busy, properties).Find();
}

} // namespace zfslib::restore::internal
