#include "restore/internal/PropertyRows.h"

#include "exc/exc.h"
#include "util/str.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>
#include <unordered_map>
#include <utility>

namespace zfslib::restore::internal {
namespace {

/// A line of a skeleton: which property is there, and where it is from.
struct Row {
    std::string_view name;
    std::string_view property;
    std::string_view source;

    /// Length of "NAME\tPROPERTY\t", with which the row's line begins in both texts.
    [[nodiscard]] std::size_t KeySize() const { return name.size() + property.size() + 2; }
    /// That text; both stand in the skeleton, one behind the other.
    [[nodiscard]] std::string_view Key() const { return {name.data(), KeySize()}; }
};

/// Takes what stands in front of the next tab, and the tab, off `text`; false when there is none.
bool ConsumeCell(std::string_view& text, std::string_view& cell) {
    const std::size_t tab = text.find('\t');
    if (tab == std::string_view::npos)
        return false;
    cell = text.substr(0, tab);
    text.remove_prefix(tab + 1);
    return true;
}

/// The rows of a skeleton, one after another.
class SkeletonReader {
public:
    explicit SkeletonReader(std::string_view skeleton) : rest_(skeleton) {}

    /// Goes to the next row; false at the end.
    bool Next(Row& row) {
        if (rest_.empty())
            return false;
        std::string_view line = util::ConsumeLine(rest_);
        const std::string_view whole = line;
        // Most rows are of the object of the row before.
        const std::size_t nameSize = row.name.size();
        if (nameSize != 0 && line.size() > nameSize && line[nameSize] == '\t' &&
            std::memcmp(line.data(), row.name.data(), nameSize) == 0) {
            row.name = line.substr(0, nameSize);
            line.remove_prefix(nameSize + 1);
        } else if (!ConsumeCell(line, row.name)) {
            throw exc::CRuntimeExc("Cannot read the row [%1]: name, property and source expected.",
                                   whole);
        }
        if (!ConsumeCell(line, row.property) || line.empty() ||
            line.find('\t') != std::string_view::npos)
            throw exc::CRuntimeExc("Cannot read the row [%1]: name, property and source expected.",
                                   whole);
        row.source = line;
        return true;
    }

private:
    std::string_view rest_;
};

constexpr std::string_view inheritedPrefix = "inherited from ";

PropertySource SourceOf(std::string_view text) {
    if (text == "-")
        return PropertySource::None;
    if (text == "default")
        return PropertySource::Default;
    if (text == "local")
        return PropertySource::Local;
    if (text == "received")
        return PropertySource::Received;
    if (text == "temporary")
        return PropertySource::Temporary;
    if (util::str_is_starts_with(text, inheritedPrefix))
        return PropertySource::Inherited;
    throw exc::CRuntimeExc("Unknown source of a property: [%1].", text);
}

bool IsSetThere(PropertySource source) {
    return source == PropertySource::Local || source == PropertySource::Received ||
           source == PropertySource::Temporary; // a mount option covers what is stored
}

/// Whether `name` is below `ancestor`, snapshots of it included.
bool IsBelow(std::string_view name, std::string_view ancestor) {
    return name.size() > ancestor.size() && util::str_is_starts_with(name, ancestor) &&
           (name[ancestor.size()] == '/' || name[ancestor.size()] == '@');
}

/// The dataset above; empty above a pool.
std::string_view Parent(std::string_view name) {
    const std::size_t end = name.find_last_of("/@");
    return end == std::string_view::npos ? std::string_view() : name.substr(0, end);
}

/// Makes values of rows, in the order of the skeleton.
class Builder {
public:
    Builder(const SetAbove& above, StateTexts& texts) : above_(above), texts_(texts) {
        for (const PropertySource source :
             {PropertySource::None, PropertySource::Default, PropertySource::Local,
              PropertySource::Inherited, PropertySource::Received, PropertySource::Temporary})
            origins_.push_back(&texts_.Origin(source));
    }

    /// Starts anew.
    void Clear() {
        objects_.clear();
        byName_.clear();
    }

    /// Adds a row whose value, and behind it the received one, stand in a text that is kept. `name`
    /// is the row's, in that text.
    void Add(const Row& row, std::string_view name, std::string_view value,
             std::uint32_t receivedSize) {
        if (objects_.empty() || objects_.back().name != row.name)
            Begin(name);
        const ValueOrigin& origin = OriginOf(row);
        ObjectRows& object = objects_.back();
        object.properties.emplace_back(NameOf(row.property, object.properties.size()), origin,
                                       value, receivedSize);
    }

