#include "executors/Recording.h"

#include "util/str.h"

#include <array>
#include <cerrno>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace zfslib::executors {
namespace {

constexpr std::string_view commandMark = "$ ";
constexpr std::string_view continuationMark = "> ";
constexpr std::string_view failureMark = "! ";
/// Stands in front of an output line that would be taken for a mark. Alone on a line it says that
/// the output above it does not end in a newline.
constexpr char escape = '\\';

/// Whether `line` begins with the mark, which is then taken off its front.
bool ConsumeMark(std::string_view& line, std::string_view mark) {
    if (!util::str_is_starts_with(line, mark))
        return false;
    line.remove_prefix(mark.size());
    return true;
}

bool LooksLikeMark(std::string_view line) {
    return util::str_is_starts_with(line, commandMark) ||
           util::str_is_starts_with(line, continuationMark) ||
           util::str_is_starts_with(line, failureMark) || (!line.empty() && line[0] == escape);
}

class RecordingReader {
public:
    RecordingReader(std::string_view text, const std::string& name) : text_(text), name_(name) {}

    std::vector<Exchange> Read() {
        while (!text_.empty()) {
            ++lineNumber_;
            ReadLine(util::ConsumeLine(text_));
        }
        return std::move(exchanges_);
    }

private:
    /// What the last line was.
    enum class Place { Preamble, Command, Output, OutputEnd, Failure };

    void ReadLine(std::string_view line) {
        if (ConsumeMark(line, commandMark))
            StartExchange(line);
        else if (place_ == Place::Preamble)
            ReadPreamble(line);
        else if (ConsumeMark(line, continuationMark))
            ContinueCommand(line);
        else if (ConsumeMark(line, failureMark))
            ReadFailure(line);
        else
            ReadOutput(line);
    }

    void StartExchange(std::string_view line) {
        if (line.empty() && !util::str_is_starts_with(text_, continuationMark))
            Refuse("the command is empty");
        exchanges_.emplace_back().command = line;
        place_ = Place::Command;
    }

    void ReadPreamble(std::string_view line) const {
        if (!line.empty() && line[0] != '#')
            Refuse("before the first command (\"$ \") only comments (\"#\") and empty lines stand");
    }

    void ContinueCommand(std::string_view line) {
        if (place_ != Place::Command)
            Refuse("a command is continued (\"> \") only directly below it; write an output line "
                   "that begins so as \"\\> \"");
        exchanges_.back().command.append("\n").append(line);
    }

    void ReadFailure(std::string_view line) {
        std::optional<std::string>& failure = exchanges_.back().failure;
        if (place_ == Place::Command)
            failure = line;
        else if (place_ == Place::Failure)
            failure->append("\n").append(line);
        else
            Refuse("a command that failed (\"! \") has no output; write an output line that "
                   "begins so as \"\\! \"");
        place_ = Place::Failure;
    }

    void ReadOutput(std::string_view line) {
        if (place_ == Place::Failure)
            Refuse("a command that failed (\"! \") has no output");
        if (place_ == Place::OutputEnd)
            Refuse("a line \"\\\" ends the output, but more follows");
        std::string& output = exchanges_.back().output;
        if (!line.empty() && line[0] == escape) {
            if (line.size() == 1)
                return EndOutput(output);
            line.remove_prefix(1);
        }
        output.append(line).append("\n");
        place_ = Place::Output;
    }

    void EndOutput(std::string& output) {
        if (place_ != Place::Output)
            Refuse("a line \"\\\" stands only below output");
        output.pop_back();
        place_ = Place::OutputEnd;
    }

    [[noreturn]] void Refuse(const char* reason) const {
        throw std::runtime_error(util::str_format("%1:%2: %3", name_, lineNumber_, reason));
    }

    std::string_view text_;
    const std::string& name_;
    std::size_t lineNumber_ = 0;
    Place place_ = Place::Preamble;
    std::vector<Exchange> exchanges_;
};

/// Puts each line of `text`, the empty one behind a final newline included, below the other, with
/// `mark` in front of the first and `nextMark` in front of the others.
void AppendMarked(std::string& recording, std::string_view text, std::string_view mark,
                  std::string_view nextMark) {
    recording += mark;
    for (const char c : text) {
        recording += c;
        if (c == '\n')
            recording += nextMark;
    }
    recording += '\n';
}

void AppendOutput(std::string& recording, std::string_view output) {
    const bool endsInNewline = output.empty() || output.back() == '\n';
    while (!output.empty()) {
        const std::string_view line = util::ConsumeLine(output);
        if (LooksLikeMark(line))
            recording += escape;
        recording.append(line).append("\n");
    }
    if (!endsInNewline)
        recording.append(1, escape).append("\n");
}

} // namespace

std::vector<Exchange> ParseRecording(std::string_view text, const std::string& name) {
    return RecordingReader(text, name).Read();
}

std::vector<Exchange> ReadRecording(const std::string& path) {
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    std::string text;
    std::array<char, 65536> block;
    while (file.read(block.data(), block.size()) || file.gcount() > 0)
        text.append(block.data(), static_cast<std::size_t>(file.gcount()));
    // A directory can be opened, but not read.
    if (!file.is_open() || file.bad())
        throw std::runtime_error("Cannot read the recording [" + path +
                                 "]: " + std::generic_category().message(errno));
    return ParseRecording(text, path);
}

std::string FormatExchange(const Exchange& exchange) {
    std::string recording;
    AppendMarked(recording, exchange.command, commandMark, continuationMark);
    if (exchange.failure)
        AppendMarked(recording, *exchange.failure, failureMark, failureMark);
    else
        AppendOutput(recording, exchange.output);
    return recording;
}

} // namespace zfslib::executors
