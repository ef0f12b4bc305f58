#include "zfstools/PoolSpace.h"

#include "util/str.h"
#include "zfstools/internal/FirstAnswer.h"
#include "zfstools/internal/PrintedNumbers.h"

#include <string_view>

namespace zfslib {
namespace {

/// Takes the last word off the end of a line, with the white space around it.
std::string_view ConsumeLastWord(std::string_view& line) {
    const auto trim = [&line] {
        while (!line.empty() && util::IsSpace(line.back()))
            line.remove_suffix(1);
    };
    trim();
    std::size_t begin = line.size();
    while (begin > 0 && !util::IsSpace(line[begin - 1]))
        --begin;
    const std::string_view word = line.substr(begin);
    line.remove_suffix(word.size());
    trim();
    return word;
}

/// "5%", and "5" under -p.
std::optional<std::uint64_t> ParsePercent(std::string_view cell) {
    return ParseInteger(cell.substr(0, cell.find('%')));
}

void SetCell(PoolSpace& space, std::string_view title, std::string_view cell) {
    if (title == "SIZE")
        space.size = ParseAmount(cell).value;
    else if (title == "ALLOC" || title == "USED")
        space.allocated = ParseAmount(cell).value;
    else if (title == "FREE" || title == "AVAIL")
        space.free = ParseAmount(cell).value;
    else if (title == "CAP")
        space.capacity = ParsePercent(cell);
    else if (title == "FRAG")
        space.fragmentation = ParsePercent(cell);
    else if (title == "DEDUP")
        space.dedupratio = util::ConsumeDouble(cell);
    else if (title == "HEALTH")
        space.health = cell;
}

/// Only a name can have blanks, so the cells are told from the end of the row.
PoolSpace ParseRow(std::string_view line, const std::vector<std::string>& titles) {
    PoolSpace space;
    const std::string_view wholeLine = line;
    for (std::size_t i = titles.size(); i > 1; --i)
        SetCell(space, titles[i - 1], ConsumeLastWord(line));
    if (line.empty()) {
        space = {};
        line = wholeLine;
    }
    space.name = line;
    return space;
}

} // namespace

std::vector<PoolSpace> PoolSpace::Enumerate(const CommandExecutor& executor) {
    return Parse(FirstAnswer(executor,
                             {"/usr/bin/env -i zpool list -p -o "
                              "name,size,alloc,free,cap,frag,dedup,health",
                              "/usr/bin/env -i zpool list -o name,size,alloc,free,cap,dedup,health",
                              "/usr/bin/env -i zpool list -o name,size,alloc"})
                     .second);
}

std::vector<PoolSpace> PoolSpace::Parse(const std::string& listOutput) {
    std::vector<PoolSpace> pools;
    if (listOutput.find("no pools available") != std::string::npos)
        return pools;
    std::vector<std::string> titles;
    for (std::string_view rest = listOutput; !rest.empty();) {
        const std::string_view line = util::ConsumeLine(rest);
        if (titles.empty())
            titles = util::split(line);
        else if (line.find_first_not_of(" \t\r") != std::string_view::npos)
            pools.push_back(ParseRow(line, titles));
    }
    return pools;
}

} // namespace zfslib
