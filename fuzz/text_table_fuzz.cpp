// Any text becomes rows: the same ones that stream extraction would read, and that the row reader
// gives one by one.

#include "fuzz/fuzz.h"
#include "zfstools/TextTable.h"

#include <sstream>

namespace {

using Rows = std::vector<std::vector<std::string>>;

Rows ReadByStreams(const std::string& text) {
    Rows rows;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        rows.emplace_back();
        for (std::string word; words >> word;)
            rows.back().push_back(word);
    }
    return rows;
}

} // namespace

void FuzzOne(const std::string& text) {
    const zfslib::TextTable table(text);
    const Rows rows = ReadByStreams(text);
    fuzz::Check(table.GetRows(0) == rows, "the rows are those of the streams");
    fuzz::Check(table.ExtractRows(text) == rows, "a table extracts the rows of any text");

    const auto rowCount = static_cast<unsigned>(rows.size());
    const unsigned skips[] = {0, 1, 2, rowCount / 2, rowCount, rowCount + 1};
    for (const unsigned skipped : skips) {
        Rows read;
        for (zfslib::RowReader reader(text, skipped); reader.Next();)
            read.push_back(reader.Row());
        Rows expected;
        try {
            expected = table.GetRows(skipped);
            fuzz::Check(skipped <= rowCount || rows.empty(), "no rows beyond the last");
        } catch (const std::length_error& error) {
            fuzz::Check(skipped > rowCount, error.what());
        }
        fuzz::Check(read == expected, "the row reader agrees with the table");
    }

    Rows line;
    for (const std::string& word : table.RowFromLine(text))
        line.push_back({word});
    Rows words;
    for (const auto& row : rows)
        for (const std::string& word : row)
            words.push_back({word});
    fuzz::Check(line == words, "a line's cells are all its words");
}
