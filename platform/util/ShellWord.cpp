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

} // namespace util
