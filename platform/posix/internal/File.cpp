#include "posix/internal/File.h"

#include "posix/internal/ErrorText.h"
#include "posix/internal/NoCancellation.h"
#include "util/str.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace posix::internal {
namespace {

void Require(bool ok) {
    if (!ok)
        throw std::runtime_error(ErrorText(errno));
}

void RefuseIf(bool bad, const std::string& reason) {
    if (bad)
        throw std::runtime_error(reason);
}

constexpr mode_t writableByOthers = S_IWGRP | S_IWOTH;
constexpr mode_t sticky = 01000; // S_ISVTX, which not every POSIX declares

/// Root can do what it likes anyway.
bool IsOurs(const struct stat& status) {
    return status.st_uid == 0 || status.st_uid == geteuid();
}

bool IsForAll(const struct stat& folder) {
    return (folder.st_mode & sticky) != 0 && (folder.st_mode & writableByOthers) != 0;
}

std::string LinkTarget(const std::string& link) {
    std::string target(4096, '\0');
    const ssize_t size = readlink(link.c_str(), target.data(), target.size());
    Require(size >= 0);
    target.resize(static_cast<std::size_t>(size));
    return target;
}

struct stat LinkStatus(const std::string& path) {
    struct stat status {};
    Require(lstat(path.c_str(), &status) == 0);
    return status;
}

/// Refuses a path when other users decide what it leads to. Checked from the root or the working
/// directory on, each folder vouches for the next name, so nobody changes it behind the check.
void CheckWay(const std::string& path, int linksLeft) {
    std::string folder = util::str_is_starts_with(path, "/") ? "/" : "./";
    struct stat status = LinkStatus(folder);
    std::string_view rest = path;
    for (;;) {
        RefuseIf(!IsOurs(status) || ((status.st_mode & writableByOthers) != 0 && !IsForAll(status)),
                 "another user may write to the folder [" + folder + "]");
        rest.remove_prefix(std::min(rest.find_first_not_of('/'), rest.size()));
        if (rest.empty())
            return;
        const std::string next = folder + std::string(rest.substr(0, rest.find('/')));
        rest.remove_prefix(std::min(rest.find('/'), rest.size()));
        const bool isForAll = IsForAll(status);
        status = LinkStatus(next);
        if (S_ISLNK(status.st_mode)) {
            RefuseIf(isForAll, "[" + next + "] is a symbolic link in a folder for all");
            RefuseIf(linksLeft == 0, ErrorText(ELOOP));
            const std::string target = LinkTarget(next);
            CheckWay(util::str_is_starts_with(target, "/") ? target : folder + target,
                     linksLeft - 1);
            Require(stat(next.c_str(), &status) == 0);
        }
        folder = next + "/";
    }
}

/// Refuses a file that another user could have put there, or can change.
void CheckOwner(const struct stat& status) {
    RefuseIf(!IsOurs(status), "it belongs to another user");
    if (!S_ISREG(status.st_mode))
        return;
    RefuseIf(status.st_uid != geteuid(), "it belongs to another user");
    RefuseIf(status.st_nlink != 1, "it has other names (hard links)");
    RefuseIf((status.st_mode & writableByOthers) != 0, "other users may write to it");
}

/// Opens where no thread of the host writes to by chance.
Descriptor Open(const std::string& path, int flags) {
    constexpr mode_t forTheOwner = S_IRUSR | S_IWUSR;
    for (;;) {
        const TakenStandardStreams taken;
        Descriptor file(open(path.c_str(), flags | O_CLOEXEC | O_NOCTTY, forTheOwner));
        Require(file.IsOpen());
        if (IsAboveStandardStreams(file))
            return file;
    }
}

struct stat Status(const Descriptor& file) {
    struct stat status {};
    Require(fstat(file.Number(), &status) == 0);
    return status;
}

/// The number of the process's own descriptor that the path stands for.
std::optional<int> OwnDescriptor(std::string_view path) {
    if (path == "/dev/stdout")
        return STDOUT_FILENO;
    if (path == "/dev/stderr")
        return STDERR_FILENO;
    constexpr std::string_view folder = "/dev/fd/";
    if (!util::str_is_starts_with(path, folder) ||
        !util::str_is_integer(path.substr(folder.size())))
        return std::nullopt;
    return util::StringToInt(path.substr(folder.size()));
}

/// While one lives, what a write raises does not reach the host.
class HeldWriteSignals {
public:
    HeldWriteSignals() noexcept {
        sigemptyset(&raised_);
        sigaddset(&raised_, SIGPIPE);
        sigaddset(&raised_, SIGXFSZ);
        sigset_t pending;
        sigpending(&pending);
        pthread_sigmask(SIG_BLOCK, &raised_, &former_);
        for (const int signal : {SIGPIPE, SIGXFSZ})
            if (sigismember(&pending, signal) == 1)
                sigdelset(&raised_, signal); // not from here
    }
    ~HeldWriteSignals() {
        const timespec atOnce{0, 0};
        while (sigtimedwait(&raised_, nullptr, &atOnce) >= 0 || errno == EINTR) {
        }
        pthread_sigmask(SIG_SETMASK, &former_, nullptr);
    }
    HeldWriteSignals(const HeldWriteSignals&) = delete;
    HeldWriteSignals& operator=(const HeldWriteSignals&) = delete;

private:
    sigset_t raised_{};
    sigset_t former_{};
};

} // namespace

