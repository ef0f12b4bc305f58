// Child processes, and how many of them an enumeration takes.

#include "executors/BatchingExecutor.h"
#include "executors/PrefetchingExecutor.h"
#include "posix/CSimpleCmdExec.h"
#include "zfstools/ZfsDatasetEnumerator.h"

#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdlib>
#include <spawn.h>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using namespace zfslib;
using benchmark::State;

/// The least that runs a program and reads its output.
bool RunBare() {
    int ends[2];
    if (pipe(ends) != 0)
        return false;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, ends[0]);
    posix_spawn_file_actions_addclose(&actions, ends[1]);
    char program[] = "/bin/true";
    char* words[] = {program, nullptr};
    char* environment[] = {nullptr};
    pid_t pid = -1;
    const int error = posix_spawn(&pid, program, &actions, nullptr, words, environment);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);
    char buffer[4096];
    while (error == 0 && read(ends[0], buffer, sizeof buffer) > 0) {
    }
    close(ends[0]);
    int status = -1;
    return error == 0 && waitpid(pid, &status, 0) == pid && status == 0;
}

/// How many seconds it takes.
template <typename Action>
double Time(const Action& action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Bare children and ours take turns, so that whatever slows the machine for a while slows both.
/// The argument says whether the parent is large; once it is, it stays so.
void Children(State& state) {
    static std::vector<char> ballast;
    if (state.range(0) != 0 && ballast.empty()) {
        const char* const gibibytes = std::getenv("ZFSLIB_BENCH_RESIDENT_GIB");
        ballast.resize((gibibytes == nullptr ? 4 : std::strtoul(gibibytes, nullptr, 10)) << 30);
    }
    double bare = 0;
    double ours = 0;
    std::string error;
    std::string output;
    for (auto _ : state) {
        bare += Time([&state] {
            if (!RunBare())
                state.SkipWithError("/bin/true cannot be run");
        });
        ours += Time([&error, &output] {
            posix::CSimpleCmdExec::RunCommandAndGetOutput("/bin/true", {}, error, output, false, 0);
        });
    }
    state.counters["bare"] = bare / static_cast<double>(state.iterations());
    state.counters["ours"] = ours / static_cast<double>(state.iterations());
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Children)->Arg(0)->Arg(1)->Iterations(200)->UseRealTime();

std::string RunFake(std::string command) {
    constexpr std::string_view realProgram = "/usr/bin/env -i zfs";
    return Executors::ChildProcessExecute(command.replace(0, realProgram.size(), FAKE_ZFS));
}

/// The enumeration of FAKE_ZFS_DATASETS datasets; the argument is how many names a command may
/// have, 0 for no batching.
void Enumerate(State& state) {
    std::size_t commands = 0;
    const CommandExecutor fake = [&commands](const std::string& command) {
        ++commands;
        return RunFake(command);
    };
    Executors::SetProcessExecutor(fake); // asked for the quotas
    executors::BatchingOptions options;
    options.namesPerCommand = static_cast<std::size_t>(state.range(0));
    for (auto _ : state) {
        const auto [datasets, warnings] =
            ZfsDatasetEnumerator().Enumerate("tank", executors::BatchingExecutor(fake, options));
        if (datasets.size() != FAKE_ZFS_DATASETS || !warnings.empty())
            state.SkipWithError("not all datasets were read");
    }
    Executors::SetProcessExecutor(&Executors::ChildProcessExecute);
    state.SetItemsProcessed(state.iterations() * FAKE_ZFS_DATASETS);
    state.counters["commands"] = static_cast<double>(commands);
}
BENCHMARK(Enumerate)->Arg(0)->Arg(256)->Iterations(1)->Repetitions(1)->UseRealTime();

/// The enumeration of as many datasets in 100 filesystems, in batches. The arguments are the number
/// of workers and how many milliseconds away the host is.
void EnumerateAhead(State& state) {
    const auto distance = std::chrono::milliseconds(state.range(1));
    executors::PrefetchingOptions options;
    options.workers = static_cast<std::size_t>(state.range(0));
    for (auto _ : state) {
        const CommandExecutor executor = executors::PrefetchingExecutor(
            [distance](std::string command) {
                std::this_thread::sleep_for(distance);
                return RunFake(std::move(command));
            },
            options);
        Executors::SetProcessExecutor(executor);
        const auto [datasets, warnings] = ZfsDatasetEnumerator().Enumerate("many", executor);
        if (datasets.size() != FAKE_ZFS_DATASETS || !warnings.empty())
            state.SkipWithError("not all datasets were read");
    }
    Executors::SetProcessExecutor(&Executors::ChildProcessExecute);
    state.SetItemsProcessed(state.iterations() * FAKE_ZFS_DATASETS);
}
BENCHMARK(EnumerateAhead)
    ->Args({0, 0})
    ->Args({2, 0})
    ->Args({0, 20})
    ->Args({8, 20})
    ->Iterations(1)
    ->UseRealTime();

} // namespace
