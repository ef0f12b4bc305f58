#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

/// What the JSON of every command is made with.
namespace inspect {

/// Members keep the order in which they are put in.
using Json = nlohmann::ordered_json;

/// A text for which empty means that there is none.
inline Json NullIfEmpty(const std::string& text) {
    return text.empty() ? Json() : Json(text);
}

/// A number that may not be known.
inline Json NullIfMissing(const std::optional<std::uint64_t>& bytes) {
    return bytes ? Json(*bytes) : Json();
}

/// What `convert` makes of each item.
template <typename Items, typename Convert>
Json Array(const Items& items, Convert&& convert) {
    Json array = Json::array();
    for (const auto& item : items)
        array.push_back(convert(item));
    return array;
}

} // namespace inspect
