#include "restore/internal/PoolDevices.h"

#include "exc/exc.h"
#include "restore/internal/PropertyRows.h"
#include "util/str.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace zfslib::restore::internal {
namespace {

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

/// Without blanks and tabs at its end.
std::string_view TrimEnd(std::string_view text) {
    while (!text.empty() && util::IsSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

/// A line of the table without its tab. Names may have blanks in them, so that only the column
/// tells where a state begins: `stateColumn`, as the head of the table has it.
StatusRow ReadStatusRow(std::string_view line, std::size_t stateColumn) {
    StatusRow row;
    const std::size_t indent = std::min(line.find_first_not_of(' '), line.size());
    row.depth = static_cast<unsigned>(indent / 2);
    if (line.size() > stateColumn && stateColumn > 0 && line[stateColumn - 1] == ' ' &&
        line[stateColumn] != ' ') {
        row.name = TrimEnd(line.substr(indent, stateColumn - indent));
        line.remove_prefix(stateColumn);
    } else {
        line.remove_prefix(indent);
        row.name = util::ConsumeWord(line);
    }
    row.state = util::ConsumeWord(line);
    std::string_view behind = line;
    for (int i = 0; i < 3; ++i) { // READ WRITE CKSUM, which spares lack
        const std::string_view counter = util::ConsumeWord(behind);
        if (!counter.empty() && IsDigit(counter.front()))
            line = behind;
    }
    row.note = TrimEnd(line);
    row.note.remove_prefix(std::min(row.note.find_first_not_of(' '), row.note.size()));
    return row;
}

Device::Use UseOf(std::string_view section) {
    using Use = Device::Use;
    constexpr std::pair<std::string_view, Use> sections[] = {
        {"special", Use::Special}, {"dedup", Use::Dedup}, {"logs", Use::Log},
        {"metas", Use::Meta},      {"cache", Use::Cache}, {"spares", Use::Spare},
    };
    for (const auto& [name, use] : sections)
        if (name == section)
            return use;
    return Use::Other;
}

/// Takes "-7" off the end of a name; false when there is none.
bool ConsumeNumber(std::string_view& name) {
    const std::size_t dash = name.rfind('-');
    if (dash == std::string_view::npos || !util::str_is_integer(name.substr(dash + 1)))
        return false;
    name = name.substr(0, dash);
    return true;
}

/// What the name of a group says; Kind::Disk when it is that of none.
Device::Kind GroupKind(std::string_view word) {
    using Kind = Device::Kind;
    if (word == "mirror")
        return Kind::Mirror;
    if (word == "raidz" || word == "raidz1" || word == "raidz2" || word == "raidz3")
        return Kind::Raidz;
    if (word == "replacing")
        return Kind::Replacing;
    if (word == "spare")
        return Kind::Spare;
    if (util::str_is_starts_with(word, "draid"))
        return word.find(':') != std::string_view::npos ? Kind::Draid : Kind::Other;
    if (word == "indirect" || word == "hole" || word == "missing")
        return Kind::Other;
    return Kind::Disk;
}

void SetKind(Device& device) {
    std::string_view word = device.name;
    const bool isNumbered = ConsumeNumber(word);
    device.kind = GroupKind(word);
    // The spares that a draid brings along are called "draid1-0-0".
    if (device.kind == Device::Kind::Disk && isNumbered && ConsumeNumber(word) &&
        GroupKind(word) == Device::Kind::Other)
        device.kind = Device::Kind::Other;
    if (device.kind == Device::Kind::Mirror || device.kind == Device::Kind::Raidz ||
        device.kind == Device::Kind::Draid)
        device.word = word;
    if (device.kind == Device::Kind::Disk && device.name.front() == '/')
        device.kind = Device::Kind::File;
}

/// Whether the name of a disk, without its folder, is that of a whole one.
std::optional<bool> IsWholeDisk(const std::string& name, std::string_view path,
                                std::string_view system) {
    const std::string_view last = std::string_view(name).substr(name.rfind('/') + 1);
    if (system == "SunOS") { // c1t0d0, c1t0d0s0
        const std::size_t slice = last.rfind('s');
        if (last.empty() || last.front() != 'c' || last.find('d') == std::string_view::npos)
            return std::nullopt;
        return slice == std::string_view::npos || slice < last.find('d') ||
               !util::str_is_integer(last.substr(slice + 1));
    }
    const std::string_view file = path.substr(path.rfind('/') + 1);
    if (path.empty() || !util::str_is_starts_with(file, last))
        return std::nullopt;
    // The name leaves out the partition that the pool made for itself: sda and /dev/sda1. Only
    // Linux partitions a disk that is given whole.
    if (file != last)
        return true;
    return system == "Linux" ? std::optional(false) : std::nullopt;
}

Device ReadDevice(const StatusRow& row, const StatusRow* path, const StatusRow* guid,
                  Device::Use use, std::string_view system) {
    Device device;
    device.use = use;
    device.name = row.name;
    device.state = row.state;
    if (guid != nullptr && util::str_is_integer(guid->name))
        device.guid = guid->name;
    SetKind(device);
    if (device.kind != Device::Kind::Disk && device.kind != Device::Kind::File)
        return device;
    constexpr std::string_view was = "was ";
    if (path != nullptr && !path->name.empty() && path->name.front() == '/') {
        device.path = path->name;
        if (device.kind == Device::Kind::Disk)
            device.isWholeDisk = IsWholeDisk(device.name, device.path, system);
    } else if (util::str_is_starts_with(row.note, was)) {
        device.path = row.note.substr(was.size()); // it is missing, and called by its number
    } else if (path == nullptr) {
        device.path = row.name;
        if (device.kind == Device::Kind::Disk)
            device.isWholeDisk = IsWholeDisk(device.name, {}, system);
    }
    return device;
}

/// The row that stands in the same line of another table; nothing when there is no such table.
const StatusRow* Counterpart(const std::vector<StatusRow>& rows, std::size_t i,
                             const StatusRow& row) {
    if (rows.empty())
        return nullptr;
    if (i >= rows.size() || rows[i].depth != row.depth || rows[i].state != row.state)
        throw StateMoved(
            util::str_format("the devices are not as they were a moment before: [%1]", row.name));
    return &rows[i];
}

} // namespace

std::vector<StatusRow> ReadStatusRows(std::string_view text) {
    std::vector<StatusRow> rows;
    bool isConfig = false;
    std::size_t stateColumn = std::string_view::npos;
    while (!text.empty()) {
        std::string_view line = util::ConsumeLine(text);
        std::string_view words = line;
        if (!isConfig) {
            isConfig = util::ConsumeWord(words) == "config:";
            continue;
        }
        if (line.empty() && rows.empty())
            continue;
        if (line.empty() || line.front() != '\t')
            break;
        line.remove_prefix(1);
        if (stateColumn == std::string_view::npos)
            stateColumn = line.find("STATE");
        else
            rows.push_back(ReadStatusRow(TrimEnd(line), stateColumn));
    }
    return rows;
}

std::vector<Device> ReadDevices(const std::vector<StatusRow>& byName,
                                const std::vector<StatusRow>& byPath,
                                const std::vector<StatusRow>& byGuid, std::string_view system) {
    if (byName.empty() || byName.front().state.empty())
        throw exc::CRuntimeExc("The table of devices of `zpool status` was not found.");
    for (const auto* rows : {&byPath, &byGuid})
        if (!rows->empty() && rows->size() != byName.size())
            throw StateMoved("there are more or fewer devices than a moment before");
    std::vector<Device> devices;
    Device::Use use = Device::Use::Normal;
    for (std::size_t i = 1; i < byName.size(); ++i) {
        const StatusRow& row = byName[i];
        if (row.depth == 0) {
            use = UseOf(row.name);
            continue;
        }
        std::vector<Device>* siblings = &devices;
        for (unsigned depth = 1; depth < row.depth && !siblings->empty(); ++depth)
            siblings = &siblings->back().children;
        siblings->push_back(
            ReadDevice(row, Counterpart(byPath, i, row), Counterpart(byGuid, i, row), use, system));
    }
    return devices;
}

} // namespace zfslib::restore::internal
