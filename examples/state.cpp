// Reads the state of a recorded host, and shows what was set.

#include "executors/ReplayingExecutor.h"
#include "restore/HostStateReader.h"

#include <exception>
#include <iostream>

void ShowWhatWasSet(const zfslib::CommandExecutor& executor) {
    using namespace zfslib::restore;
    const HostState state = ReadHostState({"tank"}, executor);
    for (const DatasetState& dataset : state.datasets) {
        for (const PropertyValue& property : dataset.properties)
            if (property.Source() == PropertySource::Local && property.IsExact())
                std::cout << dataset.name << ' ' << property.Name() << ": "
                          << property.Value().size() << " bytes\n";
        for (const Quota& quota : dataset.quotas)
            std::cout << dataset.name << ' ' << quota.PropertyName() << '=' << quota.limit << '\n';
        if (!dataset.quotasDoubt.empty())
            std::cout << dataset.name << ": no quotas: " << dataset.quotasDoubt << '\n';
    }
}

int main(int /*argc*/, char** argv) {
    try {
        ShowWhatWasSet(zfslib::executors::Replayer(argv[1]).Executor());
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