    /// The same for a value that is to be kept.
    void AddKept(const Row& row, std::string_view name, std::string_view value,
                 std::optional<std::string_view> received) {
        const PropertyValue kept = texts_.Make(row.property, value, received, *origins_.front());
        Add(row, name, kept.Value(),
            received ? static_cast<std::uint32_t>(received->size()) : PropertyValue::noReceived);
    }

    /// The value of the user property that the row inherits; nothing when the ancestor was not
    /// read.
    std::optional<std::string_view> InheritedValue(const Row& row) {
        const ObjectRows* ancestor = Find(OriginOf(row).inheritedFrom);
        const PropertyValue* property =
            ancestor == nullptr ? nullptr : FindProperty(ancestor->properties, row.property);
        if (property == nullptr)
            return std::nullopt;
        return property->Value();
    }

    std::vector<ObjectRows> Take() { return std::move(objects_); }

private:
    void Begin(std::string_view name) {
        const std::size_t expected = objects_.empty() ? 0 : objects_.back().properties.size();
        objects_.emplace_back().name = name;
        objects_.back().properties.reserve(expected);
    }

    /// Objects have the same properties in the same order, so each is mostly the one that stood at
    /// its place before.
    const std::string& NameOf(std::string_view property, std::size_t place) {
        if (place >= places_.size())
            places_.resize(place + 1, nullptr);
        if (places_[place] == nullptr || *places_[place] != property)
            places_[place] = &texts_.Name(property);
        return *places_[place];
    }

    const ValueOrigin& OriginOf(const Row& row) {
        const PropertySource source = SourceOf(row.source);
        if (source != PropertySource::Inherited)
            return *origins_[static_cast<std::size_t>(source)];
        const std::string_view printed = row.source.substr(inheritedPrefix.size());
        constexpr std::size_t neverCut = 64; // the shortest cut that is known is at 112
        if (printed.size() >= neverCut || !IsBelow(row.name, printed))
            return CutOrigin(row, printed);
        const ValueOrigin*& known = inherited_[printed];
        if (known == nullptr)
            known = &texts_.Origin(source, printed);
        return *known;
    }

    /// The nearest dataset above that sets the property and whose name begins as it is printed.
    const ValueOrigin& CutOrigin(const Row& row, std::string_view printed) {
        for (std::string_view name = Parent(row.name); !name.empty(); name = Parent(name)) {
            const ObjectRows* ancestor = Find(name);
            const PropertyValue* property =
                ancestor == nullptr ? nullptr : FindProperty(ancestor->properties, row.property);
            if (property != nullptr && IsSetThere(property->Source()) &&
                util::str_is_starts_with(name, printed))
                return texts_.Origin(PropertySource::Inherited, name);
        }
        const auto above = above_.find(row.property);
        if (above != above_.end())
            for (auto name = above->second.rbegin(); name != above->second.rend(); ++name)
                if (util::str_is_starts_with(*name, printed) && IsBelow(row.name, *name))
                    return texts_.Origin(PropertySource::Inherited, *name);
        return texts_.Origin(PropertySource::Inherited, printed,
                             "no dataset above with this name sets the property");
    }

    const ObjectRows* Find(std::string_view name) {
        for (std::size_t i = byName_.size(); i < objects_.size(); ++i)
            byName_.emplace(objects_[i].name, i);
        const auto found = byName_.find(name);
        return found == byName_.end() ? nullptr : &objects_[found->second];
    }

