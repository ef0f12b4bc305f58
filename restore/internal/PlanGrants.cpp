#include "restore/internal/PlanGrants.h"

#include "util/str.h"

#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace zfslib::restore::internal {
namespace {

/// Permissions by whom they are given to: the options and words of `zfs allow` that say so.
using Grants = std::map<std::vector<std::string>, std::set<std::string>>;

/// How a section of `zfs allow` is given back.
struct Section {
    std::string_view heading;
    std::vector<std::string> options;
};
const std::vector<Section>& Sections() {
    static const auto* const sections =
        new std::vector<Section>{{"Permission sets:", {"-s"}},
                                 {"Create time permissions:", {"-c"}},
                                 {"Local permissions:", {"-l"}},
                                 {"Descendent permissions:", {"-d"}},
                                 {"Local+Descendent permissions:", {}}};
    return *sections;
}

void AddPermissions(std::string_view list, std::set<std::string>& permissions) {
    while (!list.empty()) {
        const std::string_view one = list.substr(0, list.find(','));
        permissions.emplace(one);
        list.remove_prefix(std::min(one.size() + 1, list.size()));
    }
}

/// "user alice mount,create", of which the name may have blanks and the list has none.
void AddGrant(std::string_view line, std::vector<std::string> options, Grants& grants) {
    constexpr std::string_view unknown = "(unknown: ";
    const std::size_t blank = line.rfind(' ');
    std::string_view who =
        blank == std::string_view::npos ? std::string_view() : line.substr(0, blank);
    const std::string_view list = line.substr(blank == std::string_view::npos ? 0 : blank + 1);
    if (who == "everyone") {
        options.emplace_back("-e");
    } else if (util::str_is_starts_with(who, "user ") || util::str_is_starts_with(who, "group ")) {
        options.emplace_back(who.front() == 'u' ? "-u" : "-g");
        who.remove_prefix(who.find(' ') + 1);
        if (util::str_is_starts_with(who, unknown) && who.back() == ')')
            who = who.substr(unknown.size(), who.size() - unknown.size() - 1);
        options.emplace_back(who);
    } else if (!who.empty()) {
        options.emplace_back(who); // the name of a set
    }
    AddPermissions(list, grants[options]);
}

Grants ReadGrants(std::string_view text) {
    Grants grants;
    const Section* section = nullptr;
    while (!text.empty()) {
        std::string_view line = util::ConsumeLine(text);
        if (util::str_is_starts_with(line, "\t")) {
            line.remove_prefix(1);
            if (section != nullptr && !line.empty())
                AddGrant(line, section->options, grants);
            continue;
        }
        section = nullptr;
        for (const Section& known : Sections())
            if (known.heading == line)
                section = &known;
    }
    return grants;
}

/// "-u 1001": nobody had the number when it was printed.
bool IsByNumber(const std::vector<std::string>& options) {
    return options.size() > 1 &&
           (options[options.size() - 2] == "-u" || options[options.size() - 2] == "-g") &&
           util::str_is_integer(options.back());
}

/// All alike but the name.
bool IsSameKind(const std::vector<std::string>& a, const std::vector<std::string>& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end() - 1, b.begin());
}

std::string Joined(const std::set<std::string>& permissions) {
    std::string text;
    for (const std::string& permission : permissions)
        text += (text.empty() ? "" : ",") + permission;
    return text;
}

class GrantPlanner {
public:
    GrantPlanner(const PlanInput& input, PlanDraft& draft) : input_(input), draft_(draft) {}

    void PlanQuotas(const DatasetPair& pair) {
        if (!pair.saved->quotasDoubt.empty()) {
            draft_.CannotDo(pair.name, "quotas of users", std::nullopt, std::nullopt,
                            "they were not saved: " + pair.saved->quotasDoubt);
            return;
        }
        if (pair.live != nullptr && !pair.live->quotasDoubt.empty()) {
            draft_.CannotDo(pair.name, "quotas of users", std::nullopt, std::nullopt,
                            "they cannot be read: " + pair.live->quotasDoubt);
            return;
        }
        std::map<std::string, std::uint64_t> live;
        if (pair.live != nullptr)
            for (const Quota& quota : pair.live->quotas)
                live.emplace(quota.PropertyName(), quota.limit);
        for (const Quota& quota : pair.saved->quotas) {
            const std::string property = quota.PropertyName();
            const auto found = live.find(property);
            const bool isThere = found != live.end();
            if (!isThere || found->second != quota.limit)
                SetQuota(pair, quota, isThere ? util::str(found->second) : "0");
            if (isThere)
                live.erase(found);
        }
        for (const auto& [property, limit] : live)
            AddQuota(pair, property, util::str(limit), "0", "was not set");
    }

