#include "inspect/LostHost.h"

#include "posix/CSimpleCmdExec.h"

#include <utility>

namespace inspect {

using posix::CCommandFailure;

zfslib::CommandExecutor LostHost::Watch(zfslib::CommandExecutor executor) const {
    return [lostHost = *this, executor = std::move(executor)](const std::string& command) {
        lostHost.Check();
        try {
            return executor(command);
        } catch (const CCommandFailure& failure) {
            using Kind = CCommandFailure::Kind;
            if (failure.GetKind() == Kind::NotConnected ||
                failure.GetKind() == Kind::ConnectionLost) {
                const std::lock_guard<std::mutex> lock(lostHost.state_->mutex);
                if (!lostHost.state_->failure)
                    lostHost.state_->failure = std::current_exception();
            }
            throw;
        }
    };
}

void LostHost::Check() const {
    const std::lock_guard<std::mutex> lock(state_->mutex);
    if (state_->failure)
        std::rethrow_exception(state_->failure);
}

} // namespace inspect
