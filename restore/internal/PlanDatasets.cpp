#include "restore/internal/PlanDatasets.h"

#include "restore/internal/DatasetPairs.h"
#include "restore/internal/PlanGrants.h"
#include "restore/internal/PlanLimits.h"
#include "restore/internal/PlanMounts.h"
#include "restore/internal/PropertySteps.h"
#include "restore/internal/PropertyWords.h"
#include "util/str.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>
#include <utility>

namespace zfslib::restore::internal {
namespace {

/// The value of a property that is "-" when there is nothing.
std::string_view ValueOf(const DatasetState& dataset, std::string_view name) {
    const PropertyValue* property = dataset.Find(name);
    return property == nullptr || property->Value() == "-" ? std::string_view() : property->Value();
}

bool IsAmong(const std::vector<std::string_view>& names, std::string_view name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

/// What has a turn of its own, or goes with the key of an encryption root.
bool HasOwnTurn(std::string_view property) {
    static const std::vector<std::string_view> ofKeys = {"keylocation", "keyformat", "pbkdf2iters"};
    return IsLimitProperty(property) || IsMountProperty(property) || IsAmong(ofKeys, property) ||
           property == "version";
}

/// What a mount keeps until it is told: readonly, too, which has a turn of its own.
bool IsMountOption(std::string_view property) {
    static const std::vector<std::string_view> options = {"atime", "devices", "exec", "relatime",
                                                          "setuid"};
    return IsAmong(options, property);
}

class DatasetPlanner {
public:
    DatasetPlanner(const PlanInput& input, PlanDraft& draft)
        : input_(input), draft_(draft), pairs_(input, draft), steps_(input, draft) {}

    void Plan() {
        FindRenamed();
        for (DatasetPair& pair : pairs_.All()) {
            if (pair.live == nullptr)
                Create(pair);
            else
                CompareIdentity(pair);
        }
        for (DatasetPair& pair : pairs_.All()) {
            RestoreProperties(pair);
            RestoreVersion(pair);
            RestoreKey(pair);
            steps_.RemoveOthers(pair);
        }
        PlanLimits(input_, pairs_, steps_, draft_);
        PlanMounts(input_, pairs_, steps_, draft_);
        PlanGrants(input_, pairs_, draft_);
        MentionOthers();
    }

private:
    void FindRenamed() {
        const bool isAllThere = std::none_of(pairs_.All().begin(), pairs_.All().end(),
                                             [](const auto& pair) { return pair.live == nullptr; });
        if (!isAllThere && input_.options.renames.empty())
            for (const DatasetState& live : input_.live.state.datasets)
                if (pairs_.FindLive(live.name) == nullptr && !live.guid.empty())
                    renamed_.emplace(live.guid, live.name);
    }

    void Create(DatasetPair& pair) {
        const DatasetState& saved = *pair.saved;
        draft_.CannotDo(pair.name, "guid", std::string(saved.guid), std::nullopt,
                        "guid, creation time and the like are always new");
        const std::string_view version = ValueOf(saved, "version");
        if (!input_.Tools().version.empty() && WholeNumber(version).value_or(0) > 5)
            draft_.CannotDo(pair.name, "version", std::string(version), std::nullopt,
                            "this host's file systems have no such version");
        if (!saved.origin.empty())
            draft_.CannotDo(pair.name, "origin", std::string(saved.origin), std::nullopt,
                            "a clone comes with its data: it is made as a dataset of its own");
        if (draft_.MakerOf(pair.name)) {
            AdoptPoolRoot(pair);
            return;
        }
        Step step;
        step.phase = Phase::Datasets;
        step.action = Action::Create;
        step.object = pair.name;
        step.words = {"zfs", "create"};
        CreationOptions options =
            CreationOptionsOf(input_, pairs_.Keys(), saved, pair.CipherAbove());
        if (!pair.IsFilesystem()) {
            const std::string_view size = ValueOf(saved, "volsize");
            // Without -s, creation would add a reservation of its own.
            step.words.insert(step.words.end(), {"-s", "-V", std::string(size)});
            pair.changed["volsize"] = {PropertySource::Local, std::string(size), {}, {}};
        } else if (TakesOption(input_.Tools().zfsUsage, "create", 'u') &&
                   TakesOption(input_.Tools().zfsUsage, "set", 'u')) {
            step.words.emplace_back("-u");
        } else { // its mount point would mount it, then or later
            options.properties.emplace_back("canmount=noauto");
            pair.changed["canmount"] = {PropertySource::Local, "noauto", std::nullopt, {}};
        }
        for (const std::string& property : options.properties)
            step.words.insert(step.words.end(), {"-o", property});
        step.words.push_back(pair.name);
        step.why = std::move(options.why);
        step.asksFor = std::move(options.asksFor);
        if (const auto renamed = renamed_.find(saved.guid); renamed != renamed_.end()) {
            const std::string there(renamed->second);
            step.why += (step.why.empty() ? "" : "; ") + ("is there as " + there);
            draft_.Say(pair.name, "is there as " + there +
                                      ", which has its guid: `zfs rename` brings it back with its "
                                      "data, and this plan makes an empty one");
        }
        const auto maker = draft_.MakerOf(NameAbove(pair.name));
        const auto key = NeedKeyAbove(pair);
        const auto id = draft_.AddMaker(std::move(step));
        draft_.Need(id, maker);
        draft_.Need(id, key);
        if (!saved.encryptionRoot.empty())
            draft_.Need(id, draft_.EnablerOf(pair.name, "encryption"));
        draft_.Need(id, draft_.EnablerOf(
                            pair.name, FeatureFor("volblocksize", ValueOf(saved, "volblocksize"))));
    }

    /// A pool is made with a root that is mounted nowhere. Its default mount point is given back
    /// while there is nothing below it: later, that would mount all of it.
    void AdoptPoolRoot(DatasetPair& pair) {
        pair.changed["canmount"] = {PropertySource::Local, "noauto", std::nullopt, {}};
        pair.changed["mountpoint"] = {PropertySource::Local, "none", std::nullopt, {}};
        const PropertyValue* mountpoint = pair.saved->Find("mountpoint");
        if (mountpoint != nullptr && mountpoint->Source() == PropertySource::Default)
            steps_.Restore(pair, *mountpoint, {Phase::Datasets});
    }

    void CompareIdentity(DatasetPair& pair) {
        const DatasetState& saved = *pair.saved;
        const DatasetState& live = *pair.live;
        if (saved.guid != live.guid)
            draft_.CannotDo(pair.name, "guid", std::string(saved.guid), std::string(live.guid),
                            "guid, creation time and the like are always new");
        if (!saved.origin.empty() && live.origin != input_.options.NewName(saved.origin))
            draft_.CannotDo(pair.name, "origin", std::string(saved.origin),
                            std::string(live.origin),
                            "a clone comes with its data, or by `zfs promote`");
        if (saved.origin.empty() && !live.origin.empty())
            draft_.Say(pair.name, "is a clone of " + std::string(live.origin) + ", and was none");
        const std::string owner = input_.options.NewName(saved.encryptionRoot);
        if (owner == live.encryptionRoot || owner.empty() || live.encryptionRoot.empty())
            return;
        const DatasetState* above = pair.parent == nullptr ? pair.above : pair.parent->live;
        if (live.encryptionRoot != pair.name || above == nullptr ||
            above->encryptionRoot != owner) {
            draft_.CannotDo(pair.name, "encryptionroot", owner, std::string(live.encryptionRoot),
                            "only `zfs change-key`, with a new key, makes it");
            return;
        }
        for (DatasetPair* locked : {LockedRootOf(&pair), LockedRootOf(pair.parent)})
            if (const std::string keeper = KeeperOf(locked); !keeper.empty()) {
                draft_.CannotDo(pair.name, "encryptionroot", owner,
                                std::string(live.encryptionRoot),
                                TextOfLateKey(locked->name, keeper));
                return;
            }
        const auto key = NeedKey(&pair);
        const auto keyAbove = NeedKeyAbove(pair);
        Step step;
        step.phase = Phase::Properties;
        step.action = Action::ChangeKey;
        step.object = pair.name;
        step.property = "encryptionroot";
        step.words = {"zfs", "change-key", "-i", pair.name};
        step.was = pair.name;
        step.willBe = owner;
        step.why = "had the key of " + owner;
        const auto id = draft_.Add(std::move(step));
        draft_.Need(id, key);
        draft_.Need(id, keyAbove);
    }

    /// The live encryption root of a dataset, if its key is not loaded.
    DatasetPair* LockedRootOf(DatasetPair* pair) {
        if (pair == nullptr || pair->live == nullptr ||
            ValueOf(*pair->live, "keystatus") != "unavailable")
            return nullptr;
        return pair->live->encryptionRoot == pair->name
                   ? pair
                   : LockedRootOf(pairs_.FindLive(pair->live->encryptionRoot));
    }

    std::string KeeperOf(const DatasetPair* locked) {
        return locked == nullptr ? std::string()
                                 : pairs_.Keys().FindUnmountedKeeper(locked->saved, *locked->live);
    }

    /// The step that loads the key of a live encryption root, if it is not loaded.
    std::optional<PlanDraft::StepId> NeedKey(DatasetPair* pair) {
        DatasetPair* const root = LockedRootOf(pair);
        if (root == nullptr)
            return std::nullopt;
        const auto known = keySteps_.find(root);
        if (known != keySteps_.end())
            return known->second;
        const auto placed = RestoreKeyLocation(*root);
        const auto id = keySteps_[root] = draft_.Add(LoadKeyStep(*root, Phase::Datasets));
        draft_.Need(id, placed);
        return id;
    }

    /// Before a key is loaded: it may stand where it stood, and no longer where it is looked for.
    std::optional<PlanDraft::StepId> RestoreKeyLocation(DatasetPair& root) {
        const PropertyValue* place = root.saved->Find("keylocation");
        if (root.saved->encryptionRoot != root.saved->name || place == nullptr ||
            place->Source() != PropertySource::Local)
            return std::nullopt;
        return steps_.Restore(root, *place, {Phase::Datasets});
    }

    std::optional<PlanDraft::StepId> NeedKeyAbove(const DatasetPair& pair) {
        for (DatasetPair* above = pair.parent; above != nullptr; above = above->parent)
            if (above->live == nullptr || above->live->encryptionRoot == above->name)
                return NeedKey(above);
        return std::nullopt;
    }

    bool IsForThisTurn(const PropertyValue& saved) {
        const auto [known, isNew] = isForThisTurn_.try_emplace(&saved.Name(), false);
        if (isNew)
            known->second = !HasOwnTurn(saved.Name()) &&
                            KindOf(input_.Tools(), saved.Name()) != PropertyKind::Fixed;
        return known->second;
    }

    void RestoreProperties(DatasetPair& pair) {
        std::size_t next = 0; // both sides are in the tool's order
        for (const PropertyValue& saved : pair.saved->properties) {
            if (pair.live != nullptr) {
                const std::vector<PropertyValue>& live = pair.live->properties;
                if (next < live.size() && live[next].Name() == saved.Name()) {
                    if (steps_.IsEqual(saved, live[next++]))
                        continue;
                } else if (const PropertyValue* found = pair.live->Find(saved.Name())) {
                    next = static_cast<std::size_t>(found - live.data()) + 1;
                    if (steps_.IsEqual(saved, *found))
                        continue;
                }
            }
            if (!IsForThisTurn(saved)) {
                pair.differs = pair.differs || HasOwnTurn(saved.Name());
                continue;
            }
            const bool isOwn = KindOf(input_.Tools(), saved.Name()) == PropertyKind::Own;
            if (steps_.Restore(pair, saved, {isOwn ? Phase::Limits : Phase::Properties}) &&
                IsMountOption(saved.Name()))
                optionsHandedDown_.insert(saved.Name());
        }
        if (pair.live != nullptr && pair.live->isMounted)
            for (const std::string& option : optionsHandedDown_)
                steps_.Follow(pair, option, {Phase::Properties});
    }

    void RestoreVersion(DatasetPair& pair) {
        if (pair.live == nullptr || !pair.differs)
            return;
        const PropertyValue* saved = pair.saved->Find("version");
        const PropertyValue* live = pair.live->Find("version");
        if (saved == nullptr || live == nullptr)
            return;
        const auto was = WholeNumber(live->Value());
        const auto wanted = WholeNumber(saved->Value());
        if (!was || !wanted || was == wanted)
            return;
        if (*was < *wanted)
            steps_.Set(pair, "version", saved->Value(), {Phase::Limits}, "");
        else
            draft_.CannotDo(pair.name, "version", std::string(saved->Value()),
                            std::string(live->Value()), "a version only goes up");
    }

    void RestoreKey(DatasetPair& pair) {
        if (pair.live != nullptr && ValueOf(*pair.saved, "keystatus") == "available" &&
            ValueOf(*pair.live, "keystatus") == "unavailable") {
            DatasetPair* const root = LockedRootOf(&pair);
            if (!KeeperOf(root).empty()) {
                pair.lateKey = root;
                if (const auto placed = RestoreKeyLocation(*root))
                    root->beforeMount.push_back(*placed);
            } else {
                pair.key = NeedKey(&pair);
            }
            if (!pair.key && pair.lateKey == nullptr)
                draft_.CannotDo(pair.name, "keystatus", "available", "unavailable",
                                "its key is that of " + std::string(pair.live->encryptionRoot) +
                                    ", which is not restored here");
        }
        if (pair.live == nullptr || pair.saved->encryptionRoot != pair.saved->name ||
            pair.live->encryptionRoot != pair.name)
            return;
        RestoreKeyLocation(pair);
        for (const char* property : {"keyformat", "pbkdf2iters"}) {
            const std::string_view saved = ValueOf(*pair.saved, property);
            const std::string_view live = ValueOf(*pair.live, property);
            if (saved != live)
                draft_.CannotDo(pair.name, property, std::string(saved), std::string(live),
                                "only `zfs change-key`, with a new key, changes it");
        }
    }

    /// What is live below the roots and was not saved: the uppermost of it.
    void MentionOthers() {
        const std::vector<DatasetState>& datasets = input_.live.state.datasets;
        std::vector<bool> isKnown(datasets.size());
        for (const DatasetState& saved : input_.saved.datasets) {
            const DatasetPair* pair = pairs_.Find(saved.name);
            const DatasetState* live =
                pair != nullptr ? pair->live
                                : input_.live.state.FindDataset(input_.options.NewName(saved.name));
            if (live != nullptr)
                isKnown[static_cast<std::size_t>(live - datasets.data())] = true;
        }
        std::string_view top;
        for (std::size_t i = 0; i < datasets.size(); ++i) {
            const std::string_view name = datasets[i].name;
            if (isKnown[i] || (!top.empty() && util::str_is_starts_with(name, top) &&
                               name.substr(top.size(), 1) == "/"))
                continue;
            top = name;
            draft_.Say(name, "was not saved");
        }
    }

    const PlanInput& input_;
    PlanDraft& draft_;
    DatasetPairs pairs_;
    PropertySteps steps_;
    std::map<const DatasetPair*, PlanDraft::StepId> keySteps_;
    std::unordered_map<const std::string*, bool> isForThisTurn_;
    std::set<std::string> optionsHandedDown_;
    std::map<std::string_view, std::string_view> renamed_; ///< live names, by guid
};

} // namespace

CreationOptions CreationOptionsOf(const PlanInput& input, KeyFiles& keys, const DatasetState& saved,
                                  std::string_view cipherAbove) {
    CreationOptions options;
    const auto give = [&](std::string_view property) {
        const std::string_view value = ValueOf(saved, property);
        if (!value.empty())
            options.properties.push_back(std::string(property) + "=" + std::string(value));
    };
    if (saved.type == DatasetState::Type::Volume) {
        give("volblocksize");
    } else {
        // Their source is never told: one that was given cannot be told from one that was not.
        for (const char* property : {"utf8only", "normalization", "casesensitivity"})
            give(property);
        const bool isOpenZfs = !input.Tools().version.empty();
        if (!isOpenZfs || WholeNumber(ValueOf(saved, "version")).value_or(5) < 5)
            give("version");
    }
    const std::string_view cipher = ValueOf(saved, "encryption");
    const PropertyValue* keysource = saved.Find("keysource"); // Solaris
    if (keysource != nullptr && keysource->Source() == PropertySource::Local) {
        give("encryption");
        give("keysource");
        options.asksFor = "a key for " + input.options.NewName(saved.name);
        return options;
    }
    if (saved.encryptionRoot == saved.name && !saved.encryptionRoot.empty()) {
        give("encryption");
        give("keyformat");
        const std::string_view place = ValueOf(saved, "keylocation");
        give("keylocation");
        if (ValueOf(saved, "pbkdf2iters") != "0")
            give("pbkdf2iters");
        const std::string name = input.options.NewName(saved.name);
        if (place == "prompt" || place.empty())
            options.asksFor = "a key for " + name;
        else
            options.why = "reads its key from " + std::string(place);
        if (const std::string keeper = keys.FindUnmountedKeeper(place); !keeper.empty())
            options.why += ", a file of " + keeper + ": put it there first";
    } else if (!cipher.empty() && cipher != cipherAbove) {
        give("encryption");
    }
    return options;
}

void PlanDatasets(const PlanInput& input, PlanDraft& draft) {
    DatasetPlanner(input, draft).Plan();
}

} // namespace zfslib::restore::internal
