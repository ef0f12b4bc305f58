#include "restore/internal/PoolSettings.h"

#include "restore/internal/Reading.h"
#include "util/str.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <set>
#include <vector>

namespace zfslib::restore::internal {
bool IsFeature(std::string_view property) {
    return util::str_is_starts_with(property, "feature@");
}

bool IsUnsupported(std::string_view property) {
    return util::str_is_starts_with(property, "unsupported@");
}

bool IsOn(std::string_view feature) {
    return feature == "enabled" || feature == "active";
}

bool IsOfTheMoment(const PoolState& pool, const PropertyValue& property) {
    const std::string& name = property.Name();
    // An altroot brings a cache file of none along, as if somebody had set it.
    return name == "altroot" || name == "readonly" || name == "tname" ||
           (name == "cachefile" && property.Value() == "none" && !pool.altroot.empty());
}

bool IsLast(std::string_view property) {
    return property == "autoreplace" || property == "autotrim" || property == "multihost" ||
           property == "bootfs";
}

bool IsText(std::string_view property) {
    return property == "comment" || property == "cachefile" || property == "bootfs";
}

std::string ToSet(std::string_view property, std::string_view value) {
    if (IsText(property) && value == "-")
        return {};
    // It prints 0 where there is to be none, and refuses that.
    if (property == "dedup_table_quota" && value == "0")
        return "none";
    return std::string(value);
}

bool IsSettable(const ToolsState& tools, const PropertyValue& property) {
    const PropertyRule* rule = FindRule(tools.poolProperties, property.Name());
    return property.IsUser() || (rule != nullptr && rule->isEditable);
}

bool IsAvailable(const PoolState& pool) {
    return pool.health == "ONLINE" || pool.health == "DEGRADED";
}

std::string Described(const LayoutGroup& group) {
    std::string text = group.word;
    for (const LayoutDisk& disk : group.disks)
        text += (text.empty() ? "" : " ") + disk.device->name;
    return text;
}

void PoolSettings::CannotDo(std::string_view property, std::optional<std::string> saved,
                            std::optional<std::string> live, std::string reason) {
    draft_.CannotDo(Name(), property, std::move(saved), std::move(live), std::move(reason));
}

void PoolSettings::LeaveOut() {
    draft_.LeaveOut(Name());
    if (wanted_.size == 1)
        Say("1 dataset waits for it: make the plan again when it is there");
    else if (wanted_.size != 0)
        Say(std::to_string(wanted_.size) +
            " datasets wait for it: make the plan again when it is there");
}

std::optional<std::string> PoolSettings::LiveValue(std::string_view property) const {
    const PropertyValue* value = live_ == nullptr ? nullptr : live_->Find(property);
    if (value == nullptr)
        return std::nullopt;
    return std::string(value->Value());
}

Step PoolSettings::SetStep(std::string_view property, const std::string& value) const {
    Step step;
    step.phase = IsLast(property) ? Phase::Mounts : Phase::PoolProperties;
    step.object = Name();
    step.property = property;
    step.words = {"zpool", "set", std::string(property) + "=" + value, Name()};
    step.was = LiveValue(property);
    step.willBe = value;
    return step;
}

void PoolSettings::PlanFeatures() {
    std::string more;
    for (const PropertyValue& saved : saved_.properties) {
        const std::string& name = saved.Name();
        const std::optional<std::string> live = LiveValue(name);
        if (IsUnsupported(name) && !live)
            CannotDo(name, std::string(saved.Value()), std::nullopt,
                     "the tools it was saved with did not know this feature either");
        if (!IsFeature(name))
            continue;
        if (!IsOn(saved.Value())) {
            if (live && IsOn(*live))
                more.append(more.empty() ? "" : ", ").append(name.substr(name.find('@') + 1));
        } else if (!saved.IsExact()) {
            CannotDo(name, std::nullopt, live, "its saved value is not exact: " + saved.Doubt());
        } else if (!live) {
            CannotDo(name, std::string(saved.Value()), std::nullopt,
                     "the live tools do not know this feature");
        } else if (!IsOn(*live)) {
            draft_.Add(SetStep(name, "enabled"));
        }
    }
    if (!more.empty())
        Say("has features that were not enabled, and stay: " + more);
}

void PoolSettings::PlanProperty(std::string_view name) {
    if (const PropertyValue* saved = saved_.Find(name))
        PlanProperty(*saved);
}

void PoolSettings::PlanProperties(bool last) {
    for (const PropertyValue& saved : saved_.properties) {
        const std::string& name = saved.Name();
        // These have their own place.
        if (IsFeature(name) || name == "compatibility" || name == "version" ||
            IsUnsupported(name) || IsLast(name) != last)
            continue;
        PlanProperty(saved);
    }
    if (!last)
        PlanVersion();
}

void PoolSettings::PlanProperty(const PropertyValue& saved) {
    const std::string& name = saved.Name();
    if (!IsSettable(input_.saved.tools, saved))
        return;
    const bool isSet = saved.Source() == PropertySource::Local;
    const std::optional<std::string> live = LiveValue(name);
    const std::string value = NewValue(saved);
    if (saved.IsUser() && !isSet)
        return; // the rest of one that was removed
    if (IsOfTheMoment(saved_, saved)) {
        if (live_ != nullptr && live != std::string(saved.Value()))
            Say(name + " was " + std::string(saved.Value()) +
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
        Say("cachefile was " + value + ": a pool below an altroot has none");
    } else if (name == "bootfs" && value != "-") {
        PlanBootfs(SetStep(name, value));
    } else {
        Step step = SetStep(name, ToSet(name, value));
        if (name == "compatibility" && value != "off" && value != "legacy")
            step.why = "this host has to have files of these names";
        draft_.Add(std::move(step));
    }
}

std::string PoolSettings::NewValue(const PropertyValue& saved) const {
    if (saved.Name() == "bootfs" && saved.Value() != "-")
        return input_.options.NewName(saved.Value());
    return std::string(saved.Value());
}

void PoolSettings::PlanBootfs(Step step) {
    const std::string& dataset = *step.willBe;
    if (const auto maker = draft_.MakerOf(dataset))
        step.needs.push_back(*maker);
    else if (input_.live.state.FindDataset(dataset) == nullptr) {
        CannotDo("bootfs", dataset, step.was, "this dataset is not there, nor made");
        return;
    }
    draft_.Add(std::move(step));
}

void PoolSettings::PlanVersion() {
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

void PoolSettings::ForgetUserProperties() {
    for (const PropertyValue& live : live_->properties) {
        if (!live.IsUser() || live.Source() != PropertySource::Local || IsUnsupported(live.Name()))
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

void PoolSettings::PlanDeviceProperties(const Device& saved, const Device* live,
                                        const std::string& name) {
    const auto setStep = [&](const std::string& property, const std::string& value) {
        Step step = SetStep(property, value);
        step.phase = Phase::PoolProperties;
        step.device = name;
        // The name of a group is no disk, nor that of one that is there an operand to choose.
        if (live == nullptr && saved.children.empty())
            step.diskWords.push_back(step.words.size());
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

} // namespace zfslib::restore::internal
