#include "posix/internal/Spawn.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#ifndef ZFSLIB_HAVE_ADDCLOSEFROM
#include "util/str.h"
#include <dirent.h>
#include <memory>
#endif

namespace posix::internal {
namespace {

constexpr std::string_view childPath = "/usr/sbin:/usr/bin:/sbin:/bin";

/// For the functions that return their error.
void Require(int error, const char* operation) {
    if (error != 0)
        throw std::system_error(error, std::generic_category(), operation);
}

/// One of the two objects that describe a child to posix_spawn().
template <typename T, int (*Init)(T*), int (*Destroy)(T*)>
class SpawnObject {
public:
    SpawnObject() { Require(Init(&object_), "posix_spawn"); }
    ~SpawnObject() { Destroy(&object_); }
    SpawnObject(const SpawnObject&) = delete;
    SpawnObject& operator=(const SpawnObject&) = delete;
    T* Get() noexcept { return &object_; }

private:
    T object_;
};
using Attributes = SpawnObject<posix_spawnattr_t, posix_spawnattr_init, posix_spawnattr_destroy>;
using FileActions = SpawnObject<posix_spawn_file_actions_t, posix_spawn_file_actions_init,
                                posix_spawn_file_actions_destroy>;

void SetOwnGroupAndDefaultSignals(Attributes& attributes) {
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    // Nothing can be set for these two, and not every system lets that pass.
    sigdelset(&all, SIGKILL);
    sigdelset(&all, SIGSTOP);
    Require(posix_spawnattr_setpgroup(attributes.Get(), 0), "posix_spawnattr_setpgroup");
    Require(posix_spawnattr_setsigmask(attributes.Get(), &none), "posix_spawnattr_setsigmask");
    Require(posix_spawnattr_setsigdefault(attributes.Get(), &all), "posix_spawnattr_setsigdefault");
    Require(posix_spawnattr_setflags(attributes.Get(), POSIX_SPAWN_SETPGROUP |
                                                           POSIX_SPAWN_SETSIGMASK |
                                                           POSIX_SPAWN_SETSIGDEF),
            "posix_spawnattr_setflags");
}

#ifdef ZFSLIB_HAVE_ADDCLOSEFROM

void CloseAllOthers(FileActions& actions) {
    Require(posix_spawn_file_actions_addclosefrom_np(actions.Get(), STDERR_FILENO + 1),
            "posix_spawn_file_actions_addclosefrom_np");
}

#else

long DescriptorLimit() {
    constexpr long whenUnlimited = 65536;
    const long limit = sysconf(_SC_OPEN_MAX);
    return limit < 0 ? whenUnlimited : limit;
}

/// The numbers of all descriptors the process may have open, but none above the limit: a host may
/// have lowered that since, and then no action for a child can name them. They are inherited.
std::vector<int> PossibleDescriptors() {
    std::vector<int> numbers;
    const long limit = DescriptorLimit();
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir("/proc/self/fd"), closedir);
    if (directory == nullptr) { // slow where a host may have very many, but it needs nothing
        for (int number = 0; number < limit; ++number)
            numbers.push_back(number);
        return numbers;
    }
    while (const dirent* entry = readdir(directory.get())) // NOLINT(concurrency-mt-unsafe)
        if (util::str_is_integer(entry->d_name) && util::StringToInt(entry->d_name) < limit)
            numbers.push_back(util::StringToInt(entry->d_name));
    return numbers;
}

/// POSIX has no way to say "and everything above 2", so this closes what is open now and would be
/// inherited. What another thread opens without O_CLOEXEC between here and the start gets through;
/// only a lock around all of the host could prevent it.
void CloseAllOthers(FileActions& actions) {
    for (const int number : PossibleDescriptors()) {
        const int flags = number > STDERR_FILENO ? fcntl(number, F_GETFD) : -1;
        if (flags < 0 || (flags & FD_CLOEXEC) != 0)
            continue;
        // Another thread may have closed it by then, and to close what is not open may be an error;
        // put something there first.
        Require(posix_spawn_file_actions_adddup2(actions.Get(), STDIN_FILENO, number),
                "posix_spawn_file_actions_adddup2");
        Require(posix_spawn_file_actions_addclose(actions.Get(), number),
                "posix_spawn_file_actions_addclose");
    }
}

#endif

void SetDescriptors(FileActions& actions, const Descriptor& output, const Descriptor& error) {
    Require(posix_spawn_file_actions_addopen(actions.Get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0),
            "posix_spawn_file_actions_addopen");
    Require(posix_spawn_file_actions_adddup2(actions.Get(), output.Number(), STDOUT_FILENO),
            "posix_spawn_file_actions_adddup2");
    Require(posix_spawn_file_actions_adddup2(actions.Get(), error.Number(), STDERR_FILENO),
            "posix_spawn_file_actions_adddup2");
    CloseAllOthers(actions);
}

/// 0 when the file can be run, else the errno value that says why not.
int CheckProgram(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        return errno;
    if (!S_ISREG(status.st_mode))
        return ENOENT;
    return faccessat(AT_FDCWD, path.c_str(), X_OK, AT_EACCESS) == 0 ? 0 : errno;
}

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

} // namespace

std::string FindProgram(const std::string& program) {
    if (program.find('/') != std::string::npos)
        return program;
    int reason = ENOENT;
    std::string_view rest = childPath;
    while (!rest.empty()) {
        const std::string_view directory = rest.substr(0, rest.find(':'));
        rest.remove_prefix(std::min(rest.size(), directory.size() + 1));
        std::string path = std::string(directory) + "/" + program;
        const int error = CheckProgram(path);
        if (error == 0)
            return path;
        if (error == EACCES) // there is one, but it cannot be run: says more than "no such file"
            reason = EACCES;
    }
    throw std::system_error(reason, std::generic_category(), program);
}

pid_t Spawn(const std::string& path, std::vector<std::string> words, const Descriptor& output,
            const Descriptor& error) {
    Attributes attributes;
    SetOwnGroupAndDefaultSignals(attributes);
    FileActions actions;
    SetDescriptors(actions, output, error);
    std::vector<std::string> environment = {"PATH=" + std::string(childPath), "LC_ALL=C"};

    pid_t pid = -1;
    Require(posix_spawn(&pid, path.c_str(), actions.Get(), attributes.Get(), Pointers(words).data(),
                        Pointers(environment).data()),
            "posix_spawn");
    return pid;
}

} // namespace posix::internal
