#pragma once

#include "inspect/Report.h"

#include <ostream>

namespace inspect {

/// Prints a report as one JSON document, which docs/json.md describes field by field.
void PrintJson(std::ostream& out, const Report& report);

} // namespace inspect
