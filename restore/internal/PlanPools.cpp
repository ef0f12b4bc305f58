#include "restore/internal/PlanPools.h"

#include "exc/exc.h"
#include "restore/internal/Names.h"
#include "restore/internal/PlanDatasets.h"
#include "restore/internal/PlanScope.h"
#include "restore/internal/PoolLayout.h"
#include "restore/internal/Reading.h"
#include "util/ShellWord.h"
#include "util/str.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zfslib::restore::internal {
namespace {

using Use = Device::Use;

bool IsFeature(std::string_view property) {
    return util::str_is_starts_with(property, "feature@");
}

bool IsOn(std::string_view feature) {
    return feature == "enabled" || feature == "active";
}

/// What is so while the pool is imported, and not kept in it.
bool IsOfTheMoment(std::string_view property) {
    return property == "altroot" || property == "readonly" || property == "tname";
}

/// What acts upon the devices by itself, or needs a dataset: set when all is there.
bool IsLast(std::string_view property) {
    return property == "autoreplace" || property == "autotrim" || property == "multihost" ||
           property == "bootfs";
}

/// Whether the tool prints "-" where nothing is set, and takes an empty value for that.
bool IsText(std::string_view property) {
    return property == "comment" || property == "cachefile" || property == "bootfs";
}

/// A value as `zpool set` takes it.
std::string ToSet(std::string_view property, std::string_view value) {
    if (IsText(property) && value == "-")
        return {};
    // It prints 0 where there is to be none, and refuses that.
    if (property == "dedup_table_quota" && value == "0")
        return "none";
    return std::string(value);
}

std::string Counted(std::size_t count, const std::string& what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

std::string Described(const LayoutGroup& group) {
    std::string text = group.word;
    for (const LayoutDisk& disk : group.disks)
        text += (text.empty() ? "" : " ") + disk.device->name;
    return text;
}

/// The word that begins the devices of a use in `zpool create`.
const char* WordOf(Use use) {
    switch (use) {
    case Use::Special:
        return "special";
    case Use::Dedup:
        return "dedup";
    case Use::Log:
        return "log";
    case Use::Cache:
        return "cache";
    case Use::Spare:
        return "spare";
    case Use::Normal:
    case Use::Meta:
    case Use::Other:
        break;
    }
    return "";
}

/// Whether the tool counts devices of this use when it numbers them: "mirror-0".
bool IsNumbered(Use use) {
    return use != Use::Cache && use != Use::Spare;
}

/// How much of a group may fail, in a word that is the same for those which the tool takes beside
/// each other; empty for what it does not look at.
std::string Redundancy(const LayoutGroup& group) {
    if (group.use == Use::Log || !IsNumbered(group.use))
        return {};
    const auto isFile = [](const LayoutDisk& disk) {
        return disk.word.find('/') != std::string::npos &&
               !util::str_is_starts_with(disk.word, "/dev/");
    };
    const auto files = std::count_if(group.disks.begin(), group.disks.end(), isFile);
    if (files != 0 && static_cast<std::size_t>(files) != group.disks.size())
        return "disks and files";
    if (group.word.empty())
        return files == 0 ? "disk" : "file";
    if (group.word == "mirror")
        return std::to_string(group.disks.size() - 1);
    // raidz2, draid3:4d:8c:1s
    constexpr std::size_t digit = 5;
    return group.word.size() > digit ? std::string(1, group.word[digit]) : "1";
}

std::string CommandLine(const std::vector<std::string>& words) {
    constexpr std::string_view plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                       "0123456789_-.:/@=,+";
    std::string line;
    for (const std::string& word : words) {
        const bool isPlain = !word.empty() && word.find_first_not_of(plain) == std::string::npos;
        line += (line.empty() ? "" : " ") + (isPlain ? word : util::ShellWord(word));
    }
    return line;
}

/// A part of a layout that one command makes.
struct LayoutRun {
    std::vector<const LayoutGroup*> groups;
    std::optional<unsigned> ashift;
    bool mixesRedundancy = false; ///< with itself, or with what is before it
    bool mixesAshift = false;     ///< is not that of what is before it
};

/// One command gives all devices that it makes one sector size, takes no disk alone behind a
/// mirror, and makes a pool of devices of one redundancy.
std::vector<LayoutRun> RunsOf(const std::vector<LayoutGroup>& groups) {
    std::vector<LayoutRun> runs;
    std::set<std::string> redundancies;
    std::set<unsigned> ashifts;
    const LayoutGroup* before = nullptr;
    for (const LayoutGroup& group : groups) {
        const std::string redundancy = Redundancy(group);
        bool isMixed = redundancy == "disks and files";
        if (!redundancy.empty()) {
            redundancies.insert(redundancy);
            isMixed = isMixed || redundancies.size() > 1;
        }
        const bool isOtherAshift = !runs.empty() && group.ashift && runs.back().ashift &&
                                   group.ashift != runs.back().ashift;
        const bool needsWord = before != nullptr && before->use == group.use &&
                               group.word.empty() && !before->word.empty();
        if (runs.empty() || isOtherAshift || needsWord || (isMixed && !runs.back().mixesRedundancy))
            runs.emplace_back();
        LayoutRun& run = runs.back();
        run.groups.push_back(&group);
        run.mixesRedundancy = run.mixesRedundancy || isMixed;
        if (group.ashift) {
            run.ashift = group.ashift;
            run.mixesAshift =
                !ashifts.empty() && (ashifts.size() > 1 || *ashifts.begin() != *group.ashift);
            ashifts.insert(*group.ashift);
        }
        before = &group;
    }
    return runs;
}

/// Adds the devices to a command.
void AddDevices(const LayoutRun& run, Step& step) {
    Use use = Use::Normal;
    for (const LayoutGroup* group : run.groups) {
        if (group->use != use)
            step.words.emplace_back(WordOf(group->use));
        use = group->use;
        if (!group->word.empty())
            step.words.push_back(group->word);
        for (const LayoutDisk& disk : group->disks) {
            step.diskWords.push_back(step.words.size());
            step.words.push_back(disk.word);
        }
    }
}

/// The disks of all pools that are made: each is given once.
using GivenDisks = std::map<std::string, std::string>;

/// Plans one pool.
class PoolPlanner {
public:
    PoolPlanner(const PlanInput& input, PlanDraft& draft, const WantedPool& wanted)
        : input_(input), draft_(draft), wanted_(wanted), saved_(*wanted.saved),
          live_(input.live.state.FindPool(wanted.name)),
          layout_(LayoutOf(saved_, input.options, input.Tools().system)) {}

    void Plan(GivenDisks& given) {
        if (live_ != nullptr)
            PlanLive();
        else if (!PlanImport())
            PlanCreation(given);
    }

    /// What comes when the datasets are there.
    void PlanLast() {
        if (!draft_.IsLeftOut(wanted_.name) && (wanted_.isRoot || live_ == nullptr))
            PlanProperties(true);
    }

private:
    [[nodiscard]] const std::string& Name() const { return wanted_.name; }

    void CannotDo(std::string_view property, std::optional<std::string> saved,
                  std::optional<std::string> live, std::string reason) {
        draft_.CannotDo(Name(), property, std::move(saved), std::move(live), std::move(reason));
    }

    /// Nothing is planned for its datasets.
    void LeaveOut() {
        draft_.LeaveOut(Name());
        if (wanted_.size != 0)
            draft_.Say(Name(), Counted(wanted_.size, "dataset") +
                                   (wanted_.size == 1 ? " waits" : " wait") +
                                   " for it: make the plan again when it is there");
    }

    /// A value of the live pool; nothing when it has none, or is not there.
    [[nodiscard]] std::optional<std::string> LiveValue(std::string_view property) const {
        const PropertyValue* value = live_ == nullptr ? nullptr : live_->Find(property);
        if (value == nullptr)
            return std::nullopt;
        return std::string(value->Value());
    }

    Step SetStep(std::string_view property, const std::string& value) const {
        Step step;
        step.phase = IsLast(property) ? Phase::Mounts : Phase::PoolProperties;
        step.object = Name();
        step.property = property;
        step.words = {"zpool", "set", std::string(property) + "=" + value, Name()};
        step.was = LiveValue(property);
        step.willBe = value;
        return step;
    }

    /// Whether the pool tells its properties: one that is not available prints "-" for nearly all.
    static bool IsAvailable(const PoolState& pool) {
        return pool.health == "ONLINE" || pool.health == "DEGRADED";
    }

    // Of a pool that is there.

    void PlanLive() {
        if (!IsAvailable(*live_)) {
            CannotDo("", std::nullopt, std::string(live_->health),
                     "nothing can be done with a pool in this state");
            LeaveOut();
            return;
        }
        if (LiveValue("readonly") == "on") {
            CannotDo("readonly", std::nullopt, "on",
                     "the pool is imported read-only: nothing can be set until it is exported and "
                     "imported again");
            LeaveOut();
            return;
        }
        if (!saved_.guid.empty() && !live_->guid.empty() && saved_.guid != live_->guid)
            draft_.Say(Name(), "is not the pool that was saved, but another one of its name (" +
                                   std::string(live_->guid) +
                                   ", saved: " + std::string(saved_.guid) + ")");
        if (!wanted_.isRoot)
            return;
        // What has to come first: a set of features that lacks one refuses it.
        const bool isWiderFirst = LiveValue("compatibility").value_or("off") != "off";
        if (isWiderFirst)
            PlanProperty("compatibility");
        PlanFeatures();
        if (!isWiderFirst)
            PlanProperty("compatibility");
        PlanProperties(false);
        ForgetUserProperties();
        CompareLayout();
    }

    void PlanFeatures() {
        std::string more;
        for (const PropertyValue& saved : saved_.properties) {
            const std::string& name = saved.Name();
            const std::optional<std::string> live = LiveValue(name);
            if (util::str_is_starts_with(name, "unsupported@") && !live)
                CannotDo(name, std::string(saved.Value()), std::nullopt,
                         "the tools it was saved with did not know this feature either");
            if (!IsFeature(name))
                continue;
            if (!IsOn(saved.Value())) {
                if (live && IsOn(*live))
                    more.append(more.empty() ? "" : ", ").append(name.substr(name.find('@') + 1));
            } else if (!saved.IsExact()) {
                CannotDo(name, std::nullopt, live,
                         "its saved value is not exact: " + saved.Doubt());
            } else if (!live) {
                CannotDo(name, std::string(saved.Value()), std::nullopt,
                         "the live tools do not know this feature");
            } else if (!IsOn(*live)) {
                draft_.Add(SetStep(name, "enabled"));
            }
        }
        if (!more.empty())
            draft_.Say(Name(), "has features that were not enabled, and stay: " + more);
    }

    void PlanProperty(std::string_view name) {
        if (const PropertyValue* saved = saved_.Find(name))
            PlanProperty(*saved);
    }

    void PlanProperties(bool last) {
        for (const PropertyValue& saved : saved_.properties) {
            const std::string& name = saved.Name();
            // These have their own place.
            if (IsFeature(name) || name == "compatibility" || name == "version" ||
                util::str_is_starts_with(name, "unsupported@") || IsLast(name) != last)
                continue;
            PlanProperty(saved);
        }
        if (!last)
            PlanVersion();
    }

    /// Whether the tools of that host let it be set. The tables of a host tell of its own names.
    static bool IsSettable(const ToolsState& tools, const PropertyValue& property) {
        const PropertyRule* rule = FindRule(tools.poolProperties, property.Name());
        return property.IsUser() || (rule != nullptr && rule->isEditable);
    }

    void PlanProperty(const PropertyValue& saved) {
        const std::string& name = saved.Name();
        if (!IsSettable(input_.saved.tools, saved))
            return;
        const bool isSet = saved.Source() == PropertySource::Local;
        const std::optional<std::string> live = LiveValue(name);
        const std::string value = NewValue(saved);
        if (saved.IsUser() && !isSet)
            return; // the rest of one that was removed
        if (IsOfTheMoment(name)) {
            if (live_ != nullptr && live != std::string(saved.Value()))
                draft_.Say(Name(), name + " was " + std::string(saved.Value()) +
                                       ", which holds until a pool is exported");
            return;
        }
        if (live_ == nullptr && !isSet)
            return;
        if (live && ToSet(name, *live) == ToSet(name, value))
            return;
        if (!saved.IsExact()) {
            CannotDo(name, std::nullopt, live, "its saved value is not exact: " + saved.Doubt());
        } else if (const PropertyValue* now = live_ == nullptr ? nullptr : live_->Find(name);
                   now != nullptr && !now->IsExact()) {
            CannotDo(name, value, std::nullopt, "its live value is not exact: " + now->Doubt());
        } else if (saved.Value() == "-" && !IsAvailable(saved_)) {
            CannotDo(name, std::nullopt, live,
                     "the pool was " + std::string(saved_.health) +
                         " when it was saved, and did not tell it");
        } else if (!IsSettable(input_.Tools(), saved)) {
            if (isSet)
                CannotDo(name, value, live, "the live tools do not know this property");
        } else if (!isSet && now != nullptr && now->Source() != PropertySource::Local) {
            CannotDo(name, value, live, "nobody set it, and the live tools have another default");
        } else if (name == "cachefile" && live_ != nullptr && !live_->altroot.empty()) {
            draft_.Say(Name(), "cachefile was " + value + ": a pool below an altroot has none");
        } else if (name == "bootfs" && value != "-") {
            PlanBootfs(SetStep(name, value));
        } else {
            Step step = SetStep(name, ToSet(name, value));
            if (name == "compatibility" && value != "off" && value != "legacy")
                step.why = "this host has to have files of these names";
            draft_.Add(std::move(step));
        }
    }

    /// Its value under the names that datasets are to get.
    [[nodiscard]] std::string NewValue(const PropertyValue& saved) const {
        if (saved.Name() == "bootfs" && saved.Value() != "-")
            return input_.options.NewName(saved.Value());
        return std::string(saved.Value());
    }

    void PlanBootfs(Step step) {
        const std::string& dataset = *step.willBe;
        if (const auto maker = draft_.MakerOf(dataset))
            step.needs.push_back(*maker);
        else if (input_.live.state.FindDataset(dataset) == nullptr) {
            CannotDo("bootfs", dataset, step.was, "this dataset is not there, nor made");
            return;
        }
        draft_.Add(std::move(step));
    }

    void PlanVersion() {
        const PropertyValue* saved = saved_.Find("version");
        const std::optional<std::string> live = LiveValue("version");
        if (saved == nullptr || !live || saved->Value() == *live || !saved->IsExact() ||
            !IsSettable(input_.Tools(), *saved))
            return;
        const std::string value(saved->Value());
        const auto number = NumberOf(value);
        const auto liveNumber = NumberOf(*live);
        // Without a number it has features, and gets there with the first of them.
        if (!number)
            return;
        if (!liveNumber || *liveNumber > *number)
            CannotDo("version", value, live, "the version of a pool never goes down");
        else
            draft_.Add(SetStep("version", value));
    }

    /// User properties that were not there.
    void ForgetUserProperties() {
        for (const PropertyValue& live : live_->properties) {
            if (!live.IsUser() || live.Source() != PropertySource::Local ||
                util::str_is_starts_with(live.Name(), "unsupported@"))
                continue;
            const PropertyValue* saved = saved_.Find(live.Name());
            if (saved != nullptr && saved->Source() == PropertySource::Local)
                continue;
            Step step = SetStep(live.Name(), "");
            step.action = Action::Inherit;
            step.willBe.reset();
            draft_.Add(std::move(step));
        }
    }

    // The layout of a pool that is there.

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
        const PoolLayout live = LayoutOf(*live_, {}, input_.Tools().system);
        std::vector<bool> isTaken(live.groups.size(), false);
        std::size_t place = 0; // normal devices come first in both, and have an order
        for (const LayoutGroup& saved : layout_.groups) {
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
                CannotDo(saved.name, Described(saved), there,
                         "the devices of a pool that is there are left as they are");
                continue;
            }
            isTaken[found] = true;
            CompareDevices(saved, live.groups[found]);
        }
        for (std::size_t i = 0; i < live.groups.size(); ++i)
            if (!isTaken[i])
                draft_.Say(Name(), "has a device that was not saved: " + live.groups[i].name);
    }

