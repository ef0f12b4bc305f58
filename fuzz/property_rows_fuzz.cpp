// What a user put into a property: it forges no row of the `zfs get` that reads it. The same input,
// cut at its NULs, as a skeleton, values and the answer of a value that is asked for alone: what is
// read prints as what it was read from.

#include "fuzz/fuzz.h"
#include "restore/internal/PropertyRows.h"

#include <algorithm>
#include <utility>

using namespace zfslib::restore;

namespace {

struct Row {
    std::string name;
    std::string property;
    std::string value;
    std::string received;
    std::string source;
};

std::string Print(const Row& row) {
    return row.name + "\t" + row.property + "\t" + row.value + "\t" + row.received + "\t" +
           row.source + "\n";
}

void TryAsValue(const std::string& text) {
    const std::vector<Row> rows = {{"t", "type", "filesystem", "-", "-"},
                                   {"t", "u:a", text, "-", "local"},
                                   {"t/a", "type", "filesystem", "-", "-"},
                                   {"t/a", "mountpoint", "/t/a", text, "default"},
                                   {"t/a", "u:a", text, "-", "inherited from t"},
                                   {"t/a", "u:b", text, text, "received"},
                                   {"t/b", "quota", "1", "-", "local"}};
    std::string skeleton;
    std::string values;
    std::string truth;
    for (const Row& row : rows) {
        skeleton += row.name + "\t" + row.property + "\t" + row.source + "\n";
        values += Print(row);
        truth += row.name + "|" + row.property + "|" + row.value + "|" + row.received + "|";
    }
    const auto ask = [&](std::string_view name, std::string_view property,
                         std::string_view columns) {
        std::string answer;
        for (const Row& row : rows)
            if (row.name == name && property == "all")
                answer += Print(row);
            else if (row.name == name && row.property == property)
                answer = (columns == "value" ? row.value : row.received) + "\n";
        return answer;
    };
    StateTexts texts;
    std::string read;
    for (const auto& object : internal::ReadPropertyRows(skeleton, values, true, ask, {}, texts))
        for (const PropertyValue& property : object.properties)
            read.append(object.name)
                .append("|")
                .append(property.Name())
                .append("|")
                .append(property.Value())
                .append("|")
                .append(property.Received().value_or("-")) += "|";
    fuzz::CheckEqual(read, truth, "no value forges a row");
}

void TryAsTexts(const std::string& text) {
    const std::size_t first = std::min(text.find('\0'), text.size());
    const std::size_t second = std::min(text.find('\0', first + 1), text.size());
    const std::string skeleton = text.substr(0, first);
    const std::string values =
        text.substr(std::min(first + 1, text.size()), second - std::min(first + 1, second));
    const std::string answer = text.substr(std::min(second + 1, text.size())) + "\n";
    try {
        StateTexts texts;
        std::string read;
        std::size_t rows = 0;
        for (const auto& object : internal::ReadPropertyRows(
                 skeleton, values, false, [&](auto&&...) { return answer; }, {}, texts))
            for (const PropertyValue& property : object.properties) {
                ++rows;
                read.append(object.name).append("\t").append(property.Name()).append("\t");
                read.append(property.Value()).append("\n");
            }
        fuzz::Check(
            rows == static_cast<std::size_t>(std::count(skeleton.begin(), skeleton.end(), '\n')) +
                        (skeleton.empty() || skeleton.back() == '\n' ? 0U : 1U),
            "as many rows as the skeleton has");
        fuzz::Check(read.size() <= values.size(), "nothing is made up");
        static_cast<void>(internal::DescribeMoves(skeleton, values));
    } catch (const std::runtime_error&) {
        return; // they do not fit together, or are no rows
    }
}

} // namespace

void FuzzOne(const std::string& text) {
    if (text.find('\0') == std::string::npos)
        TryAsValue(text);
    else
        TryAsTexts(text);
}
