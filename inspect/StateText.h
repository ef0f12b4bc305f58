#pragma once

#include "inspect/StateReport.h"

#include <ostream>

namespace inspect {

/// Prints a host's state for people: values exactly, escaped, and in double quotes where their ends
/// could not be seen.
void PrintStateText(std::ostream& out, const StateReport& report);

} // namespace inspect
