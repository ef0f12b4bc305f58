#include "restore/internal/PoolCreation.h"

#include "restore/internal/LayoutRuns.h"
#include "restore/internal/PlanDatasets.h"
#include "restore/internal/PoolLayout.h"
#include "util/ShellWord.h"
#include "util/str.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace zfslib::restore::internal {
namespace {

using Use = Device::Use;

bool IsWell(const ImportablePool& pool) {
    return pool.state == "ONLINE" || pool.state == "DEGRADED";
}

/// Whether a pool that could be imported has the disk. The tool calls it by some link without its
/// folder, or a file by its path.
bool IsPartOf(const LayoutDisk& disk, const std::string& target, const ImportablePool& pool) {
    const auto last = [](const std::string& path) { return path.substr(path.rfind('/') + 1); };
    return std::any_of(pool.devices.begin(), pool.devices.end(), [&](const std::string& name) {
        return name == disk.word || name == last(disk.word) || name == last(target) ||
               name == last(WholeDisk(target)) ||
               (disk.namedBy.empty() && name == disk.device->name);
    });
}

/// Plans one pool that is missing.
class PoolCreation {
public:
    explicit PoolCreation(PoolSettings& settings)
        : settings_(settings), saved_(settings.Saved()),
          layout_(LayoutOf(saved_, settings.Input().options, settings.Input().Tools().system)) {}

    /// Whether it is imported under another name. Then there is nothing to plan.
    bool IsThereRenamed() {
        const PlanInput& input = settings_.Input();
        const auto live = input.live.poolsByGuid.find(std::string(saved_.guid));
        if (live == input.live.poolsByGuid.end())
            return false;
        const std::string& name = live->second;
        std::vector<std::string> words = {"zpool", "import"};
        for (const std::string& folder : FoldersOf(LayoutOf(saved_, {}, input.Tools().system)))
            words.insert(words.end(), {"-d", folder});
        words.insert(words.end(), {"-N", live->first, settings_.Name()});
        settings_.CannotDo(
            "", std::nullopt, std::nullopt,
            "it is there under the name " + name + ": `" +
                util::ShellLine({"zpool", "export", name}) + "` and `" + util::ShellLine(words) +
                "` give it this one; or plan with " +
                util::ShellLine({"--rename", std::string(saved_.name) + "=" + name}));
        settings_.LeaveOut();
        return true;
    }

    /// False when there is nothing to import, nor what could be once it is brought back.
    bool PlanImport() {
        const ImportablePool* best = nullptr;
        const ImportablePool* destroyed = nullptr;
        for (const ImportablePool& pool : settings_.Input().live.importablePools) {
            const bool isSaved = !saved_.guid.empty() && pool.guid == saved_.guid;
            const bool hasName = pool.name == settings_.Name() || pool.name == saved_.name;
            if (pool.isDestroyed) {
                // One of its name alone is another: it is its disks that are not used.
                if ((isSaved || (saved_.guid.empty() && hasName)) &&
                    (destroyed == nullptr || !IsWell(*destroyed)))
                    destroyed = &pool;
            } else if (isSaved) {
                if (best == nullptr || !IsWell(*best))
                    best = &pool;
            } else if (hasName) {
                settings_.Say("a pool that could be imported says that it is " + pool.name +
                              ", but is not the one that was saved (" + pool.guid +
                              ", saved: " + std::string(saved_.guid) + ")");
            }
        }
        if (best == nullptr && destroyed == nullptr)
            return false;
        if (best != nullptr && IsWell(*best)) {
            Step step;
            step.phase = Phase::Pools;
            step.action = Action::Import;
            step.object = settings_.Name();
            step.words = {"zpool", "import"};
            for (const std::string& folder : best->folders)
                step.words.insert(step.words.end(), {"-d", folder});
            step.words.insert(step.words.end(), {"-N", best->guid});
            if (best->name != settings_.Name())
                step.words.push_back(settings_.Name());
            step.why = "the saved pool could be imported; the tool says: " + best->action;
            settings_.Draft().Add(std::move(step));
        } else if (destroyed != nullptr) {
            CannotReplace(*destroyed);
        } else {
            settings_.CannotDo(
                "", std::nullopt, best->state,
                "the saved pool is there but cannot be imported as it is, and is not made anew "
                "in its place; the tool says: " +
                    best->action);
        }
        settings_.LeaveOut();
        return true;
    }

