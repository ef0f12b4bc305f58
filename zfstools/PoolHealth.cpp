#include "zfstools/PoolHealth.h"

#include "util/str.h"
#include "zfstools/internal/EnumTexts.h"
#include "zfstools/internal/FirstAnswer.h"
#include "zfstools/internal/PrintedNumbers.h"
#include "zfstools/internal/ScanText.h"

#include <algorithm>
#include <array>
#include <exception>
#include <string_view>
#include <utility>

namespace zfslib {
namespace {

using Amount = PoolHealth::Amount;
using Device = PoolHealth::Device;
using DeviceType = PoolHealth::DeviceType;
using Section = PoolHealth::Section;
using State = PoolHealth::State;

constexpr auto npos = std::string_view::npos;

const EnumTexts<State>& StateTexts() {
    static const EnumTexts<State> texts = {
        {State::Online, "ONLINE"},       {State::Degraded, "DEGRADED"}, {State::Faulted, "FAULTED"},
        {State::Offline, "OFFLINE"},     {State::Removed, "REMOVED"},   {State::Unavail, "UNAVAIL"},
        {State::Suspended, "SUSPENDED"}, {State::Avail, "AVAIL"},       {State::Inuse, "INUSE"},
    };
    return texts;
}

bool IsUpper(char c) {
    return c >= 'A' && c <= 'Z';
}

bool IsLower(char c) {
    return c >= 'a' && c <= 'z';
}

std::string_view TrimEnd(std::string_view text) {
    while (!text.empty() && util::IsSpace(text.back()))
        text.remove_suffix(1);
    return text;
}

std::string_view Trim(std::string_view text) {
    text = TrimEnd(text);
    while (!text.empty() && util::IsSpace(text.front()))
        text.remove_prefix(1);
    return text;
}

/// The first word, left where it is.
std::string_view FirstWord(std::string_view text) {
    return util::ConsumeWord(text);
}

/// Whether the word can be a state, known or not: "ONLINE", "SPLIT".
bool IsStateWord(std::string_view word) {
    return word.size() > 1 && std::all_of(word.begin(), word.end(), IsUpper);
}

// The names of devices.

/// The numbers of "1:2d:6c:1s" and "1:2d:6c:1s-0": the parity, then each with its letter.
std::optional<PoolHealth::DraidGeometry> ParseDraidGeometry(std::string_view text) {
    text = text.substr(0, text.rfind('-'));
    PoolHealth::DraidGeometry geometry;
    for (unsigned index = 0; !text.empty(); ++index) {
        std::string_view part = text.substr(0, text.find(':'));
        text.remove_prefix(std::min(part.size() + 1, text.size()));
        unsigned* target = index == 0 ? &geometry.parity : nullptr;
        if (index > 0 && !part.empty()) {
            target = part.back() == 'd'   ? &geometry.data
                     : part.back() == 'c' ? &geometry.children
                     : part.back() == 's' ? &geometry.spares
                                          : nullptr;
            part.remove_suffix(1);
        }
        const auto number = ParseInteger(part);
        if (target == nullptr || !number || *number > 255) // the tools allow that many devices
            return std::nullopt;
        *target = static_cast<unsigned>(*number);
    }
    return geometry;
}

/// "mirror" for "mirror-0"; a name without a number stays.
std::string_view WithoutNumber(std::string_view name) {
    const std::size_t dash = name.rfind('-');
    return dash != npos && ParseInteger(name.substr(dash + 1)) ? name.substr(0, dash) : name;
}

DeviceType GroupType(std::string_view name) {
    static constexpr std::array<std::pair<std::string_view, DeviceType>, 7> types = {{
        {"mirror", DeviceType::Mirror},
        {"raidz", DeviceType::Raidz},
        {"raidz1", DeviceType::Raidz1},
        {"raidz2", DeviceType::Raidz2},
        {"raidz3", DeviceType::Raidz3},
        {"replacing", DeviceType::Replacing},
        {"spare", DeviceType::Spare},
    }};
    const auto* const found = std::find_if(types.begin(), types.end(), [&](const auto& type) {
        return type.first == WithoutNumber(name);
    });
    return found == types.end() ? DeviceType::Group : found->second;
}

/// "draid1-0-0": parity, virtual device, number of the spare.
bool IsDistributedSpare(std::string_view name) {
    const std::string_view device = WithoutNumber(name);
    const std::string_view draid = WithoutNumber(device);
    return device.size() < name.size() && draid.size() < device.size() &&
           util::str_is_starts_with(draid, "draid") && ParseInteger(draid.substr(5));
}

/// What has nothing below it is no group, whatever its name.
DeviceType LeafType(const Device& device) {
    if (IsDistributedSpare(device.name))
        return DeviceType::DistributedSpare;
    if (util::str_is_starts_with(device.name, "indirect-") &&
        WithoutNumber(device.name) == "indirect")
        return DeviceType::Indirect;
    // A device that is missing has a number for a name, and its path behind: "was /disks/u1".
    constexpr std::string_view was = "was ";
    std::string_view path = device.name;
    if (util::str_is_starts_with(device.note, was))
        path = std::string_view(device.note).substr(was.size());
    const bool isFile =
        util::str_is_starts_with(path, "/") && !util::str_is_starts_with(path, "/dev");
    return isFile ? DeviceType::File : DeviceType::Disk;
}

void SetType(Device& device) {
    if (device.devices.empty()) {
        device.type = LeafType(device);
        return;
    }
    constexpr std::string_view draid = "draid";
    if (util::str_is_starts_with(device.name, draid))
        device.draid = ParseDraidGeometry(std::string_view(device.name).substr(draid.size()));
    device.type = device.draid ? DeviceType::Draid : GroupType(device.name);
    for (Device& member : device.devices)
        SetType(member);
}

// The device table.

/// Which of a row's counts the columns of the header are; older tools print no header in some
/// tables, and then these.
using Counter = std::optional<Amount> Device::*;
constexpr std::array<Counter, 3> usualCounters = {&Device::read, &Device::write, &Device::checksum};

Counter CounterOf(std::string_view title) {
    if (title == "READ")
        return &Device::read;
    if (title == "WRITE")
        return &Device::write;
    if (title == "CKSUM")
        return &Device::checksum;
    return title == "SLOW" ? &Device::slow : nullptr;
}

/// Reads the device table row by row:
///
///         NAME           STATE     READ WRITE CKSUM
///         tank           DEGRADED     0     0     0
///           mirror-0     DEGRADED     0     0     0
///             c1t0d0     ONLINE       0     0     0
///             my disk    FAULTED     11     0 4.56K  too many errors
///         spares
///           c1t2d0       AVAIL
///
/// Depth is indentation: a row belongs to the nearest one above that stands further left. A row
/// without a state in the pool's own column is the title of a section.
class TableReader {
public:
    explicit TableReader(PoolHealth& health) : health_(health) {}

