#include "inspect/Operands.h"

#include "util/str.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace inspect {
namespace {

constexpr std::size_t longestName = 255;

bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool IsNameCharacter(char c) {
    return IsLetter(c) || (c >= '0' && c <= '9') || c == '_' || c == '-' || c == '.' || c == ':';
}

std::string RefusedComponent(std::string_view component, bool mayHaveBlanks = false) {
    if (component.empty())
        return "a component is empty";
    if (component == "." || component == "..")
        return "\".\" and \"..\" are no components";
    if (!std::all_of(component.begin(), component.end(), [mayHaveBlanks](char c) {
            return IsNameCharacter(c) || (mayHaveBlanks && c == ' ');
        }))
        return "only letters, digits and \"_\", \"-\", \".\", \":\" may stand in a component";
    return {};
}

/// What holds for every name as a whole, and for the pool at its front.
std::string RefusedName(std::string_view name, bool mayHaveBlanks = false) {
    if (name.empty())
        return "the name is empty";
    if (name.size() > longestName)
        return "the name is longer than 255 characters";
    if (!mayHaveBlanks && std::any_of(name.begin(), name.end(), util::IsSpace))
        return "names with white space cannot be passed on to the tools";
    if (!IsLetter(name.front()))
        return "a pool's name begins with a letter";
    return {};
}

/// The first reason against a component up to the end or a "/".
std::string RefusedComponents(std::string_view name, bool mayHaveBlanks = false) {
    while (true) {
        const std::size_t slash = name.find('/');
        std::string reason = RefusedComponent(name.substr(0, slash), mayHaveBlanks);
        if (!reason.empty() || slash == std::string_view::npos)
            return reason;
        name.remove_prefix(slash + 1);
    }
}

} // namespace

std::string RefusedPool(const std::string& name) {
    const std::string reason = RefusedName(name);
    return reason.empty() ? RefusedComponent(name) : reason;
}

std::string RefusedDataset(const std::string& name) {
    std::string reason = RefusedName(name);
    const std::size_t at = name.find('@');
    if (reason.empty())
        reason = RefusedComponents(std::string_view(name).substr(0, at));
    if (reason.empty() && at != std::string::npos)
        reason = RefusedComponent(std::string_view(name).substr(at + 1));
    return reason;
}

std::string RefusedHost(const std::string& host) {
    if (host.empty())
        return "the host is empty";
    if (host.front() == '-')
        return "it would be an option of ssh";
    if (std::any_of(host.begin(), host.end(), util::IsSpace))
        return "there is white space in it";
    return {};
}

std::string RefusedRoot(const std::string& name) {
    const std::string reason = RefusedName(name, true);
    return reason.empty() ? RefusedComponents(name, true) : reason;
}

std::string RefusedPath(const std::string& path) {
    if (path.empty())
        return "the path is empty";
    if (path.front() != '/')
        return "the path is not absolute";
    return {};
}

} // namespace inspect
