// Lists the pools and datasets of a recorded host.

#include "executors/ReplayingExecutor.h"
#include "zfstools/ZfsDatasetEnumerator.h"
#include "zfstools/ZpoolsEnumerator.h"

#include <exception>
#include <iostream>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: stranger RECORDING\n";
        return 2;
    }
    try {
        const zfslib::CommandExecutor executor = zfslib::executors::Replayer(argv[1]).Executor();
        zfslib::Executors::SetProcessExecutor(executor); // quotas are read through it
        for (const zfslib::Zpool& pool : zfslib::ZpoolEnumerator::Enumerate(executor)) {
            std::cout << pool.name << ": " << zfslib::Zpool::StateToString(pool.state) << ", "
                      << pool.size - pool.allocated << " bytes free\n";
            zfslib::ZfsDatasetEnumerator enumerator;
            const auto [datasets, warnings] = enumerator.Enumerate(pool.name, executor);
            for (const zfslib::ZfsDataset& dataset : datasets)
                std::cout << "  " << dataset.name << ": " << dataset.used << " bytes used\n";
            for (const std::string& warning : warnings)
                std::cerr << warning << '\n';
        }
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