    void PlanCreation(GivenDisks& given) {
        if (const std::string whyNot = WhyNotMade(); !whyNot.empty()) {
            settings_.CannotDo("", std::nullopt, std::nullopt, whyNot);
            settings_.LeaveOut();
            return;
        }
        if (!TakeDisks(given)) {
            settings_.LeaveOut();
            return;
        }
        const std::vector<LayoutRun> runs = RunsOf(layout_.groups);
        const bool canMix = settings_.Input().Tools().AtLeast(2, 3);
        Step create = CreationStep(runs.front());
        if (runs.front().mixesRedundancy ||
            (!canMix && std::any_of(runs.begin(), runs.end(),
                                    [](const LayoutRun& run) { return run.mixesRedundancy; }))) {
            for (std::size_t i = 1; i < runs.size(); ++i)
                AddDevices(runs[i], create);
            create.words.insert(create.words.begin() + 2, "-f");
            settings_.CannotDo(
                "", std::nullopt, std::nullopt,
                "its devices differ in redundancy, which the tool refuses unless it is "
                "forced; who wants that runs: " +
                    util::ShellLine(create.words));
            settings_.LeaveOut();
            return;
        }
        for (const std::string& doubt : saved_.doubts)
            settings_.Say("when it was saved, " + doubt);
        if (const std::string& doubt = settings_.Input().live.destroyedDoubt; !doubt.empty())
            settings_.Say(
                "whether it was destroyed and could be brought back is not known: look at "
                "`zpool import -D` before it is made anew (" +
                doubt + ")");
        if (!saved_.altroot.empty())
            settings_.Say("was imported below " + std::string(saved_.altroot) +
                          ", which is not repeated, nor the cachefile of none that comes with it");
        settings_.Draft().AddMaker(std::move(create));
        for (std::size_t i = 1; i < runs.size(); ++i)
            PlanAddition(runs[i], canMix);
        PlanAfterCreation(runs.front());
    }

private:
    /// Its data is there until its disks are used, which the tool does without a word.
    void CannotReplace(const ImportablePool& destroyed) {
        std::vector<std::string> words = {"zpool", "import", "-D"};
        for (const std::string& folder : destroyed.folders)
            words.insert(words.end(), {"-d", folder});
        words.insert(words.end(), {"-N", destroyed.guid});
        if (destroyed.name != settings_.Name())
            words.push_back(settings_.Name());
        std::string reason = "it was destroyed, and is not made anew while it is there: `" +
                             util::ShellLine(words) +
                             "` brings it back; who gives it up runs `zpool labelclear` on each of "
                             "its disks, or the first partition of a whole one";
        if (!IsWell(destroyed))
            reason += "; the tool says: " + destroyed.action;
        settings_.CannotDo("", std::nullopt, destroyed.state + " (DESTROYED)", reason);
    }