    void CompareDevices(const LayoutGroup& saved, const LayoutGroup& live) {
        if (saved.ashift && live.ashift && saved.ashift != live.ashift)
            CannotDo("ashift of " + live.name, std::to_string(*saved.ashift),
                     std::to_string(*live.ashift),
                     "a device keeps the sector size it was made with");
        if (!IsNumbered(saved.use))
            return; // these have no properties
        if (!saved.word.empty())
            PlanDeviceProperties(*saved.device, live.device, live.name);
        for (const LayoutDisk& disk : saved.disks) {
            const auto same =
                std::find_if(live.disks.begin(), live.disks.end(),
                             [&](const LayoutDisk& other) { return IsSame(disk, other); });
            PlanDeviceProperties(*disk.device, same->device, same->device->name);
        }
    }

    /// `live` is nothing of a device that is made.
    void PlanDeviceProperties(const Device& saved, const Device* live, const std::string& name) {
        const auto setStep = [&](const std::string& property, const std::string& value) {
            Step step = SetStep(property, value);
            step.phase = Phase::PoolProperties;
            step.device = name;
            step.words.push_back(name);
            const PropertyValue* now =
                live == nullptr ? nullptr : FindProperty(live->properties, property);
            step.was.reset();
            if (now != nullptr)
                step.was = std::string(now->Value());
            return step;
        };
        std::set<std::string_view> done; // the tool repeats those of users
        for (const PropertyValue& property : saved.properties) {
            const std::string value(property.Value());
            const PropertyValue* now =
                live == nullptr ? nullptr : FindProperty(live->properties, property.Name());
            if (!done.insert(property.Name()).second || (now == nullptr && value.empty()) ||
                (now != nullptr && now->Value() == value))
                continue;
            if (!property.IsExact() || (now != nullptr && !now->IsExact()))
                CannotDo(property.Name() + " of " + name, std::nullopt, std::nullopt,
                         "its value is not exact");
            else
                draft_.Add(setStep(property.Name(), value));
        }
        if (live == nullptr)
            return;
        for (const PropertyValue& now : live->properties) {
            if (now.Value().empty() || !done.insert(now.Name()).second)
                continue;
            // What leads back to the default.
            static const std::map<std::string_view, const char*> defaults = {
                {"comment", ""},        {"allocating", "on"},   {"failfast", "on"},
                {"checksum_n", "none"}, {"checksum_t", "none"}, {"io_n", "none"},
                {"io_t", "none"},       {"slow_io_n", "none"},  {"slow_io_t", "none"}};
            const auto found = defaults.find(now.Name());
            if (!now.IsUser() && found == defaults.end()) {
                CannotDo(now.Name() + " of " + name, std::nullopt, std::string(now.Value()),
                         "nobody had set it, and no command is known that leads back");
                continue;
            }
            Step step = setStep(now.Name(), now.IsUser() ? "" : found->second);
            step.action = Action::Inherit;
            step.willBe.reset();
            draft_.Add(std::move(step));
        }
    }

