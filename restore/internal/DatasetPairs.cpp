#include "restore/internal/DatasetPairs.h"

#include "exc/exc.h"
#include "restore/internal/PropertyWords.h"
#include "util/str.h"

#include <algorithm>
#include <utility>

namespace zfslib::restore::internal {
namespace {

PropertyNow NowOf(const PropertyValue& value) {
    PropertyNow now;
    now.source = value.Source();
    now.value = std::string(value.Value());
    if (value.Received())
        now.received = std::string(*value.Received());
    now.doubt = value.Doubt();
    return now;
}

const DatasetState* FindByName(const std::vector<DatasetState>& datasets, std::string_view name) {
    const auto found = std::find_if(datasets.begin(), datasets.end(),
                                    [&](const DatasetState& item) { return item.name == name; });
    return found == datasets.end() ? nullptr : &*found;
}

std::string TypeText(DatasetState::Type type) {
    return type == DatasetState::Type::Volume ? "volume" : "filesystem";
}

} // namespace

std::string_view AltrootOf(const HostState& state, std::string_view dataset) {
    const PoolState* pool = state.FindPool(PoolOf(dataset));
    return pool == nullptr || pool->altroot == "-" ? std::string_view() : pool->altroot;
}

bool IsOwn(const PropertyValue& value) noexcept {
    return value.Source() == PropertySource::Local || value.Source() == PropertySource::Received;
}

PropertyNow DatasetPair::Now(std::string_view property) const {
    if (const auto made = changed.find(property); made != changed.end())
        return made->second;
    const PropertyValue* shown = live == nullptr ? nullptr : live->Find(property);
    if (shown != nullptr) {
        PropertyNow now = NowOf(*shown);
        const bool isFromAbove =
            now.source == PropertySource::Inherited || now.source == PropertySource::Default;
        if (isFromAbove && parent != nullptr && parent->HandsDownOther(property) &&
            KindOf(*tools, property) == PropertyKind::Inheritable) {
            std::optional<std::string> received = std::move(now.received);
            now = NowFromAbove(property);
            now.received = std::move(received);
        }
        return now;
    }
    return KindOf(*tools, property) == PropertyKind::Inheritable ? NowFromAbove(property)
                                                                 : PropertyNow();
}

bool DatasetPair::HandsDownOther(std::string_view property) const {
    if (changed.find(property) != changed.end())
        return true;
    const PropertyValue* shown = live == nullptr ? nullptr : live->Find(property);
    if (shown != nullptr && IsOwn(*shown))
        return false;
    return parent != nullptr && parent->HandsDownOther(property);
}

PropertyNow DatasetPair::NowFromAbove(std::string_view property) const {
    PropertyNow now;
    if (parent != nullptr) {
        now = parent->Now(property);
    } else if (above != nullptr) {
        const PropertyValue* shown = above->Find(property);
        if (shown == nullptr)
            return {};
        now = NowOf(*shown);
    } else if (property == "mountpoint" && !NameAbove(name).empty()) {
        // Below a pool that is made without its own dataset: nothing is mounted by the way.
        now.source = PropertySource::Inherited;
        now.value = "none";
    } else {
        return {};
    }
    now.received.reset();
    if (now.IsOwn())
        now.source = PropertySource::Inherited;
    if (property != "mountpoint" || !now.value)
        return now;
    if (now.source == PropertySource::Inherited && *now.value != "none" && *now.value != "legacy") {
        if (now.value->back() != '/')
            *now.value += '/';
        *now.value += name.substr(NameAbove(name).size() + 1);
    } else if (now.source == PropertySource::Default) {
        now.value.reset(); // its own name
    }
    return now;
}

std::string DatasetPair::CipherAbove() const {
    if (parent != nullptr && parent->live == nullptr) { // is made as it was
        const PropertyValue* cipher = parent->saved->Find("encryption");
        return cipher == nullptr ? "off" : std::string(cipher->Value());
    }
    const std::string cipher = NowFromAbove("encryption").value.value_or("off");
    return cipher == "-" ? "off" : cipher;
}

std::string DatasetPair::EncryptionRootAbove() const {
    if (parent == nullptr)
        return above == nullptr ? "" : std::string(above->encryptionRoot);
    if (parent->live != nullptr)
        return std::string(parent->live->encryptionRoot);
    const bool isRoot = parent->saved->encryptionRoot == parent->saved->name;
    return isRoot ? parent->name : parent->EncryptionRootAbove();
}

Step LoadKeyStep(const DatasetPair& root, Phase phase) {
    const std::string place =
        root.Now("keylocation").value.value_or(""); // the tool reads it from there
    Step step;
    step.phase = phase;
    step.action = Action::LoadKey;
    step.object = root.name;
    step.property = "keystatus";
    step.words = {"zfs", "load-key", root.name};
    step.was = "unavailable";
    step.willBe = "available";
    if (place == "prompt")
        step.asksFor = "the key of " + root.name;
    else
        step.why = "reads the key from " + place;
    return step;
}

DatasetPairs::DatasetPairs(const PlanInput& input, PlanDraft& draft) : keys_(input) {
    std::vector<std::pair<std::string, const DatasetState*>> wanted;
    for (const DatasetState& saved : input.saved.datasets) {
        std::string name = input.options.NewName(saved.name);
        if (input.options.IsWanted(saved.name) && !draft.IsLeftOut(PoolOf(name)))
            wanted.emplace_back(std::move(name), &saved);
    }
    if (!input.options.renames.empty())
        std::stable_sort(wanted.begin(), wanted.end(), [](const auto& a, const auto& b) {
            return ComesBefore(a.first, b.first);
        });
    for (const auto& [name, savedState] : wanted) {
        const DatasetState& saved = *savedState;
        DatasetPair pair;
        pair.tools = &input.Tools();
        pair.saved = &saved;
        pair.live = input.live.state.FindDataset(name);
        pair.parent = FindLive(NameAbove(name));
        pair.name = name;
        if (pair.parent == nullptr)
            pair.above = FindByName(input.live.above, NameAbove(name));
        pair.savedAltroot = AltrootOf(input.saved, saved.name);
        pair.liveAltroot = AltrootOf(input.live.state, name);
        if (byName_.find(name) != byName_.end())
            throw exc::CRuntimeExc("[%1] would be the name of two saved datasets.", name);
        if (CanBe(pair, input, draft)) {
            pairs_.push_back(std::move(pair));
            bySavedName_.emplace(saved.name, &pairs_.back());
            byName_.emplace(pairs_.back().name, &pairs_.back());
        }
    }
}

DatasetPair* DatasetPairs::Find(std::string_view saved) const {
    const auto found = bySavedName_.find(saved);
    return found == bySavedName_.end() ? nullptr : found->second;
}

std::deque<DatasetPair>::iterator DatasetPairs::FirstWithin(std::string_view top) {
    return std::lower_bound(pairs_.begin(), pairs_.end(), top,
                            [](const DatasetPair& pair, std::string_view name) {
                                return ComesBefore(pair.name, name);
                            });
}

DatasetPair* DatasetPairs::FindLive(std::string_view live) const {
    const auto found = byName_.find(live);
    return found == byName_.end() ? nullptr : found->second;
}

std::string DatasetPairs::WhyLocked(const DatasetPair& above) {
    const PropertyValue* status = above.live == nullptr ? nullptr : above.live->Find("keystatus");
    if (status == nullptr || status->Value() != "unavailable")
        return {};
    const std::string root(above.live->encryptionRoot);
    const DatasetPair* pair = FindLive(root);
    if (pair == nullptr || pair->live == nullptr)
        return util::str_format("the key of %1 is not loaded", root);
    const std::string keeper = keys_.FindUnmountedKeeper(pair->saved, *pair->live);
    return keeper.empty() ? std::string() : TextOfLateKey(root, keeper);
}

bool DatasetPairs::CanBe(const DatasetPair& pair, const PlanInput& input, PlanDraft& draft) {
    const DatasetState& saved = *pair.saved;
    if (pair.live != nullptr) {
        if (pair.live->type == saved.type)
            return true;
        draft.CannotDo(pair.name, "type", TypeText(saved.type), TypeText(pair.live->type),
                       "what has its name is of another type");
        return false;
    }
    const std::string_view above = NameAbove(pair.name);
    if (!above.empty() && pair.parent == nullptr && pair.above == nullptr &&
        !draft.MakerOf(above)) {
        draft.CannotDo(pair.name, "", std::nullopt, std::nullopt,
                       util::str_format("%1 is not there, and nothing here makes it", above));
        return false;
    }
    const PropertyValue* size = saved.Find("volsize");
    if (!pair.IsFilesystem() && (size == nullptr || !size->IsExact() || size->Value() == "-")) {
        draft.CannotDo(pair.name, "volsize", std::nullopt, std::nullopt, "its size is not known");
        return false;
    }
    const auto lacksFeatureFor = [&](std::string_view property, std::string_view feature) {
        if (!LacksFeature(input, draft, pair.name, feature))
            return false;
        draft.CannotDo(pair.name, property, std::nullopt, std::nullopt, TextOfLacking(feature));
        return true;
    };
    if (!saved.encryptionRoot.empty() && lacksFeatureFor("encryption", "encryption"))
        return false;
    const PropertyValue* blocks = saved.Find("volblocksize");
    if (blocks != nullptr &&
        lacksFeatureFor(blocks->Name(), FeatureFor(blocks->Name(), blocks->Value())))
        return false;
    const PropertyValue* source = saved.Find("keysource"); // Solaris
    if (source != nullptr && source->Source() == PropertySource::Local &&
        KindOf(*pair.tools, "keysource") == PropertyKind::Unknown) {
        draft.CannotDo(pair.name, "keysource", std::string(source->Value()), std::nullopt,
                       "this host's tools know no such keys, and it would not be encrypted");
        return false;
    }
    const bool takesKey = !saved.encryptionRoot.empty() && saved.encryptionRoot != saved.name;
    if (takesKey && pair.CipherAbove() == "off") {
        draft.CannotDo(pair.name, "encryptionroot", std::string(saved.encryptionRoot), std::nullopt,
                       "it would not be encrypted: what it had its key from is not "
                       "there, or is not encrypted");
        return false;
    }
    if (std::string why = pair.parent == nullptr ? std::string() : WhyLocked(*pair.parent);
        !why.empty()) {
        draft.CannotDo(pair.name, "", std::nullopt, std::nullopt, std::move(why));
        return false;
    }
    const PropertyValue* key = pair.above == nullptr ? nullptr : pair.above->Find("keystatus");
    if (takesKey && key != nullptr && key->Value() == "unavailable") {
        draft.CannotDo(pair.name, "", std::nullopt, std::nullopt,
                       util::str_format("the key of %1 is not loaded", above));
        return false;
    }
    if (above.empty() && !draft.MakerOf(pair.name)) {
        draft.CannotDo(pair.name, "", std::nullopt, std::nullopt, "its pool is not there");
        return false;
    }
    const std::string owner = input.options.NewName(saved.encryptionRoot);
    const std::string root = pair.EncryptionRootAbove();
    if (takesKey && !root.empty() && root != owner)
        draft.CannotDo(pair.name, "encryptionroot", owner, root,
                       "it is made with the key of what is above it");
    return true;
}

} // namespace zfslib::restore::internal
