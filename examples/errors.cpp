// The ways in which a command can fail, and what each tells the host.

#include "logging/logging.h"
#include "posix/CSimpleCmdExec.h"
#include "zfstools/Executor.h"

#include <iostream>

/// What to do after a failure.
const char* Advice(const posix::CCommandFailure& failure) {
    using Kind = posix::CCommandFailure::Kind;
    switch (failure.GetKind()) {
    case Kind::CannotStart: // GetCode() is the errno value
        return "nothing has happened; is the tool installed?";
    case Kind::ExitStatus: // GetCode() is the status, GetErrorText() the tool's reason
        return "the tool refused";
    case Kind::Signal:
    case Kind::TimeOut:
    case Kind::StatusLost:
    case Kind::OutputTooLong:
    case Kind::OutputLost:
    case Kind::ConnectionLost: // of an ssh executor
        return "it may have happened or not; look before you repeat it";
    case Kind::NotConnected: // of an ssh executor
        return "nothing has happened; can the other host be reached?";
    case Kind::Stopped:
        return "the host is going down";
    }
    return "";
}

int main() {
    const auto executor = zfslib::Executors::TimedChildProcessExecutor(1);
    for (const char* command :
         {"/usr/bin/env -i no-such-tool", "/usr/bin/env -i false", "/usr/bin/env -i sleep 600"}) {
        try {
            executor(command);
        } catch (const posix::CCommandFailure& failure) {
            std::cout << command << ": " << Advice(failure) << '\n';
        } catch (const std::exception& error) { // what was read could not be understood
            std::cout << command << ": " << logging::Describe(error) << '\n';
        }
    }
}