    // A pool that is missing.

    bool PlanImport() {
        const ImportablePool* best = nullptr;
        for (const ImportablePool& pool : input_.live.importablePools) {
            if (!saved_.guid.empty() && pool.guid == saved_.guid) {
                if (best == nullptr || !IsWell(*best))
                    best = &pool;
            } else if (pool.name == Name() || pool.name == saved_.name) {
                draft_.Say(Name(), "a pool that could be imported says that it is " + pool.name +
                                       ", but is not the one that was saved (" + pool.guid +
                                       ", saved: " + std::string(saved_.guid) + ")");
            }
        }
        if (best == nullptr)
            return false;
        if (IsWell(*best)) {
            Step step;
            step.phase = Phase::Pools;
            step.action = Action::Import;
            step.object = Name();
            step.words = {"zpool", "import"};
            for (const std::string& folder : best->folders)
                step.words.insert(step.words.end(), {"-d", folder});
            step.words.insert(step.words.end(), {"-N", best->guid});
            if (best->name != Name())
                step.words.push_back(Name());
            step.why = "the saved pool could be imported; the tool says: " + best->action;
            draft_.Add(std::move(step));
        } else {
            CannotDo(
                "", std::nullopt, best->state,
                "the saved pool is there but cannot be imported as it is, and is not made anew "
                "in its place; the tool says: " +
                    best->action);
        }
        LeaveOut();
        return true;
    }

