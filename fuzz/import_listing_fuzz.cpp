// An output of `zpool import`: whatever it is, it gives a list and no error.

#include "fuzz/fuzz.h"
#include "zfstools/TextTable.h"
#include "zfstools/Tools.h"

using namespace zfslib;

namespace {

/// Each row "pool: NAME" with a row "id: NUMBER" directly behind it.
std::string ExpectedListing(const std::string& text) {
    std::string listing;
    const std::vector<std::vector<std::string>> rows = TextTable(text).GetRows(0);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        if (rows[i].size() < 2 || rows[i][0] != "pool:")
            continue;
        const std::string& name = rows[i][1];
        if (++i < rows.size() && rows[i].size() >= 2 && rows[i][0] == "id:")
            listing += name + "=" + rows[i][1] + "\n";
    }
    return listing;
}

} // namespace

void FuzzOne(const std::string& text) {
    const std::string outcome = fuzz::RepeatedOutcome(
        [&text] {
            std::string listing;
            for (const Pool4Import& pool : EnumerateZpool4Import([&](auto&) { return text; }))
                listing += pool.name + "=" + pool.id + "\n";
            return listing;
        },
        {});
    fuzz::CheckEqual(outcome, ExpectedListing(text), "the pools with their identifiers");
}
