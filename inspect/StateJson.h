#pragma once

#include "inspect/Json.h"
#include "inspect/StateReport.h"

#include <string_view>

namespace inspect {

/// A host's state, as docs/json.md describes it.
[[nodiscard]] Json StateJson(const StateReport& report);

/// Bytes without loss: a string where they are UTF-8, else {"base64": "..."}.
[[nodiscard]] Json BytesJson(std::string_view bytes);

} // namespace inspect