    static bool IsWell(const ImportablePool& pool) {
        return pool.state == "ONLINE" || pool.state == "DEGRADED";
    }

    /// Why a disk cannot be given to the pool; empty when it can.
    [[nodiscard]] std::string WhyNot(const LayoutDisk& disk, Use use,
                                     const GivenDisks& given) const {
        if (disk.word.empty())
            return "was missing when the pool was saved";
        const auto state =
            std::find_if(input_.live.disks.begin(), input_.live.disks.end(),
                         [&](const DiskState& known) { return known.path == disk.word; });
        if (state == input_.live.disks.end() || !state->isThere)
            return "is not there";
        if (!state->usedBy.empty() && !(use == Use::Spare && state->isOnlySpare))
            return "is used by the pool " + state->usedBy;
        const auto other = given.find(disk.word);
        if (other != given.end() && !(use == Use::Spare && other->second == "spare"))
            return "is to be used twice";
        return {};
    }

    /// Takes the disks; false, and says why, when one cannot be had. A pool can do without a cache
    /// or a spare.
    bool TakeDisks(GivenDisks& given) {
        std::string lacking;
        std::vector<LayoutGroup> groups;
        GivenDisks mine = given;
        for (const LayoutGroup& group : layout_.groups) {
            std::string here;
            for (const LayoutDisk& disk : group.disks) {
                const std::string whyNot = WhyNot(disk, group.use, mine);
                if (whyNot.empty())
                    mine[disk.word] = group.use == Use::Spare ? "spare" : "device";
                else
                    here += (here.empty() ? "" : "; ") + disk.whatToName +
                            (disk.word.empty() ? "" : " (" + disk.word + ")") + " " + whyNot +
                            ", --disk '" + disk.whatToName + "=NEW' names another";
            }
            if (here.empty() || IsNumbered(group.use))
                groups.push_back(group);
            else
                CannotDo(group.name, Described(group), std::nullopt,
                         "the pool is made without it: " + here);
            if (!here.empty() && IsNumbered(group.use))
                lacking += (lacking.empty() ? "" : "; ") + here;
        }
        if (!lacking.empty()) {
            CannotDo("", std::nullopt, std::nullopt, "its disks cannot all be had: " + lacking);
            return false;
        }
        layout_.groups = std::move(groups);
        given = std::move(mine);
        return true;
    }