    void PlanPermissions(const DatasetPair& pair) {
        const DatasetState& saved = *pair.saved;
        if (!saved.permissionsDoubt.empty()) {
            draft_.CannotDo(pair.name, "permissions", std::nullopt, std::nullopt,
                            "they were not saved: " + saved.permissionsDoubt);
            return;
        }
        if (pair.live != nullptr && pair.live->permissions == saved.permissions)
            return;
        if (pair.live != nullptr && !pair.live->permissionsDoubt.empty()) {
            draft_.CannotDo(pair.name, "permissions", std::nullopt, std::nullopt,
                            "they cannot be read: " + pair.live->permissionsDoubt);
            return;
        }
        Grants wanted = ReadGrants(saved.permissions);
        const Grants live = pair.live == nullptr ? Grants() : ReadGrants(pair.live->permissions);
        LeaveNumbersNamedNow(pair, live, wanted);
        for (const auto& [options, permissions] : live) {
            std::set<std::string> others = permissions;
            for (const std::string& permission : wanted[options])
                others.erase(permission);
            if (!others.empty())
                draft_.Say(pair.name, "permissions were not saved: " + TextOf(options, others));
            for (const std::string& permission : permissions)
                wanted[options].erase(permission);
        }
        for (const auto& [options, permissions] : wanted) {
            if (permissions.empty())
                continue;
            if (!options.empty() && options.back().find(' ') != std::string::npos) {
                draft_.CannotDo(pair.name, "permissions", TextOf(options, permissions),
                                std::nullopt,
                                "`zfs allow` takes no name with a blank: give it by its number");
                continue;
            }
            Step step;
            step.phase = Phase::Mounts;
            step.action = Action::Allow;
            step.object = pair.name;
            step.property = "permissions";
            step.words = {"zfs", "allow"};
            step.words.insert(step.words.end(), options.begin(), options.end());
            step.words.push_back(Joined(permissions));
            step.words.push_back(pair.name);
            draft_.Add(std::move(step));
        }
    }

    void PlanSnapshot(const SnapshotState& saved) {
        const std::string name = input_.options.NewName(saved.name);
        const std::vector<std::string>& there = input_.live.snapshots;
        if (!std::binary_search(there.begin(), there.end(), name)) {
            draft_.CannotDo(name, "", std::nullopt, std::nullopt,
                            "a snapshot comes with the data; plan again when it is there");
            return;
        }
        const SnapshotState* live = input_.live.state.FindSnapshot(name);
        PlanUserProperties(name, saved, live);
        if (!saved.holdsDoubt.empty()) {
            draft_.CannotDo(name, "holds", std::nullopt, std::nullopt,
                            "they were not saved: " + saved.holdsDoubt);
            return;
        }
        if (live != nullptr && !live->holdsDoubt.empty()) {
            draft_.CannotDo(name, "holds", std::nullopt, std::nullopt,
                            "they cannot be read: " + live->holdsDoubt);
            return;
        }
        for (const std::string& tag : saved.holds) {
            if (live != nullptr && std::binary_search(live->holds.begin(), live->holds.end(), tag))
                continue;
            Step step;
            step.phase = Phase::Snapshots;
            step.action = Action::Hold;
            step.object = name;
            step.property = "hold";
            step.words = {"zfs", "hold"};
            AddOperand(step.words, tag);
            step.words.push_back(name);
            step.willBe = tag;
            draft_.Add(std::move(step));
        }
        if (live != nullptr)
            for (const std::string& tag : live->holds)
                if (!std::binary_search(saved.holds.begin(), saved.holds.end(), tag))
                    draft_.Say(name, "the hold was not saved: " + tag);
    }

private:
    /// What was saved by its number, as nobody had it, is printed by a name when somebody has.
    void LeaveNumbersNamedNow(const DatasetPair& pair, const Grants& live, Grants& wanted) {
        for (auto saved = wanted.begin(); saved != wanted.end();) {
            const auto& [options, permissions] = *saved;
            auto named = live.end();
            if (IsByNumber(options) && live.find(options) == live.end())
                named = std::find_if(live.begin(), live.end(), [&](const auto& candidate) {
                    return IsSameKind(saved->first, candidate.first) &&
                           candidate.second == saved->second &&
                           wanted.find(candidate.first) == wanted.end();
                });
            if (named == live.end()) {
                ++saved;
                continue;
            }
            draft_.CannotDo(pair.name, "permissions", TextOf(options, permissions), std::nullopt,
                            "nobody had the number, and " + named->first.back() +
                                " has the same: give it by its number if that is another");
            wanted[named->first] = permissions;
            saved = wanted.erase(saved);
        }
    }

