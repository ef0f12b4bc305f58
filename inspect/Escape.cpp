#include "inspect/Escape.h"

#include "util/str.h"

#include <algorithm>
#include <iterator>
#include <optional>

namespace inspect {
namespace {

struct Character {
    std::size_t length;
    char32_t codePoint;
};

unsigned char Byte(char c) {
    return static_cast<unsigned char>(c);
}

bool IsContinuation(char c) {
    return (Byte(c) & 0xC0U) == 0x80U;
}

/// The character that the lead byte announces, with no more than the lead's bits; length 0 when it
/// is no lead byte.
Character FromLead(unsigned char lead) {
    if (lead < 0x80)
        return {1, lead};
    if (lead >= 0xC0 && lead < 0xE0)
        return {2, lead & 0x1FU};
    if (lead >= 0xE0 && lead < 0xF0)
        return {3, lead & 0x0FU};
    if (lead >= 0xF0 && lead < 0xF8)
        return {4, lead & 0x07U};
    return {0, 0};
}

/// The character at the front of a text that is not empty; nothing when it is not UTF-8.
std::optional<Character> Decode(std::string_view text) {
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    Character character = FromLead(Byte(text.front()));
    if (character.length == 0 || character.length > text.size())
        return std::nullopt;
    for (const char c : text.substr(1, character.length - 1)) {
        if (!IsContinuation(c))
            return std::nullopt;
        character.codePoint = character.codePoint << 6U | (Byte(c) & 0x3FU);
    }
    const char32_t code = character.codePoint;
    const bool isSurrogate = code >= 0xD800 && code <= 0xDFFF;
    if (code < smallest[character.length] || code > 0x10FFFF || isSurrogate)
        return std::nullopt;
    return character;
}

/// A range of characters, both ends included.
struct Range {
    char32_t first;
    char32_t last;
};

/// What a terminal does not show as a sign of its own where it stands: the characters of the
/// general categories Cc, Cf, Zl and Zp (controls, marks that change the direction of writing,
/// tags, line separators) and those that are ignored by default (fillers, joiners, variation
/// selectors).
constexpr Range unseen[] = {
    {0x0000, 0x001F},   {0x007F, 0x009F},   {0x00AD, 0x00AD},   {0x034F, 0x034F},
    {0x0600, 0x0605},   {0x061C, 0x061C},   {0x06DD, 0x06DD},   {0x070F, 0x070F},
    {0x0890, 0x0891},   {0x08E2, 0x08E2},   {0x115F, 0x1160},   {0x17B4, 0x17B5},
    {0x180B, 0x180F},   {0x200B, 0x200F},   {0x2028, 0x202E},   {0x2060, 0x206F},
    {0x3164, 0x3164},   {0xFE00, 0xFE0F},   {0xFEFF, 0xFEFF},   {0xFFA0, 0xFFA0},
    {0xFFF0, 0xFFFB},   {0x110BD, 0x110BD}, {0x110CD, 0x110CD}, {0x13430, 0x1343F},
    {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A}, {0xE0000, 0xE0FFF},
};

bool IsUnseen(char32_t code) {
    return std::any_of(std::begin(unseen), std::end(unseen), [code](const Range& range) {
        return range.first <= code && code <= range.last;
    });
}

void AppendByte(std::string& escaped, char c) {
    constexpr std::string_view digits = "0123456789abcdef";
    switch (c) {
    case '\n':
        escaped += "\\n";
        break;
    case '\t':
        escaped += "\\t";
        break;
    case '\r':
        escaped += "\\r";
        break;
    case '\x1b':
        escaped += "\\e";
        break;
    default:
        escaped += "\\x";
        escaped += digits[Byte(c) >> 4U];
        escaped += digits[Byte(c) & 0x0FU];
    }
}

/// Without white space at either end.
std::string_view Trim(std::string_view text) {
    while (!text.empty() && util::IsSpace(text.back()))
        text.remove_suffix(1);
    while (!text.empty() && util::IsSpace(text.front()))
        text.remove_prefix(1);
    return text;
}

} // namespace

std::string Escape(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    while (!text.empty()) {
        const std::optional<Character> character = Decode(text);
        const std::string_view bytes = text.substr(0, character ? character->length : 1);
        text.remove_prefix(bytes.size());
        if (bytes == "\\")
            escaped += "\\\\";
        else if (character && !IsUnseen(character->codePoint))
            escaped += bytes;
        else
            for (const char c : bytes)
                AppendByte(escaped, c);
    }
    return escaped;
}

bool IsUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::optional<Character> character = Decode(text);
        if (!character)
            return false;
        text.remove_prefix(character->length);
    }
    return true;
}

std::string Fold(std::string_view message) {
    constexpr std::size_t headSize = 1500;
    constexpr std::size_t tailSize = 500;
    std::string line;
    while (!message.empty()) {
        const std::string_view part = Trim(util::ConsumeLine(message));
        if (!line.empty() && !part.empty())
            line += ' ';
        line += part;
    }
    if (line.size() > headSize + tailSize)
        line.replace(headSize, line.size() - headSize - tailSize, " ... ");
    return line;
}

std::size_t Columns(std::string_view escaped) {
    return escaped.size() -
           static_cast<std::size_t>(std::count_if(escaped.begin(), escaped.end(), IsContinuation));
}

std::string_view CutToColumns(std::string_view escaped, std::size_t columns) {
    std::size_t end = 0;
    for (; end < escaped.size(); ++end)
        if (!IsContinuation(escaped[end]) && columns-- == 0)
            break;
    return escaped.substr(0, end);
}

} // namespace inspect
