#include "restore/internal/Reading.h"

#include "posix/CSimpleCmdExec.h"
#include "util/str.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace zfslib::restore::internal {

bool WasRefused(const std::exception& error) {
    const auto* failure = dynamic_cast<const posix::CCommandFailure*>(&error);
    return failure == nullptr || failure->GetKind() == posix::CCommandFailure::Kind::ExitStatus;
}

std::string ReasonOf(const std::exception& error) {
    const auto* failure = dynamic_cast<const posix::CCommandFailure*>(&error);
    std::string reason = failure != nullptr && !failure->GetErrorText().empty()
                             ? failure->GetErrorText()
                             : error.what();
    while (!reason.empty() && util::IsSpace(reason.back()))
        reason.pop_back();
    std::replace(reason.begin(), reason.end(), '\n', ' ');
    return reason;
}

std::string_view ValueOf(const std::vector<PropertyValue>& properties, std::string_view name) {
    const PropertyValue* property = FindProperty(properties, name);
    return property == nullptr || property->Value() == "-" ? std::string_view() : property->Value();
}

std::optional<std::uint64_t> NumberOf(std::string_view text) {
    std::uint64_t number = 0;
    const auto end = std::from_chars(text.data(), text.data() + text.size(), number);
    if (end.ec != std::errc() || end.ptr != text.data() + text.size())
        return std::nullopt;
    return number;
}

std::string StateCommands::Run(const std::string& command) const {
    const std::string line = "/usr/bin/env -i " + command;
    _log.dbg("Execute command: [%1]", line);
    return executor_(line);
}

std::string StateCommands::RunAgain(const std::string& command) const {
    try {
        return Run(command);
    } catch (const std::exception& error) {
        if (!WasRefused(error))
            throw;
        throw StateMoved(ReasonOf(error));
    }
}

} // namespace zfslib::restore::internal
