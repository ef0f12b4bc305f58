#include "inspect/PlanView.h"
#include "inspect/StateJson.h"

#include <cstddef>
#include <optional>
#include <string>

namespace inspect {
namespace {

using namespace zfslib::restore;

const char* PhaseText(Phase phase) {
    switch (phase) {
    case Phase::Pools:
        return "pools";
    case Phase::PoolProperties:
        return "poolProperties";
    case Phase::Datasets:
        return "datasets";
    case Phase::Properties:
        return "properties";
    case Phase::Limits:
        return "limits";
    case Phase::Quotas:
        return "quotas";
    case Phase::Snapshots:
        return "snapshots";
    case Phase::Unmounts:
        return "unmounts";
    case Phase::Mountpoints:
        return "mountpoints";
    case Phase::Mounts:
        return "mounts";
    case Phase::Shares:
        return "shares";
    }
    return "";
}

const char* ActionText(Action action) {
    switch (action) {
    case Action::Create:
        return "create";
    case Action::Import:
        return "import";
    case Action::Add:
        return "add";
    case Action::Set:
        return "set";
    case Action::Inherit:
        return "inherit";
    case Action::LoadKey:
        return "loadKey";
    case Action::ChangeKey:
        return "changeKey";
    case Action::Mount:
        return "mount";
    case Action::Unmount:
        return "unmount";
    case Action::Share:
        return "share";
    case Action::Hold:
        return "hold";
    case Action::Allow:
        return "allow";
    }
    return "";
}

Json OptionalBytes(const std::optional<std::string>& bytes) {
    return bytes ? BytesJson(*bytes) : Json();
}

Json BytesOrNull(const std::string& bytes) {
    return bytes.empty() ? Json() : BytesJson(bytes);
}

Json StepJson(const Step& step, std::size_t number) {
    return {{"number", number},
            {"phase", PhaseText(step.phase)},
            {"beforeData", IsBeforeData(step.phase)},
            {"action", ActionText(step.action)},
            {"object", BytesJson(step.object)},
            {"device", BytesOrNull(step.device)},
            {"property", BytesOrNull(step.property)},
            {"words", Array(step.words, BytesJson)},
            {"diskWords", step.diskWords},
            {"was", OptionalBytes(step.was)},
            {"willBe", OptionalBytes(step.willBe)},
            {"why", BytesOrNull(step.why)},
            {"asksFor", BytesOrNull(step.asksFor)},
            {"pinned", step.isPinned},
            {"needs", Array(step.needs, [](std::size_t place) { return place + 1; })}};
}

Json OriginJson(const StateOrigin& origin) {
    return {{"host", origin.host}, {"readAt", origin.readAt}, {"roots", origin.roots}};
}

} // namespace

Json PlanJson(const PlanReport& report) {
    const Plan& plan = report.plan;
    Json steps = Json::array();
    for (const Step& step : plan.steps)
        steps.push_back(StepJson(step, steps.size() + 1));
    return {{"saved", OriginJson(report.saved)},
            {"live", OriginJson(report.live)},
            {"steps", std::move(steps)},
            {"cannot", Array(plan.cannot,
                             [](const Cannot& cannot) {
                                 return Json{{"object", BytesJson(cannot.object)},
                                             {"property", BytesOrNull(cannot.property)},
                                             {"saved", OptionalBytes(cannot.saved)},
                                             {"live", OptionalBytes(cannot.live)},
                                             {"reason", BytesJson(cannot.reason)}};
                             })},
            {"mentioned", Array(plan.mentioned,
                                [](const Mention& mention) {
                                    return Json{{"object", BytesJson(mention.object)},
                                                {"text", BytesJson(mention.text)}};
                                })},
            {"warnings", report.warnings}};
}

} // namespace inspect
