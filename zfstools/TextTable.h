#pragma once

#include "../platform/zfslib_export.h"

#include <string>
#include <string_view>
#include <vector>

namespace zfslib {

/// Text that a tool printed, as rows of cells: one row for every line, empty lines included, one
/// cell for every word between white space. There is no quoting, and "-" is a cell like any other.
class ZFSLIB_EXPORT TextTable {
public:
    /// Linear in the text; keeps no reference to it. Any text is accepted.
    explicit TextTable(const std::string& text);

    /// A copy of the rows from index `first` to the end; empty for a table without rows.
    /// Errors: std::length_error when `first` is beyond the number of rows.
    [[nodiscard]] std::vector<std::vector<std::string>> GetRows(unsigned first) const;

    /// A copy of the rows from index `first` up to but not including `last`, which must be at most
    /// the number of rows. Errors: std::length_error when `first` is greater than `last`.
    [[nodiscard]] std::vector<std::vector<std::string>> GetRows(unsigned first,
                                                                unsigned last) const;

    /// The rows of any text.
    [[nodiscard]] std::vector<std::vector<std::string>> ExtractRows(const std::string& text) const;

    /// The cells of one line.
    [[nodiscard]] std::vector<std::string> RowFromLine(const std::string& line) const;

private:
    std::vector<std::vector<std::string>> rows_;
};

/// Reads the rows of a TextTable one after another, for who needs each of them once: no table is
/// built, and all rows share the memory of one.
class ZFSLIB_EXPORT RowReader {
public:
    /// Starts behind the first `skippedRows` rows. The text must outlive the reader.
    explicit RowReader(std::string_view text, unsigned skippedRows = 0);

    /// Goes to the next row; false when there is none.
    bool Next();

    /// The row that Next went to, until the next call of it.
    [[nodiscard]] const std::vector<std::string>& Row() const noexcept { return row_; }

private:
    std::string_view rest_;
    std::vector<std::string> row_;
};

} // namespace zfslib
