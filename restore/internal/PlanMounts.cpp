#include "restore/internal/PlanMounts.h"

#include "restore/internal/BusyMounts.h"
#include "restore/internal/Places.h"
#include "util/ShellWord.h"
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

class MountPlanner {
public:
    MountPlanner(const PlanInput& input, DatasetPairs& pairs, PropertySteps& steps,
                 PlanDraft& draft)
        : input_(input), pairs_(pairs), steps_(steps), draft_(draft),
          records_(TakesOption(input.Tools().zfsUsage, "set", 'u')) {}

    void Plan() {
        LeaveZones();
        LeaveBusy();
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
        DatasetPair* pair = nullptr; ///< nothing when it was not saved
        std::string from;            ///< empty when it is not mounted
        std::string to;              ///< empty when it is not to be
        bool isUnmounted = false;    ///< has to be for a while, even if it stays in its place
        bool isLeft = false;         ///< is said to stay as it is
        std::optional<PlanDraft::StepId> opened; ///< what holds its folder can be written then
        std::optional<PlanDraft::StepId> unmounted;
        std::optional<PlanDraft::StepId> mounted;

        [[nodiscard]] bool Moves() const { return isUnmounted || from != to; }
    };

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

    [[nodiscard]] static bool WasInZone(const DatasetPair& pair) {
        return std::any_of(pair.saved->properties.begin(), pair.saved->properties.end(),
                           [](const PropertyValue& saved) {
                               return IsZoneProperty(saved.Name()) && saved.Value() == "on";
                           });
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
    void LeaveBusy() {
        busy_ = FindBusyMounts(input_.live);
        if (busy_.empty())
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
            const auto busy = busy_.find(pair.name);
            const DatasetPair* mover = movers.at(&pair);
            if (busy != busy_.end() && stays_.insert(mover).second)
                draft_.CannotDo(mover->name, "mountpoint", std::nullopt, std::nullopt,
                                TextOfBusy(busy->second));
        }
    }

    static std::string TextOfBusy(const std::string& other) {
        return "what is mounted below cannot be unmounted here: " + other;
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
        if (inUse_.insert(&pair).second)
            draft_.CannotDo(pair.name, "mountpoint", std::nullopt, std::nullopt, std::move(reason));
    }

