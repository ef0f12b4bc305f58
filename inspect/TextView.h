#pragma once

#include "inspect/Report.h"

#include <ostream>

namespace inspect {

/// Prints a report for people: sizes rounded, text from outside escaped.
void PrintText(std::ostream& out, const Report& report);

} // namespace inspect
