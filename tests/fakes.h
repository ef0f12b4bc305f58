#pragma once

#include "logging/logging.h"
#include "zfstools/Executor.h"

#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

/// The beginnings of the command lines that the library runs.
namespace commands {
inline const std::string env = "/usr/bin/env -i ";
inline const std::string zfsList = env + "zfs list -rH -o name,avail,used,usedrefreserv -t ";
inline const std::string zfsGet = env + "zfs get all ";
inline const std::string userspace = env + "zfs userspace ";
inline const std::string groupspace = env + "zfs groupspace ";
inline const std::string zpoolList = env + "zpool list -o name,size,alloc";
inline const std::string zpoolStatus = env + "zpool status ";
inline const std::string zpoolGet = env + "zpool get all ";
} // namespace commands

/// Answers commands from a map and remembers what was asked; a command that is not there fails.
class FakeExecutor {
public:
    explicit FakeExecutor(std::map<std::string, std::string> answers = {})
        : state_(std::make_shared<State>(State{std::move(answers), {}})) {}

    std::string operator()(const std::string& command) const {
        state_->commands.push_back(command);
        const auto answer = state_->answers.find(command);
        if (answer == state_->answers.end())
            throw std::runtime_error("no answer to " + command);
        return answer->second;
    }
    void Answer(const std::string& command, const std::string& output) const {
        state_->answers[command] = output;
    }
    /// The commands since the last call.
    std::vector<std::string> Commands() const { return std::exchange(state_->commands, {}); }

private:
    struct State {
        std::map<std::string, std::string> answers;
        std::vector<std::string> commands;
    };
    std::shared_ptr<State> state_;
};

/// Puts an executor into all three slots, and the former ones back at the end.
class InstalledExecutor {
public:
    explicit InstalledExecutor(const zfslib::CommandExecutor& executor) {
        zfslib::Executors::SetDfExecutor(executor);
        zfslib::Executors::SetZpoolExecutor(executor);
        zfslib::Executors::SetProcessExecutor(executor);
    }
    ~InstalledExecutor() {
        zfslib::Executors::SetDfExecutor(df_);
        zfslib::Executors::SetZpoolExecutor(zpool_);
        zfslib::Executors::SetProcessExecutor(process_);
    }
    InstalledExecutor(const InstalledExecutor&) = delete;
    InstalledExecutor& operator=(const InstalledExecutor&) = delete;

private:
    zfslib::CommandExecutor df_ = zfslib::Executors::GetDfExecutor();
    zfslib::CommandExecutor zpool_ = zfslib::Executors::GetZpoolExecutor();
    zfslib::CommandExecutor process_ = zfslib::Executors::GetProcessExecutor();
};

/// Collects the log as "level: message" lines for as long as it lives.
class LogCapture {
public:
    explicit LogCapture(logging::Level threshold = logging::Level::debug) {
        logging::SetSink(
            [this](logging::Level level, const std::string& section, const std::string& message) {
                static const char* const names[] = {"debug", "info", "warning", "error"};
                lines.push_back(names[static_cast<int>(level)] + std::string(": ") + message);
                sections.push_back(section);
            },
            threshold);
    }
    ~LogCapture() { logging::SetSink({}); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> lines;
    std::vector<std::string> sections;
};

/// What a call throws, as text; "" when it throws nothing.
template <typename Call>
std::string ErrorOf(Call&& call) {
    try {
        call();
    } catch (const std::exception& error) {
        return error.what();
    }
    return "";
}
