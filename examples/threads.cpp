// Enumerates the pools of a host at the same time, one thread and one enumerator each.

#include "executors/BatchingExecutor.h"
#include "executors/ReplayingExecutor.h"
#include "zfstools/ZfsDatasetEnumerator.h"
#include "zfstools/ZpoolsEnumerator.h"

#include <future>
#include <iostream>

using namespace zfslib;

std::vector<ZfsDataset> DatasetsOf(const std::string& pool, const CommandExecutor& executor) {
    // A batching executor serves one enumeration at a time, so each has its own.
    return ZfsDatasetEnumerator().Enumerate(pool, executors::BatchingExecutor(executor)).first;
}

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: threads RECORDING\n";
        return 2;
    }
    const CommandExecutor executor = executors::Replayer(argv[1]).Executor();
    Executors::SetProcessExecutor(executor); // before the threads start: it is set without a lock
    const std::vector<Zpool> pools = ZpoolEnumerator::Enumerate(executor);
    std::vector<std::future<std::vector<ZfsDataset>>> datasets;
    for (const Zpool& pool : pools)
        datasets.push_back(std::async(std::launch::async, DatasetsOf, pool.name, executor));
    for (std::size_t i = 0; i < pools.size(); ++i)
        std::cout << pools[i].name << " has " << datasets[i].get().size() << " datasets\n";
}