    void Line(std::string_view line) {
        if (!health_.root && ReadHeader(line))
            return;
        const std::size_t column = line.find(FirstWord(line));
        Device device = ReadRow(line, column);
        if (!health_.root) {
            rootColumn_ = column;
            health_.root = std::move(device);
        } else if (column <= rootColumn_ && device.stateText.empty()) {
            parents_.clear();
            health_.sections.push_back({std::string(Trim(line)), {}});
        } else {
            Add(std::move(device), column);
        }
    }

    /// False for a line that is no header.
    bool ReadHeader(std::string_view line) {
        std::string_view rest = line;
        if (util::ConsumeWord(rest) != "NAME" || FirstWord(rest) != "STATE")
            return false;
        stateColumn_ = line.find("STATE");
        util::ConsumeWord(rest);
        std::vector<Counter> counters;
        Counter counter = CounterOf(util::ConsumeWord(rest));
        // A title that comes twice is no known one: its counts are left to the note.
        while (counter && std::find(counters.begin(), counters.end(), counter) == counters.end()) {
            counters.push_back(counter);
            counter = CounterOf(util::ConsumeWord(rest));
        }
        if (!counters.empty())
            counters_ = std::move(counters);
        return true;
    }

private:
    /// Where the state of a row begins, npos for none. The tool pads names, so that all states
    /// stand in one column, two blanks or more behind; where somebody has moved or closed up the
    /// columns, the words themselves must tell.
    [[nodiscard]] std::size_t FindState(std::string_view line, std::size_t column) const {
        const auto isStateAt = [&](std::size_t position) {
            return position > column && position < line.size() &&
                   util::IsSpace(line[position - 1]) && !util::IsSpace(line[position]) &&
                   IsStateWord(FirstWord(line.substr(position)));
        };
        if (stateColumn_ != npos && isStateAt(stateColumn_))
            return stateColumn_;
        for (const std::string_view gap : {"  ", " "}) {
            const std::size_t position =
                line.find_first_not_of(' ', std::min(line.find(gap, column), line.size()));
            if (isStateAt(position))
                return position;
        }
        return npos;
    }

