// Where a path lies, and the import of a pool under another name.

#include "executors/ReplayingExecutor.h"
#include "zfstools/Tools.h"

#include <iostream>
#include <stdexcept>

void Import(const std::string& name, const std::string& newName, const std::string& altRoot) {
    if (!zfslib::IsSafeOperand(newName) || !zfslib::IsSafeOperand(altRoot))
        throw std::runtime_error("This name or root cannot be passed on.");
    // The command line ends in "2>&1": it takes an executor that goes through a shell.
    const zfslib::CommandExecutor shell = zfslib::Executors::GetZpoolExecutor();
    for (const zfslib::Pool4Import& pool : zfslib::EnumerateZpool4Import(shell)) {
        if (pool.name != name || !zfslib::IsSafeOperand(pool.id))
            continue;
        zfslib::ImportZfsPool(pool, newName, altRoot, shell);
        std::cout << name << " (" << pool.id << ") is imported as " << newName << '\n';
        return;
    }
    throw std::runtime_error("There is no such pool to import: " + name);
}

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: locate RECORDING PATH\n";
        return 2;
    }
    const zfslib::CommandExecutor executor = zfslib::executors::Replayer(argv[1]).Executor();
    zfslib::Executors::SetDfExecutor(executor);
    zfslib::Executors::SetZpoolExecutor(executor);
    const std::string path = argv[2];
    if (zfslib::IsZfsDataset(path))
        std::cout << path << " lies on " << zfslib::GetDatasetForPath(path) << " in pool "
                  << zfslib::GetAssociatedZpool(path).name << '\n';
    Import("depot", "depot2", "/mnt");
}