    const SetAbove& above_;
    StateTexts& texts_;
    std::vector<ObjectRows> objects_;
    std::unordered_map<std::string_view, std::size_t> byName_; ///< the first of objects_
    std::vector<const std::string*> places_;                   ///< names by the place of a row
    std::vector<const ValueOrigin*> origins_;                  ///< those of no ancestor, by source
    /// By the printed name, which stands in the skeleton.
    std::unordered_map<std::string_view, const ValueOrigin*> inherited_;
};

/// The cells behind the key of a row that is one line.
struct Cells {
    std::string_view value;
    std::uint32_t receivedSize = PropertyValue::noReceived;
};

/// Takes a row off the front of `text`, if the first tabs in it are those that divide it.
bool ConsumeRow(std::string_view& text, const Row& row, bool hasReceived, Cells& cells) {
    std::string_view rest = text;
    if (rest.size() < row.KeySize() ||
        std::memcmp(rest.data(), row.name.data(), row.KeySize()) != 0)
        return false;
    rest.remove_prefix(row.KeySize());
    if (!ConsumeCell(rest, cells.value))
        return false;
    cells.receivedSize = PropertyValue::noReceived;
    if (hasReceived) {
        std::string_view received;
        if (!ConsumeCell(rest, received))
            return false;
        // Where nothing was received, "-" is printed; what counts as received was received.
        if (received != "-" || row.source == "received")
            cells.receivedSize = static_cast<std::uint32_t>(received.size());
    }
    if (rest.size() <= row.source.size() || rest[row.source.size()] != '\n' ||
        std::memcmp(rest.data(), row.source.data(), row.source.size()) != 0)
        return false;
    text = rest.substr(row.source.size() + 1);
    return true;
}

/// Reads texts in which no value holds a tab; false when one does, or the texts do not fit
/// together. Once every row was found in its place and nothing is left, there were exactly as many
/// tabs as the rows need, so that each stood where it was taken to stand.
bool ReadPlainRows(std::string_view skeleton, std::string_view values, bool hasReceived,
                   Builder& builder) {
    SkeletonReader reader(skeleton);
    Row row;
    Cells cells;
    while (reader.Next(row)) {
        const std::string_view name = values.substr(0, row.name.size());
        if (!ConsumeRow(values, row, hasReceived, cells))
            return false;
        builder.Add(row, name, cells.value, cells.receivedSize);
    }
    return values.empty();
}

/// Reads texts in which values hold tabs.
class ContestedRows {
public:
    ContestedRows(std::string_view skeleton, std::string_view values, bool hasReceived)
        : values_(values), hasReceived_(hasReceived) {
        SkeletonReader reader(skeleton);
        Row row;
        while (reader.Next(row)) {
            auto& [first, last] = ranges_.try_emplace(row.name, rows_.size(), 0).first->second;
            rows_.push_back(row);
            last = rows_.size();
        }
        seen_.resize(rows_.size());
        FindSuspects();
    }

    void Read(const AskAlone& askAlone, Builder& builder) {
        std::string_view rest = values_;
        Cells cells;
        for (std::size_t i = 0; i < rows_.size(); ++i) {
            if (i == 0 || rows_[i].name != rows_[i - 1].name)
                ReadObjectAlone(i, askAlone);
            const std::string_view name = rest.substr(0, rows_[i].name.size());
            if (IsAsked(i))
                ReadAsked(i, rest, askAlone, builder);
            else if (ConsumeRow(rest, rows_[i], hasReceived_, cells))
                builder.Add(rows_[i], name, cells.value, cells.receivedSize);
            else
                ThrowMoved(rows_[i]);
        }
        if (!rest.empty())
            throw StateMoved("there are more rows than a moment before");
    }

private:
    static constexpr std::size_t none = static_cast<std::size_t>(-1);

    /// What was seen of a row in the values.
    struct Seen {
        std::size_t before = none; ///< the row in front of where it was seen first
        bool once = false;
        bool isRepeated = false;
        bool isSuspect = false;
    };

    [[noreturn]] static void ThrowMoved(const Row& row) {
        throw StateMoved(
            util::str_format("%1 %2 is not as it was a moment before", row.name, row.property));
    }

    /// Marks each row that may be other than one line, and each that another one may have forged.
    /// The first line of every row stands in the values, each in its place. A row that goes on
    /// behind its first line is therefore followed by a line that begins no row, or one out of its
    /// place, or the next row's, which then comes once more.
    void FindSuspects() {
        std::size_t current = none;
        std::string_view rest = values_;
        while (!rest.empty()) {
            const std::string_view text = rest;
            util::ConsumeLine(rest);
            const std::size_t expected = current == none ? 0 : current + 1;
            const std::size_t found = RowAt(text, expected);
            if (found != expected)
                Suspect(current);
            if (found == none)
                continue;
            See(found, current);
            Cells cells;
            std::string_view line = text.substr(0, text.size() - rest.size());
            if (!ConsumeRow(line, rows_[found], hasReceived_, cells) || !line.empty())
                Suspect(found);
            current = found;
        }
    }