    /// Why a disk cannot be given to the pool; empty when it can.
    [[nodiscard]] std::string WhyNot(const LayoutDisk& disk, Use use,
                                     const GivenDisks& given) const {
        if (disk.word.empty())
            return "was missing when the pool was saved";
        const auto state =
            std::find_if(settings_.Input().live.disks.begin(), settings_.Input().live.disks.end(),
                         [&](const DiskState& known) { return known.path == disk.word; });
        if (state == settings_.Input().live.disks.end() || !state->isThere)
            return "is not there";
        if (!state->usedBy.empty() && !(use == Use::Spare && state->isOnlySpare))
            return "is used by the pool " + state->usedBy;
        for (const ImportablePool& pool : settings_.Input().live.importablePools)
            if (IsPartOf(disk, state->target, pool))
                return (pool.isDestroyed ? "is part of the destroyed pool "
                                         : "is part of the pool ") +
                       pool.name + " (" + pool.guid + "), which " +
                       (pool.isDestroyed
                            ? "`zpool import -D` could bring back until `zpool labelclear` "
                              "gives the disk free"
                            : "could be imported");
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
                            (disk.word.empty() || disk.word == disk.whatToName
                                 ? ""
                                 : " (" + disk.word + ")") +
                            " " + whyNot + ", --disk '" + disk.whatToName + "=NEW' names another";
            }
            if (here.empty() || IsNumbered(group.use))
                groups.push_back(group);
            else
                settings_.CannotDo(group.name, Described(group), std::nullopt,
                                   "the pool is made without it: " + here);
            if (!here.empty() && IsNumbered(group.use))
                lacking += (lacking.empty() ? "" : "; ") + here;
        }
        if (!lacking.empty()) {
            settings_.CannotDo("", std::nullopt, std::nullopt,
                               "its disks cannot all be had: " + lacking);
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
                   " when it was saved, and did not tell its properties";
        // The kernel panics when it has to make one without (2.3).
        const PropertyValue* draid = saved_.Find("feature@draid");
        for (const LayoutGroup& group : layout_.groups)
            if (util::str_is_starts_with(group.word, "draid") &&
                (draid == nullptr || !IsOn(draid->Value()) || !KnowsFeature("draid")))
                return "it has a draid, and the feature for it is not enabled or not known";
        return {};
    }

    [[nodiscard]] bool KnowsFeature(std::string_view feature) const {
        const std::vector<std::string>& known = settings_.Input().live.features;
        return TakesOption(settings_.Input().Tools().zpoolUsage, "create", 'd') &&
               (known.empty() || std::find(known.begin(), known.end(), feature) != known.end());
    }

    static void AddProperty(Step& step, const std::string& property, const std::string& value) {
        step.words.insert(step.words.end(), {"-o", property + "=" + value});
    }

    Step CreationStep(const LayoutRun& run) {
        Step step;
        step.phase = Phase::Pools;
        step.action = Action::Create;
        step.object = settings_.Name();
        step.words = {"zpool", "create"};
        const PropertyValue* version = saved_.Find("version");
        const bool hasFeatures = version == nullptr || version->Value() == "-";
        if (hasFeatures && TakesOption(settings_.Input().Tools().zpoolUsage, "create", 'd'))
            step.words.emplace_back("-d");
        for (const PropertyValue& saved : saved_.properties) {
            const std::string& name = saved.Name();
            if (IsFeature(name) && IsOn(saved.Value())) {
                if (const std::string feature = name.substr(name.find('@') + 1);
                    KnowsFeature(feature))
                    AddProperty(step, name, "enabled");
                else
                    settings_.CannotDo(name, std::string(saved.Value()), std::nullopt,
                                       "the live tools do not know this feature");
            } else if (IsUnsupported(name)) {
                settings_.CannotDo(name, std::string(saved.Value()), std::nullopt,
                                   "the tools it was saved with did not know this feature either");
            } else if (IsGivenAtCreation(saved)) {
                AddProperty(step, name, ToSet(name, saved.Value()));
            }
        }
        if (const std::string ashift = AshiftOf(run); !ashift.empty())
            AddProperty(step, "ashift", ashift);
        if (const DatasetState* root = settings_.Input().saved.FindDataset(saved_.name);
            root != nullptr && settings_.Input().options.IsWanted(saved_.name)) {
            KeyFiles keys(settings_.Input());
            CreationOptions options = CreationOptionsOf(settings_.Input(), keys, *root, "off");
            // Or its default mount point, given back, would mount it.
            options.properties.emplace_back("canmount=noauto");
            for (std::string& property : options.properties)
                step.words.insert(step.words.end(), {"-O", std::move(property)});
            step.asksFor = std::move(options.asksFor);
            step.why = std::move(options.why);
        } else {
            settings_.Say(
                "its own dataset was not saved, or not asked for, and has what the tool gives it");
        }
        step.words.insert(step.words.end(), {"-m", "none", settings_.Name()});
        AddDevices(run, step);
        return step;
    }

