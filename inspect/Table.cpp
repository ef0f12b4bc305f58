#include "inspect/Table.h"

#include "inspect/Escape.h"

#include <algorithm>
#include <utility>

namespace inspect {
namespace {

constexpr std::size_t widestColumn = 120;
constexpr std::size_t deepestIndentation = 50; // as deep as datasets can lie

} // namespace

Table::Table(std::vector<std::size_t> numberColumns) : numberColumns_(std::move(numberColumns)) {}

void Table::Add(Cells cells) {
    widths_.resize(std::max(widths_.size(), cells.size()));
    for (std::size_t column = 0; column < cells.size(); ++column) {
        cells[column] = Escape(cells[column]);
        widths_[column] = std::max(widths_[column], std::min(Columns(cells[column]), widestColumn));
    }
    rows_.push_back(std::move(cells));
}

std::string Table::Line(std::size_t row) const {
    std::string line;
    for (std::size_t column = 0; column < rows_[row].size(); ++column) {
        const std::string& cell = rows_[row][column];
        const std::size_t columns = Columns(cell);
        const std::string padding(std::max(widths_[column], columns) - columns, ' ');
        const bool isNumber =
            std::find(numberColumns_.begin(), numberColumns_.end(), column) != numberColumns_.end();
        line += column == 0 ? "" : "  ";
        line += isNumber ? padding + cell : cell + padding;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

void Table::Print(std::ostream& out, std::size_t indent) const {
    for (std::size_t row = 0; row < Rows(); ++row)
        out << std::string(indent, ' ') << Line(row) << '\n';
}

std::size_t Indentation(std::size_t depth) {
    return indentStep * std::min(depth, deepestIndentation);
}

std::string Indented(std::size_t depth, const std::string& text) {
    return std::string(Indentation(depth), ' ') + text;
}

} // namespace inspect
