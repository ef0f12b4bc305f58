#pragma once

#include "inspect/Json.h"
#include "inspect/PlanReport.h"

#include <ostream>

namespace inspect {

/// Prints what a plan changes, for people: object by object, exactly, escaped.
void PrintPlanText(std::ostream& out, const PlanReport& report);

/// Prints the script that runs the plan.
void PrintPlanScript(std::ostream& out, const PlanReport& report);

/// A plan, as docs/json.md describes it.
[[nodiscard]] Json PlanJson(const PlanReport& report);

} // namespace inspect
