// Ends the commands in progress when the host is told to end.

#include "posix/CSimpleCmdExec.h"
#include "zfstools/Executor.h"

#include <csignal>
#include <iostream>
#include <thread>

extern "C" void EndCommands(int /*signal*/) {
    posix::CSimpleCmdExec::SetStopped(true);
}

int main() {
    std::signal(SIGTERM, EndCommands);
    std::thread administrator([] { std::raise(SIGTERM); });
    try {
        zfslib::Executors::ChildProcessExecute("/usr/bin/env -i sleep 600");
    } catch (const posix::CCommandFailure& failure) {
        std::cout << failure.what() << '\n';
    }
    administrator.join();
}
