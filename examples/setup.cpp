// What a host does at start-up, before other threads use the library.

#include "executors/HostWordsExecutor.h"
#include "logging/logging.h"
#include "zfstools/Executor.h"
#include "zfstools/logging.h"

#include <iostream>

void SetUpZfslib() {
    logging::SetSink(
        [](logging::Level level, const std::string& section, const std::string& message) {
            static const char* const names[] = {"debug", "info", "warning", "error"};
            // In one piece: several threads may log at once.
            std::cout << section + " " + names[static_cast<int>(level)] + ": " + message + "\n";
        },
        logging::Level::info);

    using namespace zfslib;
    constexpr int tenMinutes = 600;
    Executors::ChildOptions child;
    child.timeoutSeconds = tenMinutes;
    Executors::SetProcessExecutor(executors::HostWordsExecutor(Executors::ChildExecutor(child)));
    child.shell = true;
    const CommandExecutor shell = executors::HostWordsExecutor(Executors::ChildExecutor(child));
    Executors::SetZpoolExecutor(shell);
    Executors::SetDfExecutor(shell);
}

int main() {
    SetUpZfslib();
    zfslib_log.info("The executor answers: [%1]",
                    zfslib::Executors::GetProcessExecutor()("/usr/bin/env -i echo ready"));
    zfslib_log.dbg("Below the threshold, so this is not even formatted.");
}
