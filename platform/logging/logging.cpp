#include "logging/logging.h"

#include "util/internal/NeverDestroyed.h"
#include "util/internal/Replaceable.h"

#include <atomic>
#include <memory>
#include <utility>

namespace logging {
namespace {

/// What SetSink was given, together: a sink is never asked with another one's threshold.
struct Target {
    Sink sink;
    Level threshold;
};

constexpr int silent = static_cast<int>(Level::error) + 1;

/// The current target's threshold once more, for who has nothing to say. Constant-initialised, so
/// that sections of other sources may log while the process is still starting.
std::atomic<int> lowestLevel{silent};

util::internal::Replaceable<Target>& CurrentTarget() {
    static util::internal::NeverDestroyed<util::internal::Replaceable<Target>> target;
    return *target;
}

/// The names of all sections that were ever made: a section can be used for as long as the process
/// runs, also after its own destructor, and no lock is taken for it.
struct SectionName {
    const std::string text;
    const SectionName* const next;
};
std::atomic<const SectionName*> sectionNames{nullptr};

const std::string& KeepName(std::string name) {
    const SectionName* const first = sectionNames;
    for (const SectionName* known = first; known != nullptr; known = known->next)
        if (known->text == name)
            return known->text;
    // Another thread may add the same name meanwhile; it is then there twice.
    const SectionName* head = first;
    auto added = std::make_unique<const SectionName>(SectionName{std::move(name), head});
    while (!sectionNames.compare_exchange_weak(head, added.get()))
        added = std::make_unique<const SectionName>(SectionName{added->text, head});
    return added.release()->text;
}

} // namespace

void SetSink(Sink sink, Level threshold) {
    const int level = sink ? static_cast<int>(threshold) : silent;
    std::shared_ptr<const Target> target;
    if (sink)
        target = std::make_shared<const Target>(Target{std::move(sink), threshold});
    CurrentTarget().Set(std::move(target), [level] { lowestLevel = level; });
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

log_section_t::log_section_t(std::string name) : name_(&KeepName(std::move(name))) {}

void log_section_t::Send(Level level, const std::string& message) const {
    try {
        const std::shared_ptr<const Target> target = CurrentTarget().Get();
        if (target && level >= target->threshold)
            target->sink(level, Name(), message);
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
