#include "restore/Plan.h"

#include "util/str.h"

#include <algorithm>

namespace zfslib::restore {
namespace {

/// Whether a name is `top` or stands below it: a dataset, or a snapshot.
bool IsWithin(std::string_view name, std::string_view top) {
    return util::str_is_starts_with(name, top) &&
           (name.size() == top.size() || name[top.size()] == '/' || name[top.size()] == '@');
}

} // namespace

std::string PlanOptions::NewName(std::string_view saved) const {
    const std::pair<const std::string, std::string>* best = nullptr;
    for (const auto& rename : renames)
        if (IsWithin(saved, rename.first) &&
            (best == nullptr || rename.first.size() > best->first.size()))
            best = &rename;
    if (best == nullptr)
        return std::string(saved);
    return best->second + std::string(saved.substr(best->first.size()));
}

bool PlanOptions::IsWanted(std::string_view saved) const {
    return roots.empty() || std::any_of(roots.begin(), roots.end(), [&](const std::string& root) {
               return IsWithin(saved, root);
           });
}

} // namespace zfslib::restore
