#pragma once

#include "zfstools/Executor.h"

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>

namespace inspect {

/// How many columns the terminal behind standard error has now; 80 when it does not say.
[[nodiscard]] std::size_t TerminalColumns();

/// Shows what is waited for, in one line of a terminal that is drawn again and again: how far an
/// enumeration of datasets is, "filesystem 12 of 25: tank/home", and of every command that takes
/// long its name, "waiting 14 s: zpool import". It learns that from the commands that pass through.
class Progress {
public:
    /// `columns` is asked for the width before each line; a command takes long after `patience`.
    Progress(std::ostream& terminal, std::function<std::size_t()> columns,
             std::chrono::milliseconds patience = std::chrono::seconds(2));
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// An executor that passes every command on to `executor`. The progress must live as long as
    /// commands are run.
    [[nodiscard]] zfslib::CommandExecutor Watch(zfslib::CommandExecutor executor);

private:
    using Clock = std::chrono::steady_clock;
    class Waiting;

    void BeforeCommand(const std::string& command);
    void AfterCommand();
    void AfterList(const std::string& command, const std::string& output);
    void WatchTheTime();
    void Draw(const std::string& line);
    void Erase();
    [[nodiscard]] std::size_t WritableColumns() const;

    std::ostream& terminal_;
    const std::function<std::size_t()> columns_;
    const std::chrono::milliseconds patience_;

    std::mutex mutex_; // for all below
    std::string type_; ///< of the datasets that were listed last
    std::size_t listed_ = 0;
    std::size_t begun_ = 0;
    std::string waitedFor_; ///< the command in progress; empty when there is none
    Clock::time_point waitedSince_;
    bool showsWaiting_ = false;
    std::string drawn_; ///< what stands on the terminal
    Clock::time_point drawnAt_;
    bool isOver_ = false;
    std::condition_variable over_;
    std::thread timer_; ///< last: it uses the others
};

} // namespace inspect