    /// The row whose line the text begins with.
    std::size_t RowAt(std::string_view text, std::size_t expected) const {
        if (expected < rows_.size() && util::str_is_starts_with(text, rows_[expected].Key()))
            return expected;
        std::string_view name;
        if (!ConsumeCell(text, name))
            return none;
        const auto range = ranges_.find(name);
        if (range == ranges_.end())
            return none;
        for (std::size_t i = range->second.first; i < range->second.second; ++i)
            if (text.size() > rows_[i].property.size() && text[rows_[i].property.size()] == '\t' &&
                util::str_is_starts_with(text, rows_[i].property))
                return i;
        return none;
    }

    void See(std::size_t row, std::size_t before) {
        Seen& seen = seen_[row];
        if (!seen.once) {
            seen.once = true;
            seen.before = before;
            return;
        }
        seen.isRepeated = true;
        Suspect(row);
        Suspect(before);
        Suspect(seen.before);
    }

    void Suspect(std::size_t row) {
        if (row != none)
            seen_[row].isSuspect = true;
    }

    /// The tool's own words hold neither tabs nor newlines: only what somebody set does, or sent,
    /// which may stand behind a default.
    [[nodiscard]] bool IsAsked(std::size_t i) const {
        return seen_[i].isSuspect && rows_[i].source != "-";
    }

    /// Reads the object that begins at row `first` by itself when several of its rows are to be
    /// asked for: where another one forged them, they are clear there.
    void ReadObjectAlone(std::size_t first, const AskAlone& askAlone) {
        alone_.clear();
        const auto [begin, end] = ranges_.at(rows_[first].name);
        constexpr std::size_t few = 2;
        std::size_t asked = 0;
        for (std::size_t i = begin; i < end; ++i)
            asked += IsAsked(i) ? 1 : 0;
        if (asked <= few)
            return;
        aloneText_ = askAlone(rows_[first].name, "all",
                              hasReceived_ ? "name,property,value,received,source"
                                           : "name,property,value,source");
        std::string_view rest = aloneText_;
        Cells cells;
        for (std::size_t i = begin; i < end; ++i) {
            if (!ConsumeRow(rest, rows_[i], hasReceived_, cells))
                break;
            alone_.push_back(cells);
        }
        aloneFirst_ = begin;
        if (!rest.empty() || alone_.size() != end - begin)
            alone_.clear();
    }

    /// What was received, in the text behind the value.
    static std::string_view ReceivedOf(const Cells& cells) {
        return cells.receivedSize == PropertyValue::noReceived
                   ? std::string_view("-")
                   : std::string_view(cells.value.data() + cells.value.size() + 1,
                                      cells.receivedSize);
    }

    /// Takes a row whose value is known from elsewhere off the front of `text`.
    void ReadAsked(std::size_t i, std::string_view& text, const AskAlone& askAlone,
                   Builder& builder) const {
        const Row& row = rows_[i];
        const std::string_view name = text.substr(0, row.name.size());
        const Cells* alone = alone_.empty() ? nullptr : &alone_[i - aloneFirst_];
        const bool isUser = row.property.find(':') != std::string_view::npos;
        std::optional<std::string_view> inherited;
        if (alone == nullptr && isUser && util::str_is_starts_with(row.source, inheritedPrefix))
            inherited = builder.InheritedValue(row);
        const std::string value = alone != nullptr ? std::string(alone->value)
                                  : inherited      ? std::string(*inherited)
                                                   : Ask(row, "value", askAlone);
        if (!Consume(text, row.Key()) || !Consume(text, value) || !Consume(text, "\t"))
            ThrowMoved(row);
        std::optional<std::string> received;
        if (hasReceived_ && !(inherited && ConsumeNothingReceived(i, text))) {
            received =
                alone != nullptr ? std::string(ReceivedOf(*alone)) : Ask(row, "received", askAlone);
            if (!Consume(text, *received) || !Consume(text, "\t"))
                ThrowMoved(row);
            if (*received == "-" && row.source != "received")
                received.reset();
        }
        if (!Consume(text, row.source) || !Consume(text, "\n"))
            ThrowMoved(row);
        builder.AddKept(row, name, value, received);
    }

    /// Takes the "-" of an inherited row, of which there may be very many, off the front of `text`,
    /// where the next row's place is certain.
    bool ConsumeNothingReceived(std::size_t i, std::string_view& text) const {
        std::string_view rest = text;
        if (!Consume(rest, "-\t"))
            return false;
        std::string_view behind = rest;
        const bool isLast = i + 1 == rows_.size();
        if (!Consume(behind, rows_[i].source) || !Consume(behind, "\n") ||
            (isLast ? !behind.empty()
                    : seen_[i + 1].isRepeated ||
                          !util::str_is_starts_with(behind, rows_[i + 1].Key())))
            return false;
        text = rest;
        return true;
    }

