#include "restore/HostState.h"

#include "util/str.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <system_error>

namespace zfslib::restore {
namespace {

/// The item of that name in a list in the order of ComesBefore.
template <typename Item>
const Item* FindSorted(const std::vector<Item>& items, std::string_view name) noexcept {
    const auto found = std::lower_bound(
        items.begin(), items.end(), name,
        [](const Item& item, std::string_view wanted) { return ComesBefore(item.name, wanted); });
    return found != items.end() && found->name == name ? &*found : nullptr;
}

} // namespace

const PropertyValue* FindProperty(const std::vector<PropertyValue>& properties,
                                  std::string_view name) noexcept {
    const auto found =
        std::find_if(properties.begin(), properties.end(),
                     [name](const PropertyValue& property) { return property.Name() == name; });
    return found == properties.end() ? nullptr : &*found;
}

std::string Quota::PropertyName() const {
    constexpr std::string_view owners[] = {"user", "group", "project"};
    std::string name(owners[static_cast<std::size_t>(owner)]);
    name += isOfObjects ? "objquota@" : "quota@";
    return name + id;
}

const PropertyRule* FindRule(const PropertyRules& rules, std::string_view property) {
    const auto own = rules.find(property);
    if (own != rules.end())
        return &own->second;
    const std::size_t at = property.find('@');
    if (at == std::string_view::npos)
        return nullptr;
    const auto family = rules.find(std::string(property.substr(0, at + 1)) + "...");
    return family == rules.end() ? nullptr : &family->second;
}

bool TakesOption(const CommandUsages& usages, std::string_view command, char option) {
    const auto usage = usages.find(command);
    if (usage == usages.end())
        return false;
    // Options stand as "[-u]", "[-Hpn]", "[-r|-d max]" and, when they must be given, as "-V" alone.
    const std::string& text = usage->second;
    for (std::size_t dash = text.find('-'); dash != std::string::npos;
         dash = text.find('-', dash + 1)) {
        if (dash > 0 && std::string_view(" [|\n").find(text[dash - 1]) == std::string_view::npos)
            continue;
        const std::size_t end = text.find_first_of(" ]|\n", dash);
        const std::string_view letters = std::string_view(text).substr(
            dash + 1, end == std::string::npos ? end : end - dash - 1);
        if (letters.find(option) != std::string_view::npos &&
            !util::str_is_starts_with(letters, "-"))
            return true;
    }
    return false;
}

bool ToolsState::SetsSeveral() const {
    const auto usage = zfsUsage.find("set");
    return usage != zfsUsage.end() &&
           usage->second.find("<property=value> ...") != std::string::npos;
}

bool ToolsState::AtLeast(unsigned major, unsigned minor) const noexcept {
    const char* const end = version.data() + version.size();
    const auto digits =
        std::find_if(version.data(), end, [](char c) { return c >= '0' && c <= '9'; });
    unsigned first = 0;
    unsigned second = 0;
    const auto afterFirst = std::from_chars(digits, end, first);
    if (afterFirst.ec != std::errc() || afterFirst.ptr == end || *afterFirst.ptr != '.')
        return false;
    if (std::from_chars(afterFirst.ptr + 1, end, second).ec != std::errc())
        return false;
    return first != major ? first > major : second >= minor;
}

bool ComesBefore(std::string_view a, std::string_view b) noexcept {
    const auto [inA, inB] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
    if (inA == a.end() || inB == b.end())
        return inA == a.end() && inB != b.end();
    if ((*inA == '/') != (*inB == '/'))
        return *inA == '/'; // what is below a dataset comes before a sibling with a longer name
    return static_cast<unsigned char>(*inA) < static_cast<unsigned char>(*inB);
}

StateTexts::StateTexts() = default;
StateTexts::~StateTexts() = default;

std::string_view StateTexts::Keep(std::string text) {
    return texts_.emplace_back(std::move(text));
}

const std::string& StateTexts::Name(std::string_view name) {
    const auto known = names_.find(name);
    return known != names_.end() ? *known : *names_.emplace(name).first;
}

const ValueOrigin& StateTexts::Origin(PropertySource source, std::string_view inheritedFrom,
                                      std::string_view doubt) {
    ValueOrigin origin{source, std::string(inheritedFrom), std::string(doubt)};
    std::tuple key(source, origin.inheritedFrom, origin.doubt);
    return origins_.try_emplace(std::move(key), std::move(origin)).first->second;
}

PropertyValue StateTexts::Make(std::string_view name, std::string_view value,
                               std::optional<std::string_view> received,
                               const ValueOrigin& origin) {
    std::string text(value);
    if (received) {
        text += '\t';
        text += *received;
    }
    const std::string_view kept = Keep(std::move(text));
    return {Name(name), origin, kept.substr(0, value.size()),
            received ? static_cast<std::uint32_t>(received->size()) : PropertyValue::noReceived};
}

const PoolState* HostState::FindPool(std::string_view name) const noexcept {
    return FindSorted(pools, name);
}

const DatasetState* HostState::FindDataset(std::string_view name) const noexcept {
    return FindSorted(datasets, name);
}

const SnapshotState* HostState::FindSnapshot(std::string_view name) const noexcept {
    return FindSorted(snapshots, name);
}

} // namespace zfslib::restore
