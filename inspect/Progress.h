#pragma once

#include "zfstools/Executor.h"

#include <chrono>
#include <cstddef>
#include <ostream>
#include <string>

namespace inspect {

/// Shows how far an enumeration of datasets is, in one line of a terminal that is drawn again and
/// again: "filesystem 12 of 25: tank/home". It learns that from the commands that pass through.
class Progress {
public:
    explicit Progress(std::ostream& terminal) : terminal_(terminal) {}
    ~Progress() { Erase(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// An executor that passes every command on to `executor`. The progress must live as long as
    /// commands are run.
    [[nodiscard]] zfslib::CommandExecutor Watch(zfslib::CommandExecutor executor);

    /// Takes the line off the terminal; it may come back.
    void Erase();

private:
    void BeforeCommand(const std::string& command);
    void AfterCommand(const std::string& command, const std::string& output);
    void Draw(const std::string& line);

    std::ostream& terminal_;
    std::string type_; ///< of the datasets that were listed last
    std::size_t listed_ = 0;
    std::size_t begun_ = 0;
    std::size_t drawnColumns_ = 0;
    std::chrono::steady_clock::time_point drawnAt_;
};

} // namespace inspect
