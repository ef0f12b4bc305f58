#include "posix/CUserInfo.h"

#include "exc/exc.h"
#include "posix/internal/ErrorText.h"

#include <cerrno>
#include <grp.h>
#include <pwd.h>
#include <vector>

namespace posix {
namespace {

/// The entry of `name`, by one of the re-entrant look-ups getpwnam_r and getgrnam_r; its strings
/// are gone on return, only its numbers are of use. `kind` is the word for the errors.
template <typename Entry>
Entry LookUp(const char* kind, const std::string& name,
             int (*find)(const char*, Entry*, char*, std::size_t, Entry**)) {
    if (name.find('\0') != std::string::npos) // the look-up would see another, shorter name
        throw exc::CRuntimeExc("Unknown %1: [%2].", kind, name);
    constexpr std::size_t firstSize = 1024;
    constexpr std::size_t largestSize =
        std::size_t{16} * 1024 * 1024; // a group of half a million members
    std::vector<char> buffer(firstSize);
    for (;;) {
        Entry entry{};
        Entry* found = nullptr;
        const int error = find(name.c_str(), &entry, buffer.data(), buffer.size(), &found);
        if (error == EINTR)
            continue;
        if (error == ERANGE && buffer.size() < largestSize) {
            buffer.resize(buffer.size() * 2);
            continue;
        }
        if (found != nullptr)
            return entry;
        // Databases differ in how they say "no such name": success without an entry, or one of
        // these.
        if (error == 0 || error == ENOENT || error == ESRCH)
            throw exc::CRuntimeExc("Unknown %1: [%2].", kind, name);
        throw exc::CRuntimeExc("Cannot look up %1 [%2]: %3", kind, name,
                               internal::ErrorText(error));
    }
}

} // namespace

CUserInfo::CUserInfo(const std::string& name)
    : uid_(LookUp<struct passwd>("user", name, getpwnam_r).pw_uid) {}

CGroupInfo::CGroupInfo(const std::string& name)
    : gid_(LookUp<struct group>("group", name, getgrnam_r).gr_gid) {}

} // namespace posix
