#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <unordered_set>
#include <vector>

namespace inspect {

/// What the tools write to standard error while they succeed: a loader's warning, an audit line.
/// It is kept until the object goes, so that it does not get into a line of progress, and then
/// given to `print`, each text once. What they say of having nothing to list is left out.
class ToolWarnings {
public:
    explicit ToolWarnings(std::function<void(const std::string& text)> print)
        : print_(std::move(print)) {}
    ~ToolWarnings();
    ToolWarnings(const ToolWarnings&) = delete;
    ToolWarnings& operator=(const ToolWarnings&) = delete;

    /// May be called by several threads at once.
    void Add(const std::string& text);

private:
    const std::function<void(const std::string& text)> print_;
    std::mutex mutex_;
    std::unordered_set<std::string> known_;
    std::vector<std::string> texts_; ///< those that are known, in order
};

} // namespace inspect