    static bool Consume(std::string_view& text, std::string_view prefix) {
        if (!util::str_is_starts_with(text, prefix))
            return false;
        text.remove_prefix(prefix.size());
        return true;
    }

    static std::string Ask(const Row& row, std::string_view column, const AskAlone& askAlone) {
        std::string answer = askAlone(row.name, row.property, column);
        if (answer.empty() || answer.back() != '\n')
            ThrowMoved(row);
        answer.pop_back(); // the one that the tool adds
        return answer;
    }

    std::string_view values_;
    bool hasReceived_;
    std::vector<Row> rows_;
    std::vector<Seen> seen_;
    std::string aloneText_;      ///< the object that was read by itself,
    std::vector<Cells> alone_;   ///< its rows; empty when they were not clear either
    std::size_t aloneFirst_ = 0; ///< the first of them
    /// The rows of an object, from the first up to but not including the second.
    std::unordered_map<std::string_view, std::pair<std::size_t, std::size_t>> ranges_;
};

} // namespace

StateMoved::~StateMoved() = default;

std::vector<ObjectRows> ReadPropertyRows(std::string_view skeleton, std::string_view values,
                                         bool hasReceived, const AskAlone& askAlone,
                                         const SetAbove& above, StateTexts& texts) {
    Builder builder(above, texts);
    if (!ReadPlainRows(skeleton, values, hasReceived, builder)) {
        builder.Clear();
        ContestedRows(skeleton, values, hasReceived).Read(askAlone, builder);
    }
    return builder.Take();
}

SetAbove ReadSetAbove(std::string_view skeleton) {
    SetAbove above;
    SkeletonReader reader(skeleton);
    Row row;
    while (reader.Next(row))
        if (IsSetThere(SourceOf(row.source)))
            above[std::string(row.property)].emplace_back(row.name);
    for (auto& [property, names] : above)
        std::sort(names.begin(), names.end(), ComesBefore);
    return above;
}

namespace {

/// Takes the lines at the front that both texts have off them.
void SkipSame(std::string_view& a, std::string_view& b) {
    auto same = static_cast<std::size_t>(
        std::mismatch(a.begin(), a.end(), b.begin(), b.end()).first - a.begin());
    while (same > 0 && a[same - 1] != '\n')
        --same;
    a.remove_prefix(same);
    b.remove_prefix(same);
}

} // namespace

std::string DescribeMoves(std::string_view before, std::string_view after) {
    SkipSame(before, after);
    using Sources = std::unordered_map<std::string_view, Row>;
    const auto sourcesOf = [](std::string_view skeleton) {
        Sources sources;
        SkeletonReader reader(skeleton);
        Row row;
        while (reader.Next(row))
            if (row.source != "-" || row.property == "type")
                sources.emplace(row.Key(), row);
        return sources;
    };
    const Sources old = sourcesOf(before);
    const Sources recent = sourcesOf(after);
    std::vector<std::string> moves;
    /// What of the one is missing in the other; of a dataset that is missing itself only that.
    const auto tellMissing = [&moves](const Sources& from, const Sources& in, std::string_view is,
                                      const char* format) {
        for (const auto& [key, row] : from) {
            const std::string type = std::string(row.name) + "\ttype\t";
            if (in.find(key) != in.end())
                continue;
            if (row.property == "type")
                moves.push_back(util::str_format("%1 (%2)", row.name, is));
            else if (from.find(type) == from.end() || in.find(type) != in.end())
                moves.push_back(util::str_format(format, row.name, row.property, row.source));
        }
    };
    tellMissing(old, recent, "gone", "%1 %2 (gone, was %3)");
    tellMissing(recent, old, "new", "%1 %2 (%3, was not there)");
    for (const auto& [key, row] : old) {
        const auto found = recent.find(key);
        if (found != recent.end() && found->second.source != row.source)
            moves.push_back(util::str_format("%1 %2 (%3, was %4)", row.name, row.property,
                                             found->second.source, row.source));
    }
    constexpr std::size_t shown = 5;
    std::sort(moves.begin(), moves.end());
    std::string text;
    for (std::size_t i = 0; i < std::min(shown, moves.size()); ++i)
        text += (i == 0 ? "" : ", ") + moves[i];
    if (moves.size() > shown)
        text += util::str_format(" and %1 more", moves.size() - shown);
    return text;
}

} // namespace zfslib::restore::internal