    /// Why nobody can make it, whatever disks there are.
    [[nodiscard]] std::string WhyNotMade() const {
        if (!layout_.doubt.empty())
            return layout_.doubt;
        if (layout_.groups.empty() || layout_.groups.front().use != Use::Normal)
            return "no devices of it were saved";
        if (!IsAvailable(saved_))
            return "it was " + std::string(saved_.health) +
                   " when it was saved, and did not tell "
                   "its properties";
        // The kernel panics when it has to make one without (2.3).
        const PropertyValue* draid = saved_.Find("feature@draid");
        for (const LayoutGroup& group : layout_.groups)
            if (util::str_is_starts_with(group.word, "draid") &&
                (draid == nullptr || !IsOn(draid->Value()) || !KnowsFeature("draid")))
                return "it has a draid, and the feature for it is not enabled or not known";
        return {};
    }

    [[nodiscard]] bool KnowsFeature(std::string_view feature) const {
        const std::vector<std::string>& known = input_.live.features;
        return TakesOption(input_.Tools().zpoolUsage, "create", 'd') &&
               (known.empty() || std::find(known.begin(), known.end(), feature) != known.end());
    }

    void PlanCreation(GivenDisks& given) {
        if (const std::string whyNot = WhyNotMade(); !whyNot.empty()) {
            CannotDo("", std::nullopt, std::nullopt, whyNot);
            LeaveOut();
            return;
        }
        if (!TakeDisks(given)) {
            LeaveOut();
            return;
        }
        const std::vector<LayoutRun> runs = RunsOf(layout_.groups);
        const bool canMix = input_.Tools().AtLeast(2, 3);
        Step create = CreationStep(runs.front());
        if (runs.front().mixesRedundancy ||
            (!canMix && std::any_of(runs.begin(), runs.end(),
                                    [](const LayoutRun& run) { return run.mixesRedundancy; }))) {
            for (std::size_t i = 1; i < runs.size(); ++i)
                AddDevices(runs[i], create);
            create.words.insert(create.words.begin() + 2, "-f");
            CannotDo("", std::nullopt, std::nullopt,
                     "its devices differ in redundancy, which the tool refuses unless it is "
                     "forced; who wants that runs: " +
                         CommandLine(create.words));
            LeaveOut();
            return;
        }
        for (const std::string& doubt : saved_.doubts)
            draft_.Say(Name(), "when it was saved, " + doubt);
        if (!saved_.altroot.empty())
            draft_.Say(Name(), "was imported below " + std::string(saved_.altroot) +
                                   ", which is not repeated");
        draft_.AddMaker(std::move(create));
        for (std::size_t i = 1; i < runs.size(); ++i)
            PlanAddition(runs[i], canMix);
        PlanAfterCreation(runs.front());
    }

