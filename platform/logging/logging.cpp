#include "logging/logging.h"

#include <atomic>
#include <memory>

namespace logging {
namespace {

constexpr int silent = static_cast<int>(Level::error) + 1;

// Both are constant-initialised, so that sections of other sources may log while the process is
// still starting.
std::atomic<int> lowestLevel{silent};
std::shared_ptr<const Sink> currentSink;

} // namespace

void SetSink(Sink sink, Level threshold) {
    const bool isEmpty = !sink;
    std::atomic_store(&currentSink, isEmpty ? std::shared_ptr<const Sink>()
                                            : std::make_shared<const Sink>(std::move(sink)));
    lowestLevel = isEmpty ? silent : static_cast<int>(threshold);
}

bool IsEnabled(Level level) noexcept {
    return static_cast<int>(level) >= lowestLevel.load(std::memory_order_relaxed);
}

std::string Describe(const std::exception& error) {
    std::string text = error.what();
    // Not std::rethrow_if_nested: it ends the process for an exception that could have a cause and
    // has none.
    const auto* nested = dynamic_cast<const std::nested_exception*>(&error);
    if (nested == nullptr || nested->nested_ptr() == nullptr)
        return text;
    try {
        nested->rethrow_nested();
    } catch (const std::exception& cause) {
        text += ": " + Describe(cause);
    } catch (...) {
        text += ": unknown error";
    }
    return text;
}

log_section_t::log_section_t(std::string name) : name_(std::move(name)) {}

void log_section_t::Send(Level level, const std::string& message) const {
    const std::shared_ptr<const Sink> sink = std::atomic_load(&currentSink);
    if (!sink)
        return;
    try {
        (*sink)(level, name_, message);
    } catch (...) { // NOLINT(bugprone-empty-catch)
        // A broken log must not turn a command that ran into one that failed.
    }
}

trace_t::~trace_t() {
    if (!ok_ || text_.empty())
        return;
    try {
        section_.dbg("Done: %1", text_);
    } catch (...) { // NOLINT(bugprone-empty-catch)
        // No memory for a log line; the scope itself went well.
    }
}

} // namespace logging
