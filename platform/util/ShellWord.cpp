#include "util/ShellWord.h"

namespace util {

std::string ShellWord(std::string_view text) {
    std::string word = "'";
    for (const char c : text)
        if (c == '\'')
            word += "'\\''";
        else
            word += c;
    return word + "'";
}

std::string ShellOperand(std::string_view text) {
    return (text.substr(0, 1) == "-" ? "-- " : "") + ShellWord(text);
}

std::string ShellLine(const std::vector<std::string>& words) {
    constexpr std::string_view plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                       "0123456789_-.:/@=,+";
    std::string line;
    for (const std::string& word : words) {
        const bool isPlain = !word.empty() && word.find_first_not_of(plain) == std::string::npos;
        line += (line.empty() ? "" : " ") + (isPlain ? word : ShellWord(word));
    }
    return line;
}

} // namespace util
