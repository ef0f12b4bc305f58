// Stands in for `zfs` on a host with one filesystem and many snapshots. Like the real one it takes
// a while to start, however little it is asked.

#include "HostText.h"

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

int main(int argc, char** argv) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.size() >= 3 && words[0] == "get") { // get all NAME...
        std::cout << bench::GetOutput({words.begin() + 2, words.end()});
    } else if (words.size() == 7 && words[0] == "list") { // list -rH -o COLUMNS -t TYPE ROOT
        std::vector<std::string> names = bench::DatasetNames(FAKE_ZFS_DATASETS);
        if (words[5] == "filesystem")
            names.resize(1);
        else
            names.erase(names.begin());
        if (words[5] != "volume")
            std::cout << bench::ListOutput(names);
    } else if (words.size() == 2) { // userspace NAME, groupspace NAME
        std::cout << "TYPE        NAME   USED  QUOTA  SOURCE\n";
    } else {
        std::cerr << "fake zfs: unexpected arguments\n";
        return EXIT_FAILURE;
    }
}
