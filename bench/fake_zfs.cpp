// Stands in for `zfs` on a host with two pools: "tank" has one filesystem and many snapshots,
// "many" as many datasets in 100 filesystems. Like the real one it takes a while to start, however
// little it is asked, and for the second pool some time of a processor for each dataset.

#include "HostText.h"

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

std::vector<std::string> Names(const std::string& pool, const std::string& type) {
    std::vector<std::string> names;
    if (type == "volume")
        return names;
    if (pool == "tank") {
        names = bench::DatasetNames(FAKE_ZFS_DATASETS);
        if (type == "filesystem")
            names.resize(1);
        else
            names.erase(names.begin());
        return names;
    }
    constexpr int filesystems = 100;
    for (int i = 0; i < filesystems; ++i) {
        const std::string filesystem = pool + "/project-" + std::to_string(filesystems + i);
        if (type == "filesystem")
            names.push_back(filesystem);
        for (int day = 1; type == "snapshot" && day < FAKE_ZFS_DATASETS / filesystems; ++day)
            names.push_back(filesystem + "@day-" + std::to_string(filesystems + day));
    }
    return names;
}

/// What the kernel takes to answer about these datasets.
void Work(const std::vector<std::string>& names) {
    constexpr std::clock_t microseconds = 200;
    const std::clock_t start = std::clock();
    const auto count = static_cast<std::clock_t>(names.size());
    while (names[0].rfind("many", 0) == 0 &&
           std::clock() - start < count * microseconds * CLOCKS_PER_SEC / 1000000) {
    }
}

} // namespace

int main(int argc, char** argv) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.size() == 4 && words[1] == "-rHp") { // get -rHp all POOL
        std::vector<std::string> names = Names(words[3], "filesystem");
        for (std::string& snapshot : Names(words[3], "snapshot"))
            names.push_back(std::move(snapshot));
        Work(names);
        std::cout << bench::ScriptGetOutput(names);
    } else if (words.size() >= 3 && words[0] == "get") { // get all NAME...
        const std::vector<std::string> names(words.begin() + 2, words.end());
        Work(names);
        std::cout << bench::GetOutput(names);
    } else if (words.size() == 7 && words[0] == "list") { // list -rH -o COLUMNS -t TYPE ROOT
        std::cout << bench::ListOutput(Names(words[6], words[5]));
    } else if (words.size() == 2) { // userspace NAME, groupspace NAME
        std::cout << "TYPE        NAME   USED  QUOTA  SOURCE\n";
    } else {
        std::cerr << "fake zfs: unexpected arguments\n";
        return EXIT_FAILURE;
    }
}
