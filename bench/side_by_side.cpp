// What users would take in place of the library, on one invented host in one run: `zfs get -rHp
// all` through awk into a table, and through Python into a dictionary. All of them, and the
// library, end with every property of FAKE_ZFS_DATASETS datasets at hand by name.

#include "executors/PrefetchingExecutor.h"
#include "zfstools/ZfsDatasetEnumerator.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <spawn.h>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace zfslib;

/// Of one way to read the host.
struct Cost {
    double seconds = 0;
    long peakKilobytes = 0; ///< of the largest of its processes
};

struct Way {
    const char* name;
    std::vector<std::string> words; ///< of the program
    int commands;                   ///< of `zfs`, as long as it is not the library's
};

/// The library's way, as a process of its own. Prints how many commands it took.
int ReadWithLibrary() {
    std::atomic<int> commands{0};
    const CommandExecutor fake = [&commands](std::string command) {
        constexpr std::string_view realProgram = "/usr/bin/env -i zfs";
        ++commands;
        return Executors::ChildProcessExecute(command.replace(0, realProgram.size(), FAKE_ZFS));
    };
    executors::PrefetchingOptions options;
    options.workers = 2;
    const CommandExecutor executor = executors::PrefetchingExecutor(fake, options);
    Executors::SetProcessExecutor(executor);
    const auto [datasets, warnings] = ZfsDatasetEnumerator().Enumerate("many", executor);
    std::printf("%d\n", commands.load());
    return datasets.size() == FAKE_ZFS_DATASETS && warnings.empty() ? EXIT_SUCCESS : EXIT_FAILURE;
}

/// Runs a way and waits for it. `output` receives what it printed.
Cost Run(const std::vector<std::string>& words, std::string& output) {
    std::vector<char*> argv;
    for (const std::string& word : words)
        argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    int ends[2];
    if (pipe(ends) != 0)
        std::abort();
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], 1);
    posix_spawn_file_actions_addclose(&actions, ends[0]);
    posix_spawn_file_actions_addclose(&actions, ends[1]);
    const auto start = std::chrono::steady_clock::now();
    pid_t pid = -1;
    char* environment[] = {const_cast<char*>("PATH=/usr/bin:/bin"), nullptr};
    const int error = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environment);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    char buffer[4096];
    output.clear();
    for (ssize_t count = 0; error == 0 && (count = read(ends[0], buffer, sizeof buffer)) > 0;)
        output.append(buffer, static_cast<std::size_t>(count));
    close(ends[0]);
    int status = -1;
    rusage usage{};
    if (error != 0 || wait4(pid, &status, 0, &usage) != pid || status != 0) {
        std::fprintf(stderr, "%s failed\n", words.back().c_str());
        std::exit(EXIT_FAILURE);
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
    return {taken.count(), usage.ru_maxrss};
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::string_view(argv[1]) == "library")
        return ReadWithLibrary();
    const std::string get = FAKE_ZFS " get -rHp all many";
    const Way ways[] = {
        {"the library, 2 workers", {argv[0], "library"}, 0},
        {"`zfs get -rHp all` and awk",
         {"sh", "-c",
          get + " | awk -F'\\t' '{ value[$1, $2] = $3; source[$1, $2] = $4; seen[$1] = 1 } "
                "END { n = 0; for (d in seen) n++; print n }'"},
         1},
        {"`zfs get -rHp all` and Python",
         {"python3", "-c",
          "import subprocess\n"
          "host = {}\n"
          "text = subprocess.run('" +
              get +
              "'.split(), capture_output=True, text=True).stdout\n"
              "for line in text.split('\\n')[:-1]:\n"
              "    name, prop, value, source = line.split('\\t')\n"
              "    host.setdefault(name, {})[prop] = (value, source)\n"
              "print(len(host))\n"},
         1},
    };
    std::printf("| %zu datasets, 66 rows each | time | commands | peak memory |\n"
                "| --- | --- | --- | --- |\n",
                static_cast<std::size_t>(FAKE_ZFS_DATASETS));
    Cost library;
    for (const Way& way : ways) {
        Cost best{1e9, 0};
        std::string output;
        for (int repetition = 0; repetition < 5; ++repetition) {
            const Cost cost = Run(way.words, output);
            best = {std::min(best.seconds, cost.seconds),
                    std::max(best.peakKilobytes, cost.peakKilobytes)};
        }
        const int number = std::atoi(output.c_str());
        if (way.commands == 0)
            library = best;
        else if (number != FAKE_ZFS_DATASETS)
            std::fprintf(stderr, "%s read %d datasets\n", way.name, number);
        std::printf("| %s | %.2f | %d | %.2f |\n", way.name, best.seconds / library.seconds,
                    way.commands == 0 ? number : way.commands,
                    static_cast<double>(best.peakKilobytes) /
                        static_cast<double>(library.peakKilobytes));
    }
}
