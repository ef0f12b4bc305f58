// Counts the heap that enumerated datasets take.

#include "HostText.h"
#include "executors/ReplayingExecutor.h"
#include "restore/HostStateReader.h"
#include "zfstools/ZfsDatasetEnumerator.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace {

std::size_t liveBytes = 0; // as requested, without what the allocator adds
std::size_t liveBlocks = 0;
std::size_t mostBytes = 0; // that were live at once

// In front of each block stands its size.
constexpr std::size_t headerSize = alignof(std::max_align_t);

} // namespace

void* operator new(std::size_t size) {
    void* const block = std::malloc(size + headerSize);
    if (block == nullptr)
        throw std::bad_alloc();
    *static_cast<std::size_t*>(block) = size;
    liveBytes += size;
    mostBytes = std::max(mostBytes, liveBytes);
    ++liveBlocks;
    return static_cast<char*>(block) + headerSize;
}

void operator delete(void* memory) noexcept {
    if (memory == nullptr)
        return;
    void* const block = static_cast<char*>(memory) - headerSize;
    liveBytes -= *static_cast<std::size_t*>(block);
    --liveBlocks;
    std::free(block);
}

void operator delete(void* memory, std::size_t) noexcept {
    operator delete(memory);
}

namespace {

using namespace zfslib;

std::vector<ZfsDataset> EnumerateRecordedHost() {
    const executors::Replayer host(ZFSLIB_RECORDINGS "/mirror-host.rec");
    Executors::SetProcessExecutor(host.Executor()); // asked for the quotas
    auto datasets = ZfsDatasetEnumerator().Enumerate("tank", host.Executor()).first;
    Executors::SetProcessExecutor(&Executors::ChildProcessExecute);
    return datasets;
}

std::vector<ZfsDataset> EnumerateInventedHost() {
    constexpr std::size_t count = 1000;
    const std::string list = bench::ListOutput(bench::DatasetNames(count));
    return ZfsDatasetEnumerator().extractDatasetFromOutput(
        list, ZfsDataset::snapshot, [](const std::string& command) {
            return bench::GetOutput({command.substr(command.rfind(' ') + 1)});
        });
}

void Print(const char* what, std::vector<ZfsDataset> (*enumerate)()) {
    const std::size_t bytesBefore = liveBytes;
    const std::size_t blocksBefore = liveBlocks;
    const std::vector<ZfsDataset> datasets = enumerate();
    const std::size_t count = datasets.size();
    const std::size_t beyond = liveBytes - bytesBefore - datasets.capacity() * sizeof(ZfsDataset);
    std::printf("| %-53s | %5zu | %6zu | %6zu | %4zu |\n", what, count,
                sizeof(ZfsDataset) + beyond / count, beyond / count,
                (liveBlocks - blocksBefore) / count);
}

/// The texts count from when the executor hands them over.
void PrintState() {
    constexpr std::size_t count = 100000;
    const bench::StateHost host(count);
    const std::size_t before = liveBytes;
    mostBytes = before;
    std::size_t textBytes = 0;
    const restore::HostState state =
        restore::ReadHostState({"tank"}, [&](const std::string& command) {
            std::string answer = host.Answer(command);
            textBytes += answer.size();
            return answer;
        });
    const auto share = [textBytes](std::size_t bytes) {
        return static_cast<double>(bytes) / static_cast<double>(textBytes);
    };
    std::printf(
        "\n| a state's heap / the text it was read from, %zu datasets | ratio | to reach |\n"
        "| --- | --- | --- |\n| kept | %.2f | |\n| at most, while it is read | %.2f | 1.50 |\n",
        state.datasets.size(), share(liveBytes - before), share(mostBytes - before));
}

} // namespace

int main() {
    EnumerateRecordedHost(); // what all datasets of a process share is made here
    std::printf("| %-53s | count | bytes  | beyond the record | blocks |\n"
                "| --- | --- | --- | --- | --- |\n",
                "heap per dataset");
    Print("recordings/mirror-host.rec, tank", EnumerateRecordedHost);
    Print("an invented host, 65 rows each", EnumerateInventedHost);
    PrintState();
}
