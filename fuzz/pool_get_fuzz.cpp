// An output of `zpool get all` for one pool: the last row of each name counts.

#include "fuzz/fuzz.h"
#include "zfstools/TextTable.h"
#include "zfstools/ZpoolsEnumerator.h"

using namespace zfslib;

void FuzzOne(const std::string& text) {
    Zpool pool;
    pool.size = 1ULL << 40;
    pool.allocated = pool.size - 1;
    const std::string outcome = fuzz::RepeatedOutcome(
        [&] {
            pool.properties = Zpool::Properties();
            ZpoolEnumerator::ParseZpoolProperty(text, pool.properties);
            return fuzz::Dump(pool.properties) + fuzz::DumpSizes(pool);
        },
        {"Failed to parse zpool get all"});
    if (fuzz::IsError(outcome))
        return;

    AuxPropValues rows;
    for (const std::vector<std::string>& row : TextTable(text).GetRows(1))
        if (!row.empty())
            rows[row.at(1)] = AuxPropValue{row.at(2), row.at(3), ""};
    Zpool::Properties::ForEach(pool.properties, [&rows](const auto& property) {
        const auto row = rows.find(property.GetName());
        fuzz::Check((property.GetState() == PropState::Unset) == (row == rows.end()),
                    property.GetName());
        if (row == rows.end())
            return;
        fuzz::CheckEqual(property.GetSource().text, row->second.source, property.GetName());
        if (property.GetState() == PropState::Failed)
            fuzz::CheckEqual(property.GetText(), row->second.value, property.GetName());
        else
            fuzz::Check(property.GetState() == PropState::Initialized, property.GetName());
    });
}
