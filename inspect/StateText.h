#pragma once

#include "inspect/StateReport.h"

#include <ostream>
#include <string>
#include <string_view>

namespace inspect {

/// Prints a host's state for people: values exactly, escaped, and in double quotes where their ends
/// could not be seen.
void PrintStateText(std::ostream& out, const StateReport& report);

/// A value in double quotes where its ends could not be seen, or where it could be taken for none.
[[nodiscard]] std::string ShownValue(std::string_view value);

} // namespace inspect
