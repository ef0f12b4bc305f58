#pragma once

#include <cstdint>
#include <string>

namespace inspect {

/// A number of bytes as the tools print it: "512", "13.3M", "20G"; units are powers of 1024.
[[nodiscard]] std::string FormatSize(std::uint64_t bytes);

} // namespace inspect