    void AddProperty(Step& step, const std::string& property, const std::string& value) {
        step.words.insert(step.words.end(), {"-o", property + "=" + value});
    }

    Step CreationStep(const LayoutRun& run) {
        Step step;
        step.phase = Phase::Pools;
        step.action = Action::Create;
        step.object = Name();
        step.words = {"zpool", "create"};
        const PropertyValue* version = saved_.Find("version");
        const bool hasFeatures = version == nullptr || version->Value() == "-";
        if (hasFeatures && TakesOption(input_.Tools().zpoolUsage, "create", 'd'))
            step.words.emplace_back("-d");
        for (const PropertyValue& saved : saved_.properties) {
            const std::string& name = saved.Name();
            if (IsFeature(name) && IsOn(saved.Value())) {
                if (const std::string feature = name.substr(name.find('@') + 1);
                    KnowsFeature(feature))
                    AddProperty(step, name, "enabled");
                else
                    CannotDo(name, std::string(saved.Value()), std::nullopt,
                             "the live tools do not know this feature");
            } else if (util::str_is_starts_with(name, "unsupported@")) {
                CannotDo(name, std::string(saved.Value()), std::nullopt,
                         "the tools it was saved with did not know this feature either");
            } else if (IsGivenAtCreation(saved)) {
                AddProperty(step, name, ToSet(name, saved.Value()));
            }
        }
        if (const std::string ashift = AshiftOf(run); !ashift.empty())
            AddProperty(step, "ashift", ashift);
        if (const DatasetState* root = input_.saved.FindDataset(saved_.name);
            root != nullptr && input_.options.IsWanted(saved_.name)) {
            CreationOptions options = CreationOptionsOf(input_, *root, "off");
            for (std::string& property : options.properties)
                step.words.insert(step.words.end(), {"-O", std::move(property)});
            step.asksFor = std::move(options.asksFor);
            step.why = std::move(options.why);
        } else {
            draft_.Say(
                Name(),
                "its own dataset was not saved, or not asked for, and has what the tool gives it");
        }
        step.words.insert(step.words.end(), {"-m", "none", Name()});
        AddDevices(run, step);
        return step;
    }