    /// The sector size of the devices that a command makes; empty when nobody can tell.
    [[nodiscard]] std::string AshiftOf(const LayoutRun& run) const {
        const PropertyValue* saved = saved_.Find("ashift");
        if (FindRule(settings_.Input().Tools().poolProperties, "ashift") == nullptr)
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
               !saved.IsUser() && !IsFeature(name) && !IsLast(name) &&
               !IsOfTheMoment(saved_, saved) && name != "ashift" && name != "compatibility" &&
               !(name == "version" && saved.Value() == "-") &&
               !(IsText(name) && (saved.Value() == "-" || saved.Value().empty())) &&
               IsSettable(settings_.Input().Tools(), saved);
    }

    void PlanAddition(const LayoutRun& run, bool canMix) {
        Step step;
        step.phase = Phase::Pools;
        step.action = Action::Add;
        step.object = settings_.Name();
        step.words = {"zpool", "add"};
        // They permit what was so, and nothing else that -f would.
        if (run.mixesAshift && canMix)
            step.words.emplace_back("--allow-ashift-mismatch");
        if (run.mixesRedundancy)
            step.words.emplace_back("--allow-replication-mismatch");
        if (const std::string ashift = AshiftOf(run); !ashift.empty())
            AddProperty(step, "ashift", ashift);
        step.words.push_back(settings_.Name());
        AddDevices(run, step);
        step.why = run.mixesAshift ? "these devices have another sector size"
                                   : "one command does not make all kinds of devices";
        // Whatever needs the pool needs all of it.
        settings_.Draft().AddMaker(std::move(step));
    }

    void PlanAfterCreation(const LayoutRun& first) {
        settings_.PlanProperty("compatibility");
        for (const PropertyValue& saved : saved_.properties)
            if (saved.IsUser() ||
                (saved.Source() == PropertySource::Local &&
                 !IsSettable(settings_.Input().Tools(), saved) && !IsLast(saved.Name())))
                PlanNew(saved);
        // What `zpool create` was given for its devices, it keeps for those to come.
        const PropertyValue* ashift = saved_.Find("ashift");
        if (const std::string given = AshiftOf(first);
            ashift != nullptr && !given.empty() && ashift->Value() != given)
            settings_.Draft().Add(settings_.SetStep("ashift", std::string(ashift->Value())));
        std::size_t number = 0;
        for (const LayoutGroup& group : layout_.groups) {
            if (!IsNumbered(group.use))
                continue;
            const std::string word = group.word == "raidz" ? "raidz1" : group.word;
            if (!word.empty())
                settings_.PlanDeviceProperties(*group.device, nullptr,
                                               word + "-" + std::to_string(number));
            ++number;
            for (const LayoutDisk& disk : group.disks)
                settings_.PlanDeviceProperties(*disk.device, nullptr, disk.word);
        }
    }

    void PlanNew(const PropertyValue& saved) {
        if (!IsFeature(saved.Name()) && !IsUnsupported(saved.Name()))
            settings_.PlanProperty(saved);
    }

    PoolSettings& settings_;
    const PoolState& saved_;
    PoolLayout layout_;
};

} // namespace

void PlanMissingPool(PoolSettings& settings, GivenDisks& given) {
    PoolCreation creation(settings);
    if (!creation.IsThereRenamed() && !creation.PlanImport())
        creation.PlanCreation(given);
}

} // namespace zfslib::restore::internal
