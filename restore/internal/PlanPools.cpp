#include "restore/internal/PlanPools.h"

#include "exc/exc.h"
#include "restore/internal/LayoutRuns.h"
#include "restore/internal/Names.h"
#include "restore/internal/PlanScope.h"
#include "restore/internal/PoolCreation.h"
#include "restore/internal/PoolLayout.h"
#include "restore/internal/PoolSettings.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace zfslib::restore::internal {
namespace {

using Use = Device::Use;

/// Plans one pool that is there.
class LivePool {
public:
    explicit LivePool(PoolSettings& settings)
        : settings_(settings), saved_(settings.Saved()), live_(*settings.Live()) {}

    void Plan() {
        if (!IsAvailable(live_)) {
            settings_.CannotDo("", std::nullopt, std::string(live_.health),
                               "nothing can be done with a pool in this state");
            settings_.LeaveOut();
            return;
        }
        if (settings_.LiveValue("readonly") == "on") {
            settings_.CannotDo(
                "readonly", std::nullopt, "on",
                "the pool is imported read-only: nothing can be set until it is exported and "
                "imported again");
            settings_.LeaveOut();
            return;
        }
        if (!saved_.guid.empty() && !live_.guid.empty() && saved_.guid != live_.guid)
            settings_.Say("is not the pool that was saved, but another one of its name (" +
                          std::string(live_.guid) + ", saved: " + std::string(saved_.guid) + ")");
        if (!settings_.Wanted().isRoot)
            return;
        // What has to come first: a set of features that lacks one refuses it.
        const bool isWiderFirst = settings_.LiveValue("compatibility").value_or("off") != "off";
        if (isWiderFirst)
            settings_.PlanProperty("compatibility");
        settings_.PlanFeatures();
        if (!isWiderFirst)
            settings_.PlanProperty("compatibility");
        settings_.PlanProperties(false);
        settings_.ForgetUserProperties();
        CompareLayout();
    }

private:
    static bool IsSame(const LayoutDisk& saved, const LayoutDisk& live) {
        const Device& a = *saved.device;
        const Device& b = *live.device;
        if (!a.guid.empty() && a.guid == b.guid)
            return true;
        if (!saved.namedBy.empty())
            return saved.word == live.word || saved.word == b.path ||
                   saved.word == WholeDisk(b.path) || saved.word == b.name;
        if (!a.deviceId.empty() && !b.deviceId.empty())
            return a.deviceId == b.deviceId;
        return a.path == b.path || a.name == b.name;
    }

    static bool IsSame(const LayoutGroup& saved, const LayoutGroup& live) {
        const auto word = [](const LayoutGroup& group) {
            return group.word == "raidz" ? std::string("raidz1") : group.word;
        };
        if (saved.use != live.use || word(saved) != word(live) ||
            saved.disks.size() != live.disks.size())
            return false;
        const auto isSameDisk = [](const LayoutDisk& a, const LayoutDisk& b) {
            return IsSame(a, b);
        };
        // The sides of a mirror are alike.
        if (saved.word == "mirror")
            return std::is_permutation(saved.disks.begin(), saved.disks.end(), live.disks.begin(),
                                       isSameDisk);
        return std::equal(saved.disks.begin(), saved.disks.end(), live.disks.begin(), isSameDisk);
    }

    void CompareLayout() {
        const PoolLayout live = LayoutOf(live_, {}, settings_.Input().Tools().system);
        const PoolLayout wanted =
            LayoutOf(saved_, settings_.Input().options, settings_.Input().Tools().system);
        std::vector<bool> isTaken(live.groups.size(), false);
        std::size_t place = 0; // normal devices come first in both, and have an order
        for (const LayoutGroup& saved : wanted.groups) {
            std::size_t found = live.groups.size();
            for (std::size_t i = 0; i < live.groups.size() && found == live.groups.size(); ++i)
                if (!isTaken[i] && IsSame(saved, live.groups[i]) &&
                    (saved.use != Use::Normal || i == place))
                    found = i;
            std::optional<std::string> there;
            if (saved.use == Use::Normal) {
                if (place < live.groups.size() && live.groups[place].use == Use::Normal) {
                    there = Described(live.groups[place]);
                    isTaken[place] = true;
                }
                ++place;
            }
            if (found == live.groups.size()) {
                settings_.CannotDo(saved.name, Described(saved), there,
                                   "the devices of a pool that is there are left as they are");
                continue;
            }
            isTaken[found] = true;
            CompareDevices(saved, live.groups[found]);
        }
        for (std::size_t i = 0; i < live.groups.size(); ++i)
            if (!isTaken[i])
                settings_.Say("has a device that was not saved: " + live.groups[i].name);
    }

    void CompareDevices(const LayoutGroup& saved, const LayoutGroup& live) {
        if (saved.ashift && live.ashift && saved.ashift != live.ashift)
            settings_.CannotDo("ashift of " + live.name, std::to_string(*saved.ashift),
                               std::to_string(*live.ashift),
                               "a device keeps the sector size it was made with");
        if (!IsNumbered(saved.use))
            return; // these have no properties
        if (!saved.word.empty())
            settings_.PlanDeviceProperties(*saved.device, live.device, live.name);
        for (const LayoutDisk& disk : saved.disks) {
            const auto same =
                std::find_if(live.disks.begin(), live.disks.end(),
                             [&](const LayoutDisk& other) { return IsSame(disk, other); });
            settings_.PlanDeviceProperties(*disk.device, same->device, same->device->name);
        }
    }

    PoolSettings& settings_;
    const PoolState& saved_;
    const PoolState& live_;
};

void CheckDisks(const PlanInput& input) {
    std::set<std::string> used;
    for (const PoolState& pool : input.saved.pools)
        for (const LayoutGroup& group : LayoutOf(pool, input.options, input.Tools().system).groups)
            for (const LayoutDisk& disk : group.disks)
                used.insert(disk.namedBy);
    for (const auto& disk : input.options.disks)
        if (used.count(disk.first) == 0)
            throw exc::CRuntimeExc("[%1] is no disk that a saved pool is made of.", disk.first);
}

} // namespace

void PlanPools(const PlanInput& input, PlanDraft& draft) {
    CheckDisks(input);
    const std::vector<WantedPool> pools = WantedPools(input.saved, input.options);
    GivenDisks given;
    for (const WantedPool& pool : pools) {
        PoolSettings settings(input, draft, pool);
        if (settings.Live() != nullptr)
            LivePool(settings).Plan();
        else
            PlanMissingPool(settings, given);
    }
    for (const std::string& root : WantedRoots(input.saved, input.options)) {
        const std::string name(PoolOf(root));
        const bool isSaved = std::any_of(pools.begin(), pools.end(),
                                         [&](const WantedPool& pool) { return pool.name == name; });
        if (isSaved || draft.IsLeftOut(name) || input.live.state.FindPool(name) != nullptr)
            continue;
        draft.CannotDo(name, "", std::nullopt, std::nullopt,
                       "the pool is not there, and no saved one gets this name");
        draft.LeaveOut(name);
    }
}

void PlanPoolsLast(const PlanInput& input, PlanDraft& draft) {
    for (const WantedPool& pool : WantedPools(input.saved, input.options)) {
        PoolSettings settings(input, draft, pool);
        if (!draft.IsLeftOut(pool.name) && (pool.isRoot || settings.Live() == nullptr))
            settings.PlanProperties(true);
    }
}

} // namespace zfslib::restore::internal