    [[nodiscard]] Device ReadRow(std::string_view line, std::size_t column) const {
        Device device;
        const std::size_t state = FindState(line, column);
        device.name = TrimEnd(line.substr(column, state == npos ? npos : state - column));
        if (state == npos)
            return device;
        std::string_view rest = line.substr(state);
        device.stateText = util::ConsumeWord(rest);
        device.state = PoolHealth::StringToState(device.stateText);
        ReadCounts(rest, device);
        device.note = Trim(rest);
        return device;
    }

    /// Takes the counts off the front, all of them or none.
    void ReadCounts(std::string_view& text, Device& device) const {
        std::string_view rest = text;
        std::vector<Amount> amounts;
        for (std::size_t i = 0; i < counters_.size(); ++i) {
            amounts.push_back(ParseAmount(util::ConsumeWord(rest)));
            if (!amounts.back().value && amounts.back().text != "-")
                return;
        }
        for (std::size_t i = 0; i < counters_.size(); ++i)
            device.*counters_[i] = std::move(amounts[i]);
        text = rest;
    }

    void Add(Device&& device, std::size_t column) {
        while (!parents_.empty() && parents_.back().first >= column)
            parents_.pop_back();
        std::vector<Device>& siblings = !parents_.empty() ? parents_.back().second->devices
                                        : health_.sections.empty()
                                            ? health_.root->devices
                                            : health_.sections.back().devices;
        siblings.push_back(std::move(device));
        // A vector grows only while none of its own elements is a parent.
        parents_.emplace_back(column, &siblings.back());
    }

    PoolHealth& health_;
    std::size_t stateColumn_ = npos; ///< npos without a header
    std::vector<Counter> counters_{usualCounters.begin(), usualCounters.end()};
    std::size_t rootColumn_ = 0;
    std::vector<std::pair<std::size_t, Device*>> parents_; ///< with their columns, the last deepest
};

// The whole.

/// The title at the front of a line: " state: ONLINE" has "state". Empty when there is none: the
/// tool aligns titles to the right, in small letters.
std::string_view TitleOf(std::string_view line) {
    const std::string_view word = FirstWord(line);
    if (word.size() < 2 || word.back() != ':')
        return {};
    const std::string_view title = word.substr(0, word.size() - 1);
    return std::all_of(title.begin(), title.end(), IsLower) ? title : std::string_view();
}

class StatusReader {
public:
    explicit StatusReader(PoolHealth& health) : health_(health), table_(health) {}

    void Line(std::string_view line) {
        const std::string_view title = TitleOf(line);
        if (StartsPart(title))
            StartPart(title, Trim(line.substr(line.find(':') + 1)));
        else if (Trim(line).empty())
            text_ = nullptr;
        else if (part_ == Part::Table)
            table_.Line(line);
        else if (part_ == Part::Files)
            AddFile(line);
        else if (text_ != nullptr)
            AddLine(Trim(line));
        else if (part_ == Part::Texts && table_.ReadHeader(line)) // somebody has cut it out
            part_ = Part::Table;
        else
            health_.unread.emplace_back(line);
    }

    /// The texts of the scans, to be read when they are complete.
    [[nodiscard]] const std::vector<std::string>& Scans() const { return scans_; }

private:
    enum class Part { Texts, Table, Files, OtherPool };

    /// Whether a line with that title begins something new. A device or a file may be called what
    /// looks like one, so inside the table and the list only those count that can follow there.
    [[nodiscard]] bool StartsPart(std::string_view title) const {
        if (part_ == Part::Files)
            return title == "pool";
        if (part_ == Part::Table)
            return title == "pool" || FindText(title) != nullptr;
        return !title.empty() && part_ != Part::OtherPool;
    }

