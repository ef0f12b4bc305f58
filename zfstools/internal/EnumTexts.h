#pragma once

#include "util/internal/NeverDestroyed.h"

#include <initializer_list>
#include <stdexcept>
#include <string>
#include <unordered_map>

namespace zfslib {

/// The texts that the tools use for the values of an enumeration: one table, made into a look-up
/// for each direction. Matching is exact. For tables that live as long as the process: what one
/// holds is never destroyed.
template <typename Enum>
class EnumTexts {
public:
    enum class Reading { Accepted, Rejected };

    struct Row {
        Enum value;
        const char* text;
        Reading reading = Reading::Accepted; ///< Rejected: the text is printed but never read
    };

    EnumTexts(std::initializer_list<Row> rows) {
        for (const Row& row : rows) {
            (*texts_).emplace(row.value, row.text);
            if (row.reading == Reading::Accepted)
                (*values_).emplace(row.text, row.value);
        }
    }

    /// The value of a text; nullptr when the text is unknown.
    [[nodiscard]] const Enum* Find(const std::string& text) const {
        const auto found = (*values_).find(text);
        return found == (*values_).end() ? nullptr : &found->second;
    }

    /// The value of a text. Errors: std::runtime_error `error` + text.
    [[nodiscard]] Enum Value(const std::string& text, const char* error) const {
        if (const Enum* value = Find(text))
            return *value;
        throw std::runtime_error(error + text);
    }

    /// The text of a value. Errors: std::runtime_error `error` + the value's number.
    [[nodiscard]] const std::string& Text(Enum value, const char* error) const {
        const auto found = (*texts_).find(value);
        if (found == (*texts_).end())
            throw std::runtime_error(error + std::to_string(static_cast<int>(value)));
        return found->second;
    }

private:
    util::internal::NeverDestroyed<std::unordered_map<std::string, Enum>> values_;
    util::internal::NeverDestroyed<std::unordered_map<Enum, std::string>> texts_;
};

} // namespace zfslib
