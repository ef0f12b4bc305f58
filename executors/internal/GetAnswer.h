#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zfslib::executors {

/// The answer to one `zfs get all NAME...`, taken apart.
struct GetAnswer {
    /// What the command for each name alone answers, with its columns as wide as its own cells.
    /// Absent where that cannot be told.
    std::vector<std::optional<std::string>> single;
    /// How many bytes of the answer are blanks that pad the rows of one dataset to the widest value
    /// of another: text that the single commands would not have had.
    std::size_t padding = 0;
    /// Why nothing of it can be used; nullptr when something can.
    const char* error = nullptr;
};

/// Takes the answer for these names, in their order, apart.
///
/// Values are printed raw, so one with newlines looks like rows of other datasets, and whoever may
/// set a property of a dataset chooses what they say. They are told apart by where the SOURCE
/// stands: two blanks in front of it, at the column that the header has it in.
///
///     NAME       PROPERTY  VALUE                               SOURCE
///     tank/home  org:x     1  local
///     tank/vol  readonly  on  -  local
///     tank/vol   type      volume                              -
///
/// The tool makes the value column as wide as the widest value of all, newlines and what follows
/// them included, and pads to it. A value with newlines is at most as long as the column is wide,
/// so each of its lines but the first has less than that width, at the line's very beginning, and
/// the first ends before the column does. On the last line the padding and the true SOURCE follow;
/// it begins left of its column by the columns in front of it, at least. In its text, "inherited
/// from NAME" at most, are no two blanks in a row: NAME is an ancestor of a dataset with a plain
/// name. So no line of such a value has a SOURCE in its place, and every line that has one is a
/// true row, printed for the dataset it begins with. (Nor have the few numbers that are wider than
/// the column that the tool plans for them: they only make a command more.)
///
/// A line without one belongs to the dataset of the row in front of it, or of the row behind it;
/// where these are two, neither is trusted. The rows of a dataset that no such line touches are
/// all there.
[[nodiscard]] GetAnswer SplitGetAnswer(std::string_view text,
                                       const std::vector<std::string_view>& names);

} // namespace zfslib::executors