    void SetQuota(const DatasetPair& pair, const Quota& quota, std::string was) {
        const ToolsState& tools = input_.Tools();
        std::vector<std::string_view> features;
        if (quota.owner == Quota::Owner::Project)
            features.emplace_back("project_quota");
        if (quota.isOfObjects)
            features.emplace_back("userobj_accounting");
        std::string reason;
        if (quota.isOfObjects && !tools.hasObjectQuotas)
            reason = "this host's tools have no quotas of objects";
        else if (quota.owner == Quota::Owner::Project && !tools.hasProjectQuotas)
            reason = "this host's tools have no quotas of projects";
        else if (!util::str_is_integer(quota.id) && tools.system != "SunOS")
            reason = "a Windows identity has no number here";
        for (const std::string_view feature : features)
            if (reason.empty() && LacksFeature(input_, draft_, pair.name, feature))
                reason = TextOfLacking(feature);
        if (!reason.empty()) {
            draft_.CannotDo(pair.name, quota.PropertyName(), util::str(quota.limit), std::nullopt,
                            std::move(reason));
            return;
        }
        const auto step =
            AddQuota(pair, quota.PropertyName(), std::move(was), util::str(quota.limit), "");
        for (const std::string_view feature : features)
            draft_.Need(step, draft_.EnablerOf(pair.name, feature));
    }

    PlanDraft::StepId AddQuota(const DatasetPair& pair, const std::string& property,
                               std::string was, std::string willBe, std::string why) {
        Step step;
        step.phase = Phase::Quotas;
        step.action = Action::Set;
        step.object = pair.name;
        step.property = property;
        step.words = {"zfs", "set", property + "=" + (willBe == "0" ? "none" : willBe), pair.name};
        step.was = std::move(was);
        step.willBe = std::move(willBe);
        step.why = std::move(why);
        return draft_.Add(std::move(step));
    }

    static std::string TextOf(const std::vector<std::string>& options,
                              const std::set<std::string>& permissions) {
        std::string text;
        for (const std::string& option : options)
            text += option + " ";
        return text + Joined(permissions);
    }

    void PlanUserProperties(const std::string& name, const SnapshotState& saved,
                            const SnapshotState* live) {
        static const std::vector<PropertyValue> nothing;
        const std::vector<PropertyValue>& there = live == nullptr ? nothing : live->userProperties;
        for (const PropertyValue& property : saved.userProperties) {
            const PropertyValue* now = FindProperty(there, property.Name());
            if (now != nullptr && now->Value() == property.Value())
                continue;
            if (!property.IsExact() || (now != nullptr && !now->IsExact())) {
                draft_.CannotDo(name, property.Name(), std::string(property.Value()), std::nullopt,
                                "its value is not certain: " +
                                    (property.IsExact() ? now->Doubt() : property.Doubt()));
                continue;
            }
            Step step = UserPropertyStep(name, property.Name(), Action::Set);
            step.words = {"zfs", "set"};
            AddOperand(step.words, property.Name() + "=" + std::string(property.Value()));
            step.words.push_back(name);
            if (now != nullptr)
                step.was = std::string(now->Value());
            step.willBe = std::string(property.Value());
            draft_.Add(std::move(step));
        }
        for (const PropertyValue& property : there) {
            if (FindProperty(saved.userProperties, property.Name()) != nullptr)
                continue;
            Step step = UserPropertyStep(name, property.Name(), Action::Inherit);
            step.words = {"zfs", "inherit"};
            AddOperand(step.words, property.Name());
            step.words.push_back(name);
            step.was = std::string(property.Value());
            step.why = "was not set";
            draft_.Add(std::move(step));
        }
    }

    static Step UserPropertyStep(const std::string& snapshot, const std::string& property,
                                 Action action) {
        Step step;
        step.phase = Phase::Snapshots;
        step.action = action;
        step.object = snapshot;
        step.property = property;
        return step;
    }

    const PlanInput& input_;
    PlanDraft& draft_;
};

} // namespace

void PlanGrants(const PlanInput& input, DatasetPairs& pairs, PlanDraft& draft) {
    GrantPlanner planner(input, draft);
    for (const DatasetPair& pair : pairs.All()) {
        planner.PlanQuotas(pair);
        planner.PlanPermissions(pair);
    }
    for (const SnapshotState& saved : input.saved.snapshots)
        if (pairs.Find(saved.name.substr(0, saved.name.find('@'))) != nullptr)
            planner.PlanSnapshot(saved);
    std::set<std::string, std::less<>> known;
    for (const SnapshotState& saved : input.saved.snapshots)
        known.insert(input.options.NewName(saved.name));
    for (const SnapshotState& live : input.live.state.snapshots)
        if (pairs.FindLive(live.name.substr(0, live.name.find('@'))) != nullptr &&
            known.find(live.name) == known.end())
            draft.Say(live.name, "was not saved");
}

} // namespace zfslib::restore::internal
