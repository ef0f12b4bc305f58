#pragma once

#include "zfstools/Executor.h"

#include <exception>
#include <memory>
#include <mutex>

namespace inspect {

/// Remembers that the connection to another host failed. Some questions take every failure for an
/// answer ("the tools are not installed", "quotas could not be read"), which this one is not to be.
/// Copies share what they remember.
class LostHost {
public:
    /// An executor that passes every command on to `executor` until one fails for the connection,
    /// and then runs nothing more.
    [[nodiscard]] zfslib::CommandExecutor Watch(zfslib::CommandExecutor executor) const;

    /// Errors: the posix::CCommandFailure for which the connection failed, if it did.
    void Check() const;

private:
    struct State {
        std::mutex mutex;
        std::exception_ptr failure;
    };
    std::shared_ptr<State> state_ = std::make_shared<State>();
};

} // namespace inspect