OpenFile OpenToRead(const std::string& path) {
    const NoCancellation noCancellation;
    OpenFile file{Open(path, O_RDONLY), false};
    file.isRegular = S_ISREG(Status(file.descriptor).st_mode);
    return file;
}

OpenFile OpenToAppend(const std::string& path, bool anyPlace) {
    const NoCancellation noCancellation;
    if (const std::optional<int> own = OwnDescriptor(path)) {
        Descriptor copy(fcntl(*own, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
        Require(copy.IsOpen());
        return {std::move(copy), false};
    }
    if (!anyPlace)
        CheckWay(path.substr(0, path.rfind('/') + 1), 40);
    struct stat status {};
    const bool isNew = (anyPlace ? stat : lstat)(path.c_str(), &status) != 0;
    RefuseIf(!isNew && S_ISLNK(status.st_mode), "it is a symbolic link");
    const int access = isNew || S_ISREG(status.st_mode) ? O_RDWR | O_CREAT : O_WRONLY;
    Descriptor file = Open(path, access | O_APPEND | (anyPlace ? 0 : O_NOFOLLOW));
    status = Status(file);
    RefuseIf(S_ISBLK(status.st_mode), "it is a disk");
    if (!anyPlace)
        CheckOwner(status);
    return {std::move(file), S_ISREG(status.st_mode)};
}

void TakeLock(const Descriptor& file) {
    struct flock all {};
    all.l_type = F_WRLCK;
    all.l_whence = SEEK_SET;
    const bool taken = fcntl(file.Number(), F_SETLK, &all) == 0;
    RefuseIf(!taken && (errno == EACCES || errno == EAGAIN), "another process writes to it");
    Require(taken);
}

void ReadUpTo(const Descriptor& file, std::string& text, std::uint64_t size) {
    const NoCancellation noCancellation;
    std::array<char, 65536> block; // NOLINT(cppcoreguidelines-pro-type-member-init)
    while (text.size() < size) {
        const auto most = std::min<std::uint64_t>(size - text.size(), block.size());
        const ssize_t count = read(file.Number(), block.data(), static_cast<std::size_t>(most));
        if (count == 0)
            return;
        if (count > 0)
            text.append(block.data(), static_cast<std::size_t>(count));
        else
            Require(errno == EINTR);
    }
}

void WriteAll(const Descriptor& file, std::string_view text) {
    const NoCancellation noCancellation;
    const HeldWriteSignals heldSignals;
    while (!text.empty()) {
        const ssize_t count = write(file.Number(), text.data(), text.size());
        if (count >= 0) {
            text.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno == EAGAIN || errno == EWOULDBLOCK) { // a pipe of the host's
            pollfd end{file.Number(), POLLOUT, 0};
            poll(&end, 1, -1);
        } else {
            Require(errno == EINTR);
        }
    }
}

void Truncate(const Descriptor& file, std::uint64_t size) {
    Require(ftruncate(file.Number(), static_cast<off_t>(size)) == 0);
}

void Synchronize(const Descriptor& file) {
    const NoCancellation noCancellation;
    Require(fsync(file.Number()) == 0);
}

} // namespace posix::internal