    void StartPart(std::string_view title, std::string_view text) {
        const bool isRepeated = (title == "pool" && !health_.name.empty()) ||
                                (title == "state" && !health_.stateText.empty());
        part_ = Part::Texts;
        text_ = nullptr;
        if (title == "pool" && isRepeated) {
            part_ = Part::OtherPool;
            health_.unread.push_back("pool: " + std::string(text));
        } else if (title == "pool") {
            health_.name = text;
        } else if (title == "state" && !isRepeated) {
            health_.stateText = text;
            health_.state = PoolHealth::StringToState(health_.stateText);
        } else if (title == "config" && text.empty()) {
            part_ = Part::Table;
        } else if (title == "scan" || title == "scrub") {
            text_ = &scans_.emplace_back(text);
        } else if (std::string* const known = FindText(title); known != nullptr && known->empty()) {
            *known = text;
            text_ = known;
            // "Permanent errors have been detected in the following files:"
            if (title == "errors" && util::str_is_finishes_with(text, ":"))
                part_ = Part::Files;
        } else {
            health_.otherTexts.push_back({std::string(title), std::string(text)});
            text_ = &health_.otherTexts.back().text;
        }
    }

    [[nodiscard]] std::string* FindText(std::string_view title) const {
        const std::pair<std::string_view, std::string*> texts[] = {
            {"status", &health_.status},
            {"action", &health_.action},
            {"see", &health_.see},
            {"remove", &health_.remove},
            {"checkpoint", &health_.checkpoint},
            {"expand", &health_.expand},
            {"errors", &health_.errors},
        };
        for (const auto& text : texts)
            if (text.first == title)
                return text.second;
        return nullptr;
    }

    void AddLine(std::string_view line) {
        if (!text_->empty())
            *text_ += ' ';
        *text_ += line;
    }

    /// The tool indents files by eight blanks; names may begin with more.
    void AddFile(std::string_view line) {
        std::string_view rest = line;
        if (util::ConsumeWord(rest) == "DATASET" && FirstWord(rest) == "OBJECT")
            return; // Solaris 10 lists objects, below a header
        constexpr std::string_view indentation = "        ";
        health_.damagedFiles.emplace_back(util::str_is_starts_with(line, indentation)
                                              ? line.substr(indentation.size())
                                              : Trim(line));
    }

    PoolHealth& health_;
    TableReader table_;
    std::vector<std::string> scans_;
    Part part_ = Part::Texts;
    std::string* text_ = nullptr; ///< what a further line is added to
};

/// "No known data errors", "11 data errors, use '-v' for a list".
std::optional<std::uint64_t> ParseDataErrors(std::string_view errors) {
    if (errors == "No known data errors")
        return 0;
    const std::string_view number = util::ConsumeWord(errors);
    return util::str_is_starts_with(errors, " data error") ? ParseInteger(number) : std::nullopt;
}

void ReadDamagedFiles(const std::string& pool, const CommandExecutor& executor,
                      PoolHealth& health) {
    try {
        health.damagedFiles =
            PoolHealth::Parse(ExecuteLogged(executor, "/usr/bin/env -i zpool status -v " + pool))
                .damagedFiles;
    } catch (const std::exception& error) {
        health.unread.emplace_back(error.what());
    }
}

} // namespace

State PoolHealth::StringToState(const std::string& text) {
    const State* const state = StateTexts().Find(text);
    return state == nullptr ? State::Unknown : *state;
}

PoolHealth PoolHealth::Parse(const std::string& statusOutput, Clock clock) {
    PoolHealth health;
    StatusReader reader(health);
    for (std::string_view rest = statusOutput; !rest.empty();)
        reader.Line(util::ConsumeLine(rest));
    for (const std::string& text : reader.Scans())
        health.scans.push_back(ParseScan(text, clock));
    health.dataErrors = ParseDataErrors(health.errors);
    if (health.root) {
        SetType(*health.root);
        health.root->type = DeviceType::Group;
    }
    for (Section& section : health.sections)
        for (Device& device : section.devices)
            SetType(device);
    return health;
}

PoolHealth PoolHealth::Read(const std::string& pool, const CommandExecutor& executor) {
    const std::string status = "zpool status ";
    const auto [index, output] = FirstAnswer(
        executor, {"/usr/bin/env -i TZ=UTC0 " + status + "-ps " + pool,
                   "/usr/bin/env -i TZ=UTC0 " + status + pool, "/usr/bin/env -i " + status + pool});
    PoolHealth health = Parse(output, index < 2 ? Clock::Utc : Clock::Unknown);
    if (health.dataErrors.value_or(0) > 0)
        ReadDamagedFiles(pool, executor, health);
    return health;
}

} // namespace zfslib