    /// The sector size of the devices that a command makes; empty when nobody can tell.
    [[nodiscard]] std::string AshiftOf(const LayoutRun& run) const {
        const PropertyValue* saved = saved_.Find("ashift");
        if (FindRule(input_.Tools().poolProperties, "ashift") == nullptr)
            return {};
        if (run.ashift)
            return std::to_string(*run.ashift);
        return saved == nullptr || saved->Value() == "0" ? std::string()
                                                         : std::string(saved->Value());
    }

    /// Whether `zpool create` is given a property, and not `zpool set` later.
    [[nodiscard]] bool IsGivenAtCreation(const PropertyValue& saved) const {
        const std::string& name = saved.Name();
        // The version cannot be lowered later.
        const bool isVersion = name == "version" && saved.Value() != "-";
        return (saved.Source() == PropertySource::Local || isVersion) && saved.IsExact() &&
               !saved.IsUser() && !IsFeature(name) && !IsLast(name) && !IsOfTheMoment(name) &&
               name != "ashift" && name != "compatibility" &&
               !(name == "version" && saved.Value() == "-") &&
               !(IsText(name) && (saved.Value() == "-" || saved.Value().empty())) &&
               IsSettable(input_.Tools(), saved);
    }

    void PlanAddition(const LayoutRun& run, bool canMix) {
        Step step;
        step.phase = Phase::Pools;
        step.action = Action::Add;
        step.object = Name();
        step.words = {"zpool", "add"};
        // They permit what was so, and nothing else that -f would.
        if (run.mixesAshift && canMix)
            step.words.emplace_back("--allow-ashift-mismatch");
        if (run.mixesRedundancy)
            step.words.emplace_back("--allow-replication-mismatch");
        if (const std::string ashift = AshiftOf(run); !ashift.empty())
            AddProperty(step, "ashift", ashift);
        step.words.push_back(Name());
        AddDevices(run, step);
        step.why = run.mixesAshift ? "these devices have another sector size"
                                   : "one command does not make all kinds of devices";
        // Whatever needs the pool needs all of it.
        draft_.AddMaker(std::move(step));
    }

