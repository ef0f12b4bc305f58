#pragma once

#include "../zfslib_export.h"

#include <string>
#include <sys/types.h>

namespace posix {

/// The user of a name, as the host's user database has it; looked up once, by the constructor.
class ZFSLIB_EXPORT CUserInfo {
public:
    /// Errors: exc::CRuntimeExc for an unknown name, or when the database cannot be read.
    explicit CUserInfo(const std::string& name);
    /// The user's number.
    [[nodiscard]] uid_t GetUID() const noexcept { return uid_; }

private:
    uid_t uid_;
};

/// The group of a name, as the host's group database has it; looked up once, by the constructor.
class ZFSLIB_EXPORT CGroupInfo {
public:
    /// Errors: exc::CRuntimeExc for an unknown name, or when the database cannot be read.
    explicit CGroupInfo(const std::string& name);
    /// The group's number.
    [[nodiscard]] gid_t GetGID() const noexcept { return gid_; }

private:
    gid_t gid_;
};

} // namespace posix
