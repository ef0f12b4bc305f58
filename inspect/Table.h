#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace inspect {

/// Rows of cells in columns that are as wide as their widest cell, up to a limit: a wider cell
/// moves what is to its right in its own line only. Whatever the text views print goes through
/// here, and is escaped here.
class Table {
public:
    using Cells = std::vector<std::string>;

    /// `numberColumns` are set flush right.
    explicit Table(std::vector<std::size_t> numberColumns = {});

    void Add(Cells cells);

    [[nodiscard]] std::size_t Rows() const { return rows_.size(); }

    /// A row without its newline, and without blanks at its end.
    [[nodiscard]] std::string Line(std::size_t row) const;

    void Print(std::ostream& out, std::size_t indent) const;

private:
    std::vector<std::size_t> numberColumns_;
    std::vector<std::size_t> widths_;
    std::vector<Cells> rows_;
};

/// By how many columns what belongs to a thing is indented below it.
constexpr std::size_t indentStep = 4;

/// How many columns `depth` steps of indentation take. Deeper than ZFS lets datasets lie, all have
/// the same: names from elsewhere may be of thousands of components.
[[nodiscard]] std::size_t Indentation(std::size_t depth);

/// `text` behind `depth` steps of indentation.
[[nodiscard]] std::string Indented(std::size_t depth, const std::string& text);

} // namespace inspect
