#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <string_view>

namespace zfslib {

/// One row of `zfs get all`, as views of the text that it stands in.
struct GetRow {
    std::string_view name; ///< of the property
    std::string_view value;
    std::string_view source;        ///< the first word of the SOURCE column
    std::string_view inheritedFrom; ///< empty unless the source is "inherited"
};

/// The cells of one line, as far as a row needs them.
struct GetCells {
    static constexpr std::size_t most = 6; ///< "inherited from PARENT" ends with the sixth
    std::array<std::string_view, most> cells;
    std::size_t count = 0; ///< of those in `cells`; a line may have more
};

/// Reads a row of `zfs get all`; nothing for an empty one and for one that cannot be told apart
/// into value and source. Errors: as ZfsDataset::ParseDatasetPropOutputRow.
std::optional<GetRow> ReadGetRow(const GetCells& line);

} // namespace zfslib
