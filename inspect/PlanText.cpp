#include "inspect/PlanView.h"

#include "inspect/StateText.h"
#include "inspect/Table.h"
#include "restore/Script.h"
#include "util/ShellWord.h"
#include "util/str.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace inspect {
namespace {

using namespace zfslib::restore;

/// What stands in front of a step.
char Sign(Action action) {
    switch (action) {
    case Action::Create:
    case Action::Import:
    case Action::Add:
    case Action::Hold:
    case Action::Allow:
        return '+';
    case Action::Inherit:
        return '<';
    default:
        return '~';
    }
}

std::string What(const Step& step) {
    switch (step.action) {
    case Action::Set:
    case Action::Inherit:
    case Action::LoadKey:
    case Action::ChangeKey:
        return step.device.empty() ? step.property : step.property + " of " + step.device;
    default:
        return step.words.at(1);
    }
}

/// Whether a step is about a pool, which has the name of its uppermost dataset.
bool IsOfPool(const Step& step) {
    return step.words.front() == "zpool";
}

std::string ShownOr(const char* none, const std::optional<std::string>& value) {
    return value ? ShownValue(*value) : none;
}

/// The old and the new value; of what has none the words behind the verb.
std::string Change(const Step& step) {
    const char sign = Sign(step.action);
    if (sign != '+' && (step.was || step.willBe))
        return ShownOr("none", step.was) + " -> " + ShownOr("?", step.willBe);
    if (sign != '+')
        return {};
    return util::ShellLine({step.words.begin() + 2, step.words.end()});
}

std::string Reason(const Step& step) {
    std::string reason = step.why;
    if (!step.asksFor.empty())
        reason += (reason.empty() ? "" : "; ") + ("asks for " + step.asksFor);
    return reason;
}

void PrintSteps(std::ostream& out, const std::vector<Step>& steps) {
    std::vector<const Step*> ordered;
    ordered.reserve(steps.size());
    for (const Step& step : steps)
        ordered.push_back(&step);
    std::stable_sort(ordered.begin(), ordered.end(), [](const Step* a, const Step* b) {
        return a->object == b->object ? IsOfPool(*a) && !IsOfPool(*b)
                                      : ComesBefore(a->object, b->object);
    });
    for (std::size_t first = 0; first < ordered.size();) {
        const Step& head = *ordered[first];
        Table heading;
        heading.Add({(IsOfPool(head) ? "pool " : "") + head.object});
        heading.Print(out, 0);
        Table table;
        for (; first < ordered.size(); ++first) {
            const Step& step = *ordered[first];
            if (step.object != head.object || IsOfPool(step) != IsOfPool(head))
                break;
            table.Add(
                {std::string(1, Sign(step.action)) + " " + What(step), Change(step), Reason(step)});
        }
        table.Print(out, indentStep);
    }
}

/// Prints each text that items have, in the order of the first of each, and below it the first few
/// that have it.
template <typename Item, typename TextOf, typename CellsOf>
void PrintGrouped(std::ostream& out, const std::vector<Item>& items, const std::string& sign,
                  TextOf&& textOf, CellsOf&& cellsOf) {
    constexpr std::size_t mostNamed = 5;
    std::unordered_map<std::string_view, std::size_t> groupOf;
    std::vector<std::vector<const Item*>> groups;
    for (const Item& item : items) {
        const auto [group, isNew] = groupOf.emplace(std::string_view(textOf(item)), groups.size());
        if (isNew)
            groups.emplace_back();
        groups[group->second].push_back(&item);
    }
    for (const std::vector<const Item*>& group : groups) {
        Table head;
        head.Add({sign + textOf(*group.front())});
        head.Print(out, indentStep);
        Table table;
        const std::size_t named = group.size() > mostNamed + 1 ? mostNamed : group.size();
        for (std::size_t i = 0; i < named; ++i)
            table.Add(cellsOf(*group[i]));
        if (named < group.size())
            table.Add({"and " + util::str(group.size() - named) + " more"});
        table.Print(out, 2 * indentStep);
    }
}

Table::Cells CannotCells(const Cannot& cannot) {
    Table::Cells cells = {cannot.object, cannot.property};
    if (cannot.saved)
        cells.push_back("saved " + ShownValue(*cannot.saved));
    if (cannot.live)
        cells.push_back("live " + ShownValue(*cannot.live));
    return cells;
}

void Count(std::string& line, std::size_t count, const std::string& what) {
    if (count != 0)
        line += (line.empty() ? "" : ", ") + util::str(count) + " " + what;
}

std::string Summary(const Plan& plan) {
    std::map<char, std::size_t> counts;
    for (const Step& step : plan.steps)
        ++counts[Sign(step.action)];
    std::string line = !plan.IsEmpty() ? "" : plan.cannot.empty() ? "nothing to do" : "no steps";
    Count(line, counts['+'], "to create or add");
    Count(line, counts['~'], "to set");
    Count(line, counts['<'], "to inherit");
    Count(line, plan.cannot.size(), "that cannot be done");
    Count(line, plan.mentioned.size(), "to mind");
    return line;
}

std::string OriginText(const StateOrigin& origin) {
    return origin.host + ", " + origin.readAt;
}

} // namespace

void PrintPlanText(std::ostream& out, const PlanReport& report) {
    const Plan& plan = report.plan;
    Table head;
    head.Add({"saved", OriginText(report.saved)});
    head.Add({"live", OriginText(report.live)});
    head.Print(out, 0);
    out << '\n';
    PrintSteps(out, plan.steps);
    if (!plan.cannot.empty())
        out << "cannot be done\n";
    PrintGrouped(
        out, plan.cannot, "! ",
        [](const Cannot& cannot) -> const std::string& { return cannot.reason; }, CannotCells);
    if (!plan.mentioned.empty())
        out << "to mind\n";
    PrintGrouped(
        out, plan.mentioned, "",
        [](const Mention& mention) -> const std::string& { return mention.text; },
        [](const Mention& mention) { return Table::Cells{mention.object}; });
    if (!plan.IsEmpty() || !plan.cannot.empty() || !plan.mentioned.empty())
        out << '\n';
    out << Summary(plan) << '\n';
}

void PrintPlanScript(std::ostream& out, const PlanReport& report) {
    out << PlanScript(report.plan, "Puts back what was saved of " + OriginText(report.saved) +
                                       ". Made for what stood on " + OriginText(report.live) +
                                       ", by zfsinspect " ZFSINSPECT_VERSION);
}

} // namespace inspect
