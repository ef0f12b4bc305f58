#include "executors/Recording.h"

#include "posix/internal/File.h"
#include "util/str.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace zfslib::executors {
namespace {

constexpr std::string_view commandMark = "$ ";
constexpr std::string_view continuationMark = "> ";
constexpr std::string_view failureMark = "! ";
/// Stands in front of an output line that would be taken for a mark. Alone on a line it says that
/// the output above it does not end in a newline.
constexpr char escape = '\\';
// Output lines that begin with the escape have a second one, so these are none.
constexpr std::string_view beginMark = "\\begin ";
constexpr std::string_view exchangeEndMark = "\\.";
constexpr std::string_view endMark = "\\end";

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

    Recording Read() {
        RefuseCarriageReturns();
        while (!text_.empty()) {
            ++lineNumber_;
            const bool isTerminated = text_.find('\n') != std::string_view::npos;
            const std::string_view line = util::ConsumeLine(text_);
            if (isTerminated || !IsCutShort(line))
                ReadLine(line);
        }
        LeaveExchange();
        if (sessions_ > 0 && recording_.end != End::CutShort)
            recording_.end = openSessions_ == 0 ? End::Ended : End::CutShort;
        return std::move(recording_);
    }

private:
    using End = Recording::End;
    /// What the last line was.
    enum class Place { Preamble, Command, Output, OutputEnd, Failure, ExchangeEnd };

    /// A mail program or an editor does this to a recording, whose answers would be other ones
    /// then.
    void RefuseCarriageReturns() {
        std::size_t newline = text_.find('\n');
        if (newline == std::string_view::npos)
            return;
        for (; newline != std::string_view::npos; newline = text_.find('\n', newline + 1))
            if (newline == 0 || text_[newline - 1] != '\r')
                return;
        lineNumber_ = 1;
        Refuse("every line ends in CR LF; recordings have LF alone, and their bytes must be kept");
    }

    /// Whether the last line, which lacks its newline, says nothing because more of it is lost.
    bool IsCutShort(std::string_view line) {
        const bool isBegin = util::str_is_starts_with(line, beginMark);
        if (openSessions_ > 0) {
            if (isBegin || line == exchangeEndMark || line == endMark)
                return false;
        } else {
            // Alone, the escape may be what somebody wrote who ends no file in a newline.
            const std::size_t least = IsBetweenExchanges() ? 1 : 2;
            if (isBegin || line.size() < least || !util::str_is_starts_with(beginMark, line))
                return false;
        }
        recording_.end = End::CutShort;
        recording_.cutBytes = line.size();
        return true;
    }

    [[nodiscard]] bool IsBetweenExchanges() const {
        return place_ == Place::Preamble || place_ == Place::ExchangeEnd;
    }

    void ReadLine(std::string_view line) {
        if (util::str_is_starts_with(line, beginMark))
            Begin();
        else if (line == endMark)
            ReadEnd();
        else if (line == exchangeEndMark)
            EndExchange();
        else if (ConsumeMark(line, commandMark))
            StartExchange(line);
        else if (IsBetweenExchanges())
            ReadComment(line);
        else if (ConsumeMark(line, continuationMark))
            ContinueCommand(line);
        else if (ConsumeMark(line, failureMark))
            ReadFailure(line);
        else
            ReadOutput(line);
    }

    void Begin() {
        LeaveExchange();
        ++sessions_;
        ++openSessions_;
    }

    void ReadEnd() {
        LeaveExchange();
        if (openSessions_ > 0)
            --openSessions_;
    }

    void EndExchange() {
        if (IsBetweenExchanges())
            Refuse("a line \"\\.\" ends an exchange, but there is none");
        place_ = Place::ExchangeEnd;
    }

    /// Between exchanges, whatever the last one lacks. Where a recorder wrote, it lacks nothing
    /// when its end is marked; elsewhere nobody can tell.
    void LeaveExchange() {
        if (!IsBetweenExchanges() && openSessions_ > 0) {
            std::vector<Exchange>& exchanges = recording_.exchanges;
            recording_.missing.push_back(util::str_format("%1:%2: the answer to [%3] is cut short",
                                                          name_, commandLine_,
                                                          exchanges.back().command));
            recording_.end = End::CutShort;
            exchanges.pop_back();
        }
        place_ = Place::ExchangeEnd;
    }

    void StartExchange(std::string_view line) {
        if (line.empty() && !util::str_is_starts_with(text_, continuationMark))
            Refuse("the command is empty");
        LeaveExchange();
        recording_.exchanges.emplace_back().command = line;
        commandLine_ = lineNumber_;
        place_ = Place::Command;
    }

    void ReadComment(std::string_view line) const {
        if (line.empty() || line[0] == '#')
            return;
        if (place_ == Place::Preamble)
            Refuse("before the first command (\"$ \") only comments (\"#\") and empty lines stand");
        Refuse("behind the end of an exchange (\"\\.\") only comments (\"#\"), empty lines and the "
               "next command (\"$ \") stand");
    }

    void ContinueCommand(std::string_view line) {
        if (place_ != Place::Command)
            Refuse("a command is continued (\"> \") only directly below it; write an output line "
                   "that begins so as \"\\> \"");
        recording_.exchanges.back().command.append("\n").append(line);
    }

    void ReadFailure(std::string_view line) {
        std::optional<std::string>& failure = recording_.exchanges.back().failure;
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
        std::string& output = recording_.exchanges.back().output;
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
    std::size_t commandLine_ = 0; ///< the line of the last command
    Place place_ = Place::Preamble;
    std::size_t sessions_ = 0;
    std::size_t openSessions_ = 0;
    Recording recording_;
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

Recording ParseRecording(std::string_view text, const std::string& name) {
    return RecordingReader(text, name).Read();
}

Recording ReadRecording(const std::string& path, std::uint64_t limit) {
    std::string text;
    try {
        const posix::internal::OpenFile file = posix::internal::OpenToRead(path);
        // Of what cannot be a recording the first byte is enough; it may have no end.
        posix::internal::ReadUpTo(file.descriptor, text, 1);
        if (text.empty() || std::string_view("#$\n\r\\").find(text[0]) != std::string_view::npos)
            posix::internal::ReadUpTo(file.descriptor, text, std::max(limit, limit + 1));
    } catch (const std::runtime_error& error) {
        throw std::runtime_error("Cannot read the recording [" + path + "]: " + error.what());
    }
    if (text.size() > limit)
        throw std::runtime_error("Cannot read the recording [" + path + "]: it is longer than " +
                                 util::str(limit) + " bytes");
    return ParseRecording(text, path);
}

std::string FormatExchange(const Exchange& exchange) {
    std::string recording;
    AppendMarked(recording, exchange.command, commandMark, continuationMark);
    if (exchange.failure)
        AppendMarked(recording, *exchange.failure, failureMark, failureMark);
    else
        AppendOutput(recording, exchange.output);
    return recording.append(exchangeEndMark).append("\n");
}

} // namespace zfslib::executors
