// What is wrong with the pools of a recorded host.

#include "executors/ReplayingExecutor.h"
#include "zfstools/PoolHealth.h"
#include "zfstools/PoolSpace.h"

#include <cstddef>
#include <exception>
#include <iostream>
#include <optional>
#include <string>

using namespace zfslib;

namespace {

/// The devices that are not well, with the groups they stand in.
void PrintSick(const PoolHealth::Device& device, std::size_t depth) {
    using State = PoolHealth::State;
    const bool isWell = device.state == State::Online || device.state == State::Avail;
    const auto hasErrors = [](const std::optional<PoolHealth::Amount>& errors) {
        return errors && errors->value.value_or(0) != 0;
    };
    if (!isWell || hasErrors(device.read) || hasErrors(device.write) || hasErrors(device.checksum))
        std::cout << std::string(2 * depth, ' ') << device.name << ' ' << device.stateText
                  << (device.note.empty() ? "" : " ") << device.note << '\n';
    for (const PoolHealth::Device& member : device.devices)
        PrintSick(member, depth + 1);
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2)
        return 2;
    const CommandExecutor executor = executors::Replayer(argv[1]).Executor();
    for (const PoolSpace& pool : PoolSpace::Enumerate(executor)) {
        try {
            const PoolHealth health = PoolHealth::Read(pool.name, executor);
            if (health.root)
                PrintSick(*health.root, 0);
        } catch (const std::exception& error) {
            std::cout << pool.name << ": " << error.what() << '\n';
        }
    }
}
