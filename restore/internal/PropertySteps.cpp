#include "restore/internal/PropertySteps.h"

#include "restore/internal/PropertyWords.h"
#include "util/str.h"

#include <utility>

namespace zfslib::restore::internal {
namespace {

/// Whether it is not to be mounted without this.
bool IsGuard(std::string_view property) {
    return property == "setuid" || property == "exec" || property == "devices";
}

} // namespace

void PropertySteps::Cannot(const DatasetPair& pair, const PropertyValue& saved,
                           std::string reason) {
    const PropertyValue* live = pair.live == nullptr ? nullptr : pair.live->Find(saved.Name());
    draft_.CannotDo(pair.name, saved.Name(), std::string(saved.Value()),
                    live == nullptr ? std::nullopt : std::optional<std::string>(live->Value()),
                    std::move(reason));
}

bool PropertySteps::CanRestore(const DatasetPair& pair, std::string_view property) const {
    const PropertyValue* saved = pair.saved->Find(property);
    const PropertyValue* live = pair.live == nullptr ? nullptr : pair.live->Find(property);
    return saved != nullptr && saved->IsExact() && saved->Source() != PropertySource::Temporary &&
           saved->Source() != PropertySource::None && (live == nullptr || live->IsExact());
}

bool PropertySteps::IsEqual(const PropertyValue& saved, const PropertyValue& live) const {
    return saved.Source() == live.Source() && saved.Value() == live.Value() && saved.IsExact() &&
           live.IsExact() && saved.Received() == live.Received() &&
           (saved.InheritedFrom() == live.InheritedFrom() ||
            input_.options.NewName(saved.InheritedFrom()) == live.InheritedFrom());
}

bool PropertySteps::IsSame(const DatasetPair& pair, const PropertyValue& saved,
                           const PropertyNow& now) const {
    const std::string_view name = saved.Name();
    if (!now.value)
        return false;
    if (name == "mountpoint")
        return StoredMountpoint(saved.Value(), pair.savedAltroot) ==
               StoredMountpoint(*now.value, pair.liveAltroot);
    return Canonical(name, saved.Value(), input_.saved.tools) ==
           Canonical(name, *now.value, input_.Tools());
}

PlanDraft::StepId PropertySteps::Set(DatasetPair& pair, std::string_view property,
                                     std::string_view value, const Turn& turn, std::string why,
                                     bool isPinned) {
    const bool isMountpoint = property == "mountpoint";
    const std::string_view word = isMountpoint ? StoredMountpoint(value, pair.savedAltroot)
                                               : WordToSet(property, value, input_.saved.tools);
    PropertyNow becomes = pair.Now(property);
    Step step;
    step.phase = turn.phase;
    step.action = Action::Set;
    step.object = pair.name;
    step.property = property;
    step.words = {"zfs", "set"};
    if (turn.isOnlyRecorded && TakesOption(input_.Tools().zfsUsage, "set", 'u'))
        step.words.emplace_back("-u");
    AddOperand(step.words, std::string(property) + "=" + std::string(word));
    step.words.push_back(pair.name);
    step.was = becomes.value;
    becomes.value =
        isMountpoint
            ? PrintedMountpoint(word, pair.liveAltroot)
            : std::string(TextOnceSet(property, value, input_.saved.tools, input_.Tools()));
    step.willBe = becomes.value;
    step.why = std::move(why);
    step.isPinned = isPinned;
    becomes.source = PropertySource::Local;
    becomes.doubt.clear();
    pair.changed[std::string(property)] = std::move(becomes);
    const auto id = draft_.Add(std::move(step));
    if (IsGuard(property))
        pair.beforeMount.push_back(id);
    return id;
}

PlanDraft::StepId PropertySteps::Inherit(DatasetPair& pair, std::string_view property, Back back,
                                         PropertyNow becomes, const Turn& turn, std::string why) {
    Step step;
    step.phase = turn.phase;
    step.action = Action::Inherit;
    step.object = pair.name;
    step.property = property;
    step.words = {"zfs", "inherit"};
    if (back == Back::ToReceived)
        step.words.emplace_back("-S");
    AddOperand(step.words, std::string(property));
    step.words.push_back(pair.name);
    step.was = pair.Now(property).value;
    step.willBe = becomes.value;
    step.why = std::move(why);
    pair.changed[std::string(property)] = std::move(becomes);
    const auto id = draft_.Add(std::move(step));
    if (IsGuard(property))
        pair.beforeMount.push_back(id);
    return id;
}

void PropertySteps::SayOfReceived(const DatasetPair& pair, const PropertyValue& saved) {
    if (!saved.Received() || !input_.Tools().hasReceived)
        return;
    const PropertyNow now = pair.Now(saved.Name());
    if (now.received != saved.Received())
        Cannot(pair, saved,
               saved.Source() == PropertySource::Received
                   ? "only a stream brings a received value: it is set here"
                   : "only a stream brings the received value that another covers");
}

std::optional<PlanDraft::StepId>
PropertySteps::Restore(DatasetPair& pair, std::string_view property, const Turn& turn) {
    const PropertyValue* saved = pair.saved->Find(property);
    const PropertyValue* live = pair.live == nullptr ? nullptr : pair.live->Find(property);
    const bool isUntouched = pair.changed.find(property) == pair.changed.end();
    if (saved == nullptr || (live != nullptr && isUntouched && IsEqual(*saved, *live)))
        return std::nullopt;
    return Restore(pair, *saved, turn);
}

std::optional<PlanDraft::StepId>
PropertySteps::Restore(DatasetPair& pair, const PropertyValue& saved, const Turn& turn) {
    const PropertyKind kind = KindOf(input_.Tools(), saved.Name());
    if (kind == PropertyKind::Fixed)
        return std::nullopt;
    const PropertyNow now = pair.Now(saved.Name());
    if (!saved.IsExact() || !now.doubt.empty()) {
        Cannot(pair, saved,
               saved.IsExact() ? "its live value is not certain: " + now.doubt
                               : "its saved value is not certain: " + saved.Doubt());
        return std::nullopt;
    }
    if (kind == PropertyKind::SetOnce) {
        if (pair.live != nullptr && now.value && !IsSame(pair, saved, now))
            Cannot(pair, saved, "only creation can set it");
        return std::nullopt;
    }
    if (saved.Source() == PropertySource::None && !saved.IsUser())
        return std::nullopt;
    if (kind == PropertyKind::Unknown) {
        if (saved.Source() == PropertySource::Local || saved.Source() == PropertySource::Received)
            Cannot(pair, saved, "this host's tools do not know it");
        return std::nullopt;
    }
    if (saved.Source() == PropertySource::Temporary) {
        Cannot(pair, saved, std::string(coveredByMountOption));
        return std::nullopt;
    }
    const std::string_view feature = FeatureFor(saved.Name(), saved.Value());
    if (LacksFeature(input_, draft_, pair.name, feature) && !IsSame(pair, saved, now)) {
        Cannot(pair, saved, TextOfLacking(feature));
        return std::nullopt;
    }
    const auto step = kind == PropertyKind::Inheritable ? RestoreInheritable(pair, saved, turn)
                                                        : RestoreOwn(pair, saved, turn);
    if (step)
        draft_.Need(*step, draft_.EnablerOf(pair.name, feature));
    SayOfReceived(pair, saved);
    return step;
}

std::optional<PlanDraft::StepId>
PropertySteps::GoBackToReceived(DatasetPair& pair, const PropertyValue& saved, const Turn& turn) {
    const PropertyNow now = pair.Now(saved.Name());
    PropertyNow received{PropertySource::Received, now.received, now.received, {}};
    if (saved.Source() != PropertySource::Received || now.source == PropertySource::Received ||
        !now.received || !IsSame(pair, saved, received) ||
        !TakesOption(input_.Tools().zfsUsage, "inherit", 'S'))
        return std::nullopt;
    return Inherit(pair, saved.Name(), Back::ToReceived, std::move(received), turn,
                   "came with a stream, which is still known");
}

std::optional<PlanDraft::StepId>
PropertySteps::RestoreInheritable(DatasetPair& pair, const PropertyValue& saved, const Turn& turn) {
    const bool wasReceived = saved.Source() == PropertySource::Received;
    if (!wasReceived && saved.Source() != PropertySource::Local)
        return RestoreUnset(pair, saved, turn);
    const PropertyNow now = pair.Now(saved.Name());
    if (auto step = GoBackToReceived(pair, saved, turn))
        return step;
    if (now.IsOwn() && IsSame(pair, saved, now))
        return std::nullopt;
    std::string why;
    if (wasReceived)
        why = "came with a stream";
    else if (!now.IsOwn() && IsSame(pair, saved, now))
        why = "was set here";
    return Set(pair, saved.Name(), saved.Value(), turn, std::move(why));
}

std::optional<PlanDraft::StepId>
PropertySteps::RestoreUnset(DatasetPair& pair, const PropertyValue& saved, const Turn& turn) {
    const std::string& name = saved.Name();
    const bool wasDefault = saved.Source() != PropertySource::Inherited;
    const PropertyNow now = pair.Now(name);
    PropertyNow above = pair.NowFromAbove(name);
    const bool isSetAbove = above.source == PropertySource::Inherited;
    // A dataset in another place has another mount point from above, as it should.
    const bool moves = name == "mountpoint" && pair.name != pair.saved->name;
    const bool isSameAnyhow = !now.IsOwn() && IsSame(pair, saved, now);
    const bool comesFromAbove =
        moves || (isSetAbove ? IsSame(pair, saved, above) : wasDefault || isSameAnyhow);
    if (comesFromAbove) {
        if (now.IsOwn() || now.source == PropertySource::Temporary) {
            if (wasDefault && !isSetAbove)
                above.value =
                    name == "mountpoint" ? std::nullopt : std::optional<std::string>(saved.Value());
            above.received = now.received;
            return Inherit(pair, name, Back::ToNone, std::move(above), turn,
                           wasDefault ? "was default"
                                      : "was inherited from " + saved.InheritedFrom());
        }
        if (wasDefault && now.source == PropertySource::Default && now.value &&
            name != "mountpoint" && !IsSame(pair, saved, now))
            Cannot(pair, saved, "nobody set it, and the default is another here");
        return std::nullopt;
    }
    if (now.IsOwn() && IsSame(pair, saved, now))
        return std::nullopt; // set when it was put here
    return Set(pair, name, saved.Value(), turn,
               wasDefault
                   ? "was default, and is set above"
                   : "was inherited from " + saved.InheritedFrom() + ", which does not have it so",
               true);
}

std::optional<PlanDraft::StepId>
PropertySteps::RestoreOwn(DatasetPair& pair, const PropertyValue& saved, const Turn& turn) {
    const std::string& name = saved.Name();
    const PropertyNow now = pair.Now(name);
    if (auto step = GoBackToReceived(pair, saved, turn))
        return step;
    const bool isDefault = !now.value && !now.IsOwn();
    if (isDefault ? saved.Source() == PropertySource::Default ||
                        Canonical(name, saved.Value(), input_.saved.tools) == KnownDefault(name)
                  : IsSame(pair, saved, now))
        return std::nullopt;
    if (saved.Source() != PropertySource::Default)
        return Set(pair, name, saved.Value(), turn,
                   saved.Source() == PropertySource::Received ? "came with a stream" : "");
    if (!now.IsOwn()) {
        Cannot(pair, saved, "nobody set it, and the default is another here");
        return std::nullopt;
    }
    if (!now.received && TakesOption(input_.Tools().zfsUsage, "inherit", 'S'))
        return Inherit(pair, name, Back::ToReceived,
                       {PropertySource::Default, std::string(saved.Value()), std::nullopt, {}},
                       turn, "was default");
    return Set(pair, name, saved.Value(), turn, "was default");
}

void PropertySteps::Follow(DatasetPair& pair, std::string_view property, const Turn& turn) {
    if (pair.changed.find(property) != pair.changed.end() || pair.parent == nullptr ||
        !pair.parent->HandsDownOther(property) || !CanRestore(pair, property))
        return;
    const PropertyNow now = pair.Now(property);
    if (!now.IsOwn() && now.doubt.empty())
        Inherit(pair, property, Back::ToNone, now, turn, "the mount follows only then");
}

void PropertySteps::RemoveOthers(DatasetPair& pair) {
    if (pair.live == nullptr)
        return;
    for (const PropertyValue& live : pair.live->properties) {
        const bool isSet = IsOwn(live);
        const bool isFromOutside =
            pair.parent == nullptr && live.Source() == PropertySource::Inherited;
        if ((!isSet && !isFromOutside) || pair.saved->Find(live.Name()) != nullptr ||
            KindOf(input_.Tools(), live.Name()) == PropertyKind::Fixed)
            continue;
        if (!live.IsUser() || !live.IsExact() || isFromOutside)
            draft_.Say(pair.name, live.Name() + (isSet ? " is set" : " is inherited from above") +
                                      ", and was not known when the state was saved");
        else
            Inherit(pair, live.Name(), Back::ToNone, pair.NowFromAbove(live.Name()), {},
                    "was not set");
    }
}

} // namespace zfslib::restore::internal
