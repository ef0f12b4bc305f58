// An output of `zpool list`, with healthy pools behind whatever names it has.

#include "fuzz/fuzz.h"
#include "zfstools/TextTable.h"
#include "zfstools/Util.h"
#include "zfstools/ZpoolsEnumerator.h"

using namespace zfslib;

namespace {

const std::string status = " state: ONLINE\nconfig:\n\n\ttank\n\t  c1t0d0\n\nerrors: none\n";
const std::string get = "NAME PROPERTY VALUE SOURCE\ntank dedupratio 1.50x -\n";

} // namespace

void FuzzOne(const std::string& text) {
    std::vector<std::string> commands;
    const auto executor = [&commands](const std::string& command) {
        commands.push_back(command);
        return command.find(" status ") != std::string::npos ? status : get;
    };
    const std::string outcome = fuzz::RepeatedOutcome(
        [&] {
            commands.clear();
            std::string dump;
            for (const Zpool& pool : ZpoolEnumerator::ExtractZpoolsFromOutput(text, executor))
                dump += pool.name + " " + util::str(pool.size) + " " + util::str(pool.allocated) +
                        " " + util::str(pool.devices.size()) + fuzz::DumpSizes(pool) + "\n";
            return dump;
        },
        {"Failed to parse zpool output:\n", "Failed to parse space value: ["});

    // Without an error, every row below the header is a pool, and was asked about twice.
    if (fuzz::IsError(outcome))
        return;
    std::string expected;
    std::vector<std::string> expectedCommands;
    const bool noPools = text.find("no pools available") != std::string::npos;
    const TextTable table(noPools ? "" : text);
    for (const std::vector<std::string>& row : table.GetRows(1)) {
        if (row.empty())
            continue;
        Zpool pool;
        pool.size = ParseSpaceValue(row.at(1));
        pool.allocated = ParseSpaceValue(row.at(2));
        pool.properties.dedupratio.Set("1.50x");
        expected += row[0] + " " + util::str(pool.size) + " " + util::str(pool.allocated) + " 1" +
                    fuzz::DumpSizes(pool) + "\n";
        expectedCommands.push_back("/usr/bin/env -i zpool status " + row[0]);
        expectedCommands.push_back("/usr/bin/env -i zpool get all " + row[0]);
    }
    fuzz::CheckEqual(outcome, expected, "the pools are the rows");
    fuzz::Check(commands == expectedCommands, "two commands for each pool");
}
