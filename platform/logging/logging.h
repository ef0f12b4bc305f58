#pragma once

#include "../util/str.h"
#include "../zfslib_export.h"

#include <exception>
#include <functional>
#include <string>
#include <string_view>

/// The library's log: silent until the host sets a sink.
namespace logging {

/// How much a message matters, in rising order.
enum class Level { debug, info, warning, error };

/// Receives one message of a section. It is called by whatever thread logs, several at once; what
/// it throws goes no further.
using Sink =
    std::function<void(Level level, const std::string& section, const std::string& message)>;

/// Sets where messages of `threshold` and above go, for the whole process. An empty sink (the
/// default) receives nothing, and then, as below the threshold, no message is even formatted. May
/// be called at any time; a message already on its way still reaches the earlier sink. A sink that
/// is set when the process ends is not destroyed: what was logged last may still be on its way.
ZFSLIB_EXPORT void SetSink(Sink sink, Level threshold = Level::debug);

/// Whether a message of this level would reach a sink.
[[nodiscard]] ZFSLIB_EXPORT bool IsEnabled(Level level) noexcept;

/// An exception's message, followed by those of its causes: "what: cause: cause of the cause".
[[nodiscard]] ZFSLIB_EXPORT std::string Describe(const std::exception& error);

/// A named source of messages. The messages are formatted by util::str_format.
class ZFSLIB_EXPORT log_section_t {
public:
    /// The name is what a sink receives as its section. It is kept until the process ends, so
    /// names should not be made up without end.
    explicit log_section_t(std::string name);

    /// As it was given.
    [[nodiscard]] const std::string& Name() const noexcept { return *name_; }

    /// @{
    /// Sends a message of the level, if it would reach a sink.
    template <typename... Args>
    void dbg(std::string_view format, const Args&... args) const {
        Write(Level::debug, [&] { return util::str_format(format, args...); });
    }
    template <typename... Args>
    void info(std::string_view format, const Args&... args) const {
        Write(Level::info, [&] { return util::str_format(format, args...); });
    }
    template <typename... Args>
    void warn(std::string_view format, const Args&... args) const {
        Write(Level::warning, [&] { return util::str_format(format, args...); });
    }
    template <typename... Args>
    void err(std::string_view format, const Args&... args) const {
        Write(Level::error, [&] { return util::str_format(format, args...); });
    }
    /// @}
    /// The message, then ": " and what the exception says.
    template <typename... Args>
    void err(const std::exception& error, std::string_view format, const Args&... args) const {
        Write(Level::error,
              [&] { return util::str_format(format, args...) + ": " + Describe(error); });
    }

private:
    template <typename Format>
    void Write(Level level, Format&& format) const {
        if (!IsEnabled(level))
            return;
        try {
            Send(level, format());
        } catch (...) { // NOLINT(bugprone-empty-catch)
            // No memory for a log line: what it is about went as it went.
        }
    }
    void Send(Level level, const std::string& message) const;

    const std::string* name_; ///< kept until the process ends, whatever happens to the section
};

/// Marks a scope in the log, at debug level: the text on entry, and "Done: " with the text on exit
/// if the scope was left after okNoMsg(). A scope left by an exception ends without a second line.
class ZFSLIB_EXPORT trace_t {
public:
    /// Enters the scope. The section must outlive it.
    template <typename... Args>
    trace_t(const log_section_t& section, std::string_view format, const Args&... args)
        : section_(section) {
        if (!IsEnabled(Level::debug))
            return;
        text_ = util::str_format(format, args...);
        section_.dbg("%1", text_);
    }
    ~trace_t();
    trace_t(const trace_t&) = delete;
    trace_t& operator=(const trace_t&) = delete;

    /// The scope ended well, and there is nothing more to say about it.
    void okNoMsg() noexcept { ok_ = true; }

private:
    const log_section_t& section_;
    std::string text_;
    bool ok_ = false;
};

} // namespace logging
