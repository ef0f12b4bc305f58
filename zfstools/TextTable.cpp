#include "zfstools/TextTable.h"

#include "util/str.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>

namespace zfslib {

TextTable::TextTable(const std::string& text) : rows_(ExtractRows(text)) {}

std::vector<std::vector<std::string>> TextTable::GetRows(unsigned first) const {
    if (rows_.empty())
        return {};
    return GetRows(first, static_cast<unsigned>(rows_.size()));
}

std::vector<std::vector<std::string>> TextTable::GetRows(unsigned first, unsigned last) const {
    if (first > last)
        throw std::length_error("cannot create std::vector larger than max_size()");
    const auto begin = rows_.begin();
    return {begin + std::ptrdiff_t{first}, begin + std::ptrdiff_t{last}};
}

std::vector<std::vector<std::string>> TextTable::ExtractRows(const std::string& text) const {
    std::vector<std::vector<std::string>> rows;
    for (std::string_view rest = text; !rest.empty();)
        rows.push_back(util::split(util::ConsumeLine(rest)));
    return rows;
}

std::vector<std::string> TextTable::RowFromLine(const std::string& line) const {
    return util::split(line);
}

RowReader::RowReader(std::string_view text, unsigned skippedRows) : rest_(text) {
    for (unsigned row = 0; row < skippedRows && !rest_.empty(); ++row)
        util::ConsumeLine(rest_);
}

bool RowReader::Next() {
    if (rest_.empty())
        return false;
    std::string_view line = util::ConsumeLine(rest_);
    std::size_t cells = 0;
    for (auto word = util::ConsumeWord(line); !word.empty(); word = util::ConsumeWord(line)) {
        if (cells == row_.size())
            row_.emplace_back();
        row_[cells++].assign(word);
    }
    row_.resize(cells);
    return true;
}

} // namespace zfslib
