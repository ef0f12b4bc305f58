#include "executors/internal/GetAnswer.h"

#include "util/str.h"

#include <algorithm>
#include <array>

namespace zfslib::executors {
namespace {

constexpr std::string_view gap = "  "; // between two columns

/// The cells of one row.
using Row = std::array<std::string_view, 4>;
constexpr Row headerRow = {"NAME", "PROPERTY", "VALUE", "SOURCE"};

/// Where the columns of a table begin.
class Columns {
public:
    /// Takes them from the table's first line; false when that is no header.
    bool Read(std::string_view header) {
        std::string_view rest = header;
        for (std::size_t i = 0; i < headerRow.size(); ++i) {
            const std::string_view word = util::ConsumeWord(rest);
            if (word != headerRow[i])
                return false;
            begins_[i] = static_cast<std::size_t>(word.data() - header.data());
        }
        return util::ConsumeWord(rest).empty() && begins_[0] == 0 && ReadRow(header).has_value();
    }

    /// The cells of a row; nothing for a line that has a cell out of place.
    [[nodiscard]] std::optional<Row> ReadRow(std::string_view line) const {
        if (line.size() <= begins_[3] || line[begins_[3]] == ' ')
            return std::nullopt;
        Row row;
        row[3] = line.substr(begins_[3]);
        for (std::size_t i = 0; i < 3; ++i) {
            row[i] = line.substr(begins_[i], begins_[i + 1] - begins_[i]);
            if (!util::str_is_finishes_with(row[i], gap))
                return std::nullopt;
            row[i] = row[i].substr(0, row[i].find_last_not_of(' ') + 1);
        }
        return row;
    }

    [[nodiscard]] std::size_t ValueWidth() const { return begins_[3] - gap.size() - begins_[2]; }

private:
    std::array<std::size_t, 4> begins_{};
};

/// The rows of one dataset, as a table of their own.
class Block {
public:
    explicit Block(bool isWhole) : isWhole_(isWhole) { Add(headerRow); }

    void Add(const Row& row) {
        for (std::size_t i = 0; i < widths_.size(); ++i)
            widths_[i] = std::max(widths_[i], row[i].size());
        rows_.push_back(row);
    }
    /// A line that is no row may belong to this dataset.
    void Spoil() { isWhole_ = false; }

    [[nodiscard]] std::optional<std::string> Text() const {
        if (!isWhole_)
            return std::nullopt;
        std::size_t size = 0;
        for (const Row& row : rows_)
            size += widths_[0] + widths_[1] + widths_[2] + 3 * gap.size() + row[3].size() + 1;
        std::string text;
        text.reserve(size);
        for (const Row& row : rows_) {
            for (std::size_t i = 0; i < widths_.size(); ++i)
                text.append(row[i]).append(widths_[i] - row[i].size() + gap.size(), ' ');
            text.append(row[3]).append("\n");
        }
        return text;
    }

    [[nodiscard]] std::size_t Padding(const Columns& columns) const {
        return rows_.size() * (columns.ValueWidth() - widths_[2]);
    }

private:
    std::vector<Row> rows_;
    std::array<std::size_t, 3> widths_{};
    bool isWhole_;
};

/// Returns why the answer cannot be split; nullptr when it was.
const char* Split(std::string_view text, const std::vector<std::string_view>& names,
                  GetAnswer& answer) {
    if (text.empty() || text.back() != '\n')
        return "it is cut off";
    Columns columns;
    if (!columns.Read(util::ConsumeLine(text)))
        return "its header is missing";

    std::optional<Block> block; // of names[answer.single.size()]
    bool onlyRows = true;       // since the last row
    bool emptyLine = false;     // since the last row
    const auto endBlock = [&] {
        if (!block)
            return;
        answer.padding += block->Padding(columns);
        answer.single.push_back(block->Text());
    };
    while (!text.empty()) {
        const std::string_view line = util::ConsumeLine(text);
        const std::optional<Row> row = columns.ReadRow(line);
        if (!row) {
            onlyRows = false;
            emptyLine = emptyLine || line.empty();
            continue;
        }
        if (!onlyRows && block)
            block->Spoil();
        const std::size_t current = answer.single.size();
        if (!block || row->front() != names[current]) {
            const std::size_t next = block ? current + 1 : 0;
            if (next == names.size() || row->front() != names[next])
                return "a row is about none of the datasets in turn";
            endBlock();
            block.emplace(onlyRows);
        }
        block->Add(*row);
        onlyRows = true;
        emptyLine = false;
    }
    if (answer.single.size() + 1 != names.size() || !block)
        return "a dataset is missing";
    // Executors put what the tool wrote to standard error there, and it may be about any of them.
    if (emptyLine && names.size() > 1)
        return "text follows the table";
    if (!onlyRows)
        block->Spoil();
    endBlock();
    return nullptr;
}

} // namespace

GetAnswer SplitGetAnswer(std::string_view text, const std::vector<std::string_view>& names) {
    GetAnswer answer;
    answer.single.reserve(names.size());
    answer.error = Split(text, names, answer);
    if (answer.error != nullptr)
        answer.single.assign(names.size(), std::nullopt);
    return answer;
}

} // namespace zfslib::executors