    void PlanAfterCreation(const LayoutRun& first) {
        PlanProperty("compatibility");
        for (const PropertyValue& saved : saved_.properties)
            if (saved.IsUser() || (saved.Source() == PropertySource::Local &&
                                   !IsSettable(input_.Tools(), saved) && !IsLast(saved.Name())))
                PlanNew(saved);
        // What `zpool create` was given for its devices, it keeps for those to come.
        const PropertyValue* ashift = saved_.Find("ashift");
        if (const std::string given = AshiftOf(first);
            ashift != nullptr && !given.empty() && ashift->Value() != given)
            draft_.Add(SetStep("ashift", std::string(ashift->Value())));
        std::size_t number = 0;
        for (const LayoutGroup& group : layout_.groups) {
            if (!IsNumbered(group.use))
                continue;
            const std::string word = group.word == "raidz" ? "raidz1" : group.word;
            if (!word.empty())
                PlanDeviceProperties(*group.device, nullptr, word + "-" + std::to_string(number));
            ++number;
            for (const LayoutDisk& disk : group.disks)
                PlanDeviceProperties(*disk.device, nullptr, disk.word);
        }
    }

    void PlanNew(const PropertyValue& saved) {
        if (!IsFeature(saved.Name()) && !util::str_is_starts_with(saved.Name(), "unsupported@"))
            PlanProperty(saved);
    }

    const PlanInput& input_;
    PlanDraft& draft_;
    const WantedPool& wanted_;
    const PoolState& saved_;
    const PoolState* live_;
    PoolLayout layout_;
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
    for (const WantedPool& pool : pools)
        PoolPlanner(input, draft, pool).Plan(given);
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
    for (const WantedPool& pool : WantedPools(input.saved, input.options))
        PoolPlanner(input, draft, pool).PlanLast();
}

} // namespace zfslib::restore::internal
