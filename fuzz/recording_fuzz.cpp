// The text of a recording: what can be read can be written, and reads the same again; and any
// byte string survives as a command, an output or a failure.

#include "executors/Recording.h"
#include "executors/ReplayingExecutor.h"
#include "fuzz/fuzz.h"

#include <algorithm>
#include <map>

using namespace zfslib::executors;

namespace {

bool operator==(const Exchange& a, const Exchange& b) {
    return a.command == b.command && a.output == b.output && a.failure == b.failure;
}

bool Equal(const std::vector<Exchange>& a, const std::vector<Exchange>& b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const Exchange& x, const Exchange& y) { return x == y; });
}

std::string Format(const std::vector<Exchange>& exchanges) {
    std::string text;
    for (const Exchange& exchange : exchanges)
        text += FormatExchange(exchange);
    return text;
}

/// "NAME:LINE: reason", with a line that the text has.
void CheckRefusal(const std::string& message, const std::string& text) {
    std::string_view rest = message;
    fuzz::Check(util::str_is_starts_with(rest, "fuzz:"), message);
    rest.remove_prefix(5);
    const std::string_view line = rest.substr(0, rest.find(':'));
    fuzz::Check(util::str_is_integer(line) && rest.substr(line.size(), 2) == ": ", message);
    const auto newlines = std::count(text.begin(), text.end(), '\n');
    const int number = util::StringToInt(line);
    fuzz::Check(number >= 1 && number <= newlines + 1, message);
}

void CheckReplay(const std::vector<Exchange>& exchanges) {
    const Replayer replayer(exchanges, "fuzz");
    const auto executor = replayer.Executor();
    for (const Exchange& exchange : exchanges) {
        try {
            fuzz::CheckEqual(executor(exchange.command), exchange.output, "the answers in order");
            fuzz::Check(!exchange.failure, "a failure fails again");
        } catch (const std::runtime_error& error) {
            fuzz::CheckEqual(fuzz::ErrorText(error.what()),
                             fuzz::ErrorText(exchange.failure.value_or("none")), "a failure");
        }
    }
    fuzz::Check(replayer.UnusedCommands().empty(), "every command was asked for");
}

} // namespace

void FuzzOne(const std::string& text) {
    try {
        const std::vector<Exchange> exchanges = ParseRecording(text, "fuzz").exchanges;
        fuzz::Check(Equal(ParseRecording(Format(exchanges), "again").exchanges, exchanges),
                    "a recording that is written reads the same");
        CheckReplay(exchanges);
    } catch (const std::runtime_error& error) {
        fuzz::Check(typeid(error) == typeid(std::runtime_error), error.what());
        CheckRefusal(error.what(), text);
    }

    std::vector<Exchange> exchanges{{"c", text, {}}, {"c" + text, "", text}};
    if (!text.empty())
        exchanges.push_back({text, text, {}});
    fuzz::Check(Equal(ParseRecording(Format(exchanges), "bytes").exchanges, exchanges),
                "every byte string comes back");
}
