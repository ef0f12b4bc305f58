#pragma once

#include "exc/exc.h"
#include "restore/HostState.h"
#include "restore/internal/PropertyRows.h"
#include "zfstools/Executor.h"
#include "zfstools/logging.h"

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// What the readers of a state share.
namespace zfslib::restore::internal {

/// Whether a command was run and refused, so that what it was to read may have gone; other failures
/// (a time-out, a tool that is missing) are not mended by going on.
[[nodiscard]] bool WasRefused(const std::exception& error);

/// What the tool said about a failure, on one line.
[[nodiscard]] std::string ReasonOf(const std::exception& error);

/// The value of a property that is "-" when there is nothing.
[[nodiscard]] std::string_view ValueOf(const std::vector<PropertyValue>& properties,
                                       std::string_view name);

/// The number that a text is; nothing when it is none.
[[nodiscard]] std::optional<std::uint64_t> NumberOf(std::string_view text);

/// Runs the commands of a reader.
class StateCommands {
public:
    explicit StateCommands(const CommandExecutor& executor) : executor_(executor) {}

    [[nodiscard]] std::string Run(const std::string& command) const;
    /// Runs a command on what was there a moment ago: StateMoved when it is refused.
    [[nodiscard]] std::string RunAgain(const std::string& command) const;

    /// Runs `read` until nothing moved meanwhile.
    template <typename ReadPart>
    static void Repeat(std::string_view what, const std::string& name, ReadPart&& read) {
        constexpr int attempts = 3;
        for (int attempt = 1;; ++attempt) {
            try {
                read();
                return;
            } catch (const StateMoved& moved) {
                _log.info("State of [%1] moved: %2", name, moved.what());
                if (attempt == attempts)
                    throw exc::CRuntimeExc("Cannot read %1 [%2]: it changed each of %3 times: %4.",
                                           what, name, attempts, moved.what());
            } catch (const std::exception&) {
                exc::RegenExc("Cannot read %1 [%2]", what, name);
            }
        }
    }

private:
    const CommandExecutor& executor_;
};

} // namespace zfslib::restore::internal
