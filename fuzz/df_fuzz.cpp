// An output of `df -Z` (all lines but the first) and a path that is looked for in it (the first).

#include "fuzz/fuzz.h"
#include "zfstools/TextTable.h"
#include "zfstools/Tools.h"

#include <algorithm>

using namespace zfslib;

namespace {

/// The filesystem of the longest mount point that `path` begins with; empty without one.
std::string ExpectedFilesystem(const std::string& path, std::string output) {
    std::replace(output.begin(), output.end(), '(', ' ');
    std::replace(output.begin(), output.end(), ')', ' ');
    std::string best;
    std::string filesystem;
    for (const std::vector<std::string>& row : TextTable(output).GetRows(0)) {
        if (row.size() == 1)
            return fuzz::ErrorText("Failed to parse 'df' output: \n " + output);
        if (!row.empty() && row[0].size() > best.size() &&
            path.compare(0, row[0].size(), row[0]) == 0) {
            best = row[0];
            filesystem = row[1];
        }
    }
    return filesystem;
}

} // namespace

void FuzzOne(const std::string& text) {
    const std::string path = text.substr(0, text.find('\n'));
    std::string output = text.substr(std::min(path.size() + 1, text.size()));
    Executors::SetDfExecutor([&output](const std::string&) { return output; });

    std::string expected = ExpectedFilesystem(path, output);
    if (expected.empty())
        expected = ExpectedFilesystem("/", output);
    if (expected.empty())
        expected = "error: Unable to resolve filesystem for path [/].";
    fuzz::CheckEqual(fuzz::RepeatedOutcome([&path] { return GetDatasetForPath(path); },
                                           {"Failed to parse 'df' output: \n ",
                                            "Unable to resolve filesystem for path [/]."}),
                     expected, "the filesystem that holds the path");
}