    void RestoreProperties() {
        for (DatasetPair& pair : pairs_.All()) {
            if (!pair.NeedsTurns() || inUse_.find(&pair) != inUse_.end() ||
                stays_.find(&pair) != stays_.end())
                continue;
            std::vector<PlanDraft::StepId> held;
            const std::optional<PropertySource> source = WillBe(pair, "mountpoint");
            if (source && pair.live != nullptr && (!records_ || *source != PropertySource::Local))
                held = HoldBack(pair.name);
            const auto placed = steps_.Restore(pair, "mountpoint", {Phase::Mountpoints, true});
            if (!placed)
                continue;
            placed_[&pair] = *placed;
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

    static bool IsShared(const DatasetState& dataset) {
        return std::any_of(dataset.properties.begin(), dataset.properties.end(),
                           [](const PropertyValue& property) {
                               return IsShareProperty(property.Name()) &&
                                      property.Value() != "off" && property.Value() != "-";
                           });
    }

    /// What cannot just be recorded mounts by the way: it is the `last`, when all is mounted.
    void RestoreShares(DatasetPair& pair, bool isClosing, bool last) {
        if (inUse_.find(&pair) != inUse_.end())
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
        for (const auto& [live, canmount] : heldBackOthers_) {
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
            heldBack_.emplace(live->name);
            const PropertyValue* canmount = live->Find("canmount");
            if (canmount == nullptr || canmount->Value() != "on" ||
                live->type != DatasetState::Type::Filesystem)
                continue;
            if (pair != nullptr && steps_.CanRestore(*pair, "canmount"))
                HoldBack(*pair, held);
            else if (heldBackOthers_.emplace(live, canmount).second)
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
        std::vector<std::string> words = WordsToRelease(live.name, canmount);
        words.back() = util::ShellWord(words.back());
        std::string command;
        for (const std::string& word : words)
            command += " " + word;
        draft_.Say(live.name, "has canmount=noauto for a while: should the script stop in between, "
                              "give it back with:" +
                                  command);
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

    static bool IsReadOnly(const DatasetPair& pair) {
        const PropertyValue* readonly = pair.saved->Find("readonly");
        return readonly != nullptr && readonly->Value() == "on";
    }

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
                Refuse(mounting, "its key is not loaded");
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
        mounts_.erase(std::remove_if(mounts_.begin(), mounts_.end(),
                                     [](const Mounting& mounting) { return !mounting.Moves(); }),
                      mounts_.end());
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
        for (const Mounting& mounting : mounts_)
            if (mounting.Moves())
                move(mounting);
        for (bool isNew = true; isNew;) {
            isNew = false;
            for (Mounting& mounting : mounts_)
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
        if (std::none_of(mounts_.begin(), mounts_.end(), [](const Mounting& mounting) {
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
        mounts_.erase(std::remove_if(mounts_.begin(), mounts_.end(), isLeft), mounts_.end());
    }

    /// A folder to mount on is made where there is none, and not in what is read-only. That is open
    /// for the while.
    void OpenForFolders() {
        std::map<std::string, Mounting*> places;
        for (Mounting& mounting : mounts_)
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
                Refuse(*mounting, "its folder has to be made, and " + (*holder)->name +
                                      ", above it, is read-only");
                continue;
            }
            if (opened.find(pair) == opened.end())
                opened[pair] = steps_.Set(*pair, "readonly", "off", {Phase::Mountpoints},
                                          "what is mounted in it gets a folder there");
            mounting->opened = opened[pair];
        }
        mounts_.erase(std::remove_if(mounts_.begin(), mounts_.end(),
                                     [](const Mounting& mounting) { return mounting.isLeft; }),
                      mounts_.end());
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
        mounting.isUnmounted = heldBack_.find(mounting.name) != heldBack_.end();
        mounts_.push_back(std::move(mounting));
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

    /// What is mounted in a zone is that zone's.
    static const PropertyValue* ZoneAtFirst(const DatasetState& live) {
        for (const PropertyValue& property : live.properties)
            if (IsZoneProperty(property.Name()) && property.Value() == "on")
                return &property;
        return nullptr;
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
        for (Mounting& mounting : mounts_)
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
            if (const auto placed = placed_.find(mounting.pair); placed != placed_.end())
                draft_.Need(placed->second, mounting.unmounted);
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
        for (Mounting& mounting : mounts_) {
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
            Refuse(*mounting, LocksOut(*mounting));
        for (const auto& [keeper, root] : lateKeys_)
            draft_.CannotDo(root->name, "keystatus", "available", "unavailable",
                            "it is in a file of " + keeper + ", which is not mounted before");
    }

    void Mount(Mounting& mounting) {
        if (HasCanmountOff(mounting)) {
            Refuse(mounting, "`zfs mount` refuses what has canmount=off");
            return;
        }
        const auto other = FindAtOrBelow(occupied_, mounting.to);
        if (other != occupied_.end()) {
            Refuse(mounting,
                   other->second + " is mounted at " + other->first + ", and would be covered");
            return;
        }
        const auto* above = FindAbove(refused_, mounting.to);
        if (above != nullptr && mounting.from != mounting.to) {
            Refuse(mounting, *above + ", above it, is not mounted");
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

    void Refuse(const Mounting& mounting, const std::string& reason) {
        const auto* above = FindAbove(refused_, mounting.to);
        draft_.CannotDo(mounting.name, "mounted", "yes", "no",
                        reason.empty() && above != nullptr ? *above + ", above it, is not mounted"
                                                           : reason);
        refused_.emplace(mounting.to, mounting.name);
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
        for (const Mounting& mounting : mounts_)
            known.insert(mounting.name);
        std::map<std::string, std::string> occupied;
        for (const auto& [name, path] : input_.live.mounts)
            if (!path.empty() && known.find(name) == known.end())
                occupied.emplace(path, name);
        return occupied;
    }

    void RestoreLast() {
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
        for (const Mounting& mounting : mounts_) {
            if (!mounting.mounted)
                continue;
            if (mounting.pair == nullptr)
                FollowOther(mounting);
            else if (IsReadOnly(*mounting.pair))
                steps_.Follow(*mounting.pair, "readonly", {Phase::Mounts});
        }
    }

    /// As PropertySteps::Follow, of what was mounted again and was not saved.
    void FollowOther(const Mounting& mounting) {
        for (std::string_view name = mounting.name; !name.empty(); name = NameAbove(name)) {
            const DatasetPair* pair = pairs_.FindLive(name);
            const DatasetState* live = input_.live.state.FindDataset(name);
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
            draft_.Need(draft_.Add(std::move(step)), mounting.mounted);
            return;
        }
    }

    /// OpenZFS shares what it mounts, and refuses what is shared.
    void Share() {
        if (!input_.Tools().version.empty())
            return;
        for (const Mounting& mounting : mounts_) {
            if (!mounting.mounted || mounting.pair == nullptr)
                continue;
            if (!IsShared(*mounting.pair->saved))
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
    bool records_; ///< whether the tool sets a mount point and mounts nothing
    std::map<std::string, std::string, std::less<>>
        points_; ///< mount points behind the steps, by name
    std::vector<Mounting> mounts_;
    std::map<std::string, std::string> occupied_; ///< names, by places that the plan leaves alone
    std::multimap<std::string, PlanDraft::StepId> unmounted_;    ///< by places
    std::map<std::string, PlanDraft::StepId> mounted_;           ///< by places
    std::map<std::string, std::string> refused_;                 ///< names, by places
    std::multimap<std::string, const DatasetPair*> lateKeys_;    ///< roots, by who has the file
    std::map<const DatasetPair*, PlanDraft::StepId> keysLoaded_; ///< of these
    std::map<const DatasetPair*, PlanDraft::StepId> placed_;     ///< the steps of mount points
    std::set<const DatasetPair*> inUse_;                         ///< is mounted in a zone
    std::map<std::string, std::string, std::less<>> busy_;       ///< cannot be unmounted, and why
    std::set<const DatasetPair*> stays_;                         ///< would have to be unmounted
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
