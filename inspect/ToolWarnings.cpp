#include "inspect/ToolWarnings.h"

#include "util/str.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace inspect {
namespace {

bool SaysNothing(std::string_view line) {
    static constexpr std::array<std::string_view, 3> empty = {
        "no pools available", "no pools available to import", "no datasets available"};
    return std::all_of(line.begin(), line.end(), util::IsSpace) ||
           std::find(empty.begin(), empty.end(), line) != empty.end();
}

} // namespace

ToolWarnings::~ToolWarnings() {
    for (const std::string& text : texts_)
        print_(text);
}

void ToolWarnings::Add(const std::string& text) {
    std::string kept;
    std::string_view rest = text;
    while (!rest.empty()) {
        const std::string_view line = util::ConsumeLine(rest);
        if (!SaysNothing(line))
            kept.append(line).append("\n");
    }
    const std::lock_guard<std::mutex> lock(mutex_);
    if (!kept.empty() && known_.insert(kept).second)
        texts_.push_back(std::move(kept));
}

} // namespace inspect
