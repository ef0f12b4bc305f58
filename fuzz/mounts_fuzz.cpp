// The mount table of Linux or FreeBSD (all lines but the first, which names the system): it becomes
// rows of `df -Z`, one for each mount point, that can be read; or it is refused.

#include "executors/HostWordsExecutor.h"
#include "fuzz/fuzz.h"
#include "zfstools/TextTable.h"

#include <algorithm>
#include <set>

void FuzzOne(const std::string& text) {
    const std::string system = text.substr(0, text.find('\n'));
    const std::string mounts = text.substr(std::min(system.size() + 1, text.size()));
    const auto executor =
        zfslib::executors::HostWordsExecutor([&](const std::string& command) -> std::string {
            if (command == "df -Z")
                throw std::runtime_error("not answered");
            return command == "uname -s" ? system : mounts;
        });
    std::string df = fuzz::RepeatedOutcome([&executor] { return executor("df -Z"); },
                                           {"Failed to parse '/proc/self/mountinfo': ",
                                            "Failed to parse 'mount -p' output: ", "not answered"});
    if (util::str_is_starts_with(df, "error: "))
        return;
    std::replace(df.begin(), df.end(), '(', ' ');
    std::replace(df.begin(), df.end(), ')', ' ');
    std::set<std::string> points;
    for (const std::vector<std::string>& row : zfslib::TextTable(df).GetRows(0)) {
        fuzz::Check(row.size() == 6 || row.size() == 7, "a row has all of its cells");
        fuzz::Check(row[0][0] == '/', "a mount point begins with a slash");
        fuzz::Check(points.insert(row[0]).second, "a mount point has one row");
    }
}
