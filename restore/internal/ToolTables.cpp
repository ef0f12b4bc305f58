#include "restore/internal/ToolTables.h"

#include "util/str.h"

#include <string>

namespace zfslib::restore::internal {
namespace {

/// Without white space at either end.
std::string_view Trim(std::string_view text) {
    while (!text.empty() && util::IsSpace(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && util::IsSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

} // namespace

CommandUsages ReadUsages(std::string_view text) {
    CommandUsages usages;
    std::string* current = nullptr;
    while (!text.empty()) {
        std::string_view line = util::ConsumeLine(text);
        if (line.size() < 2 || line.front() != '\t') {
            current = nullptr;
            continue;
        }
        if (util::IsSpace(line[1])) {
            if (current != nullptr)
                *current += " " + std::string(Trim(line));
            continue;
        }
        const std::string_view command = util::ConsumeWord(line);
        const auto [usage, isNew] = usages.try_emplace(std::string(command));
        current = &usage->second;
        *current += (isNew ? "" : "\n") + std::string(Trim(line));
    }
    return usages;
}

PropertyRules ReadPropertyTable(std::string_view text) {
    PropertyRules rules;
    bool isInTable = false;
    bool hasInherit = false;
    while (!text.empty()) {
        std::string_view line = util::ConsumeLine(text);
        const std::string_view name = util::ConsumeWord(line);
        const std::string_view edit = util::ConsumeWord(line);
        if (name == "PROPERTY" && edit == "EDIT") {
            isInTable = true;
            hasInherit = util::ConsumeWord(line) == "INHERIT";
        } else if (isInTable && (edit == "YES" || edit == "NO")) {
            PropertyRule& rule = rules[std::string(name)];
            rule.isEditable = edit == "YES";
            rule.isInheritable = hasInherit && util::ConsumeWord(line) == "YES";
            rule.values = Trim(line);
        }
    }
    return rules;
}

} // namespace zfslib::restore::internal
