// Records what the library asks of a host and what it is answered. With a second recording, that
// one plays the host.

#include "executors/BatchingExecutor.h"
#include "executors/RecordingExecutor.h"
#include "executors/ReplayingExecutor.h"
#include "zfstools/Tools.h"
#include "zfstools/ZfsDatasetEnumerator.h"
#include "zfstools/ZpoolsEnumerator.h"

#include <iostream>

using namespace zfslib;

int main(int argc, char** argv) {
    if (argc != 2 && argc != 3) {
        std::cerr << "usage: record NEW-RECORDING [RECORDING]\n";
        return 2;
    }
    const CommandExecutor host = argc == 3 ? executors::Replayer(argv[2]).Executor()
                                           : Executors::TimedChildProcessExecutor(600);
    // The recorder goes around the batches, so that single commands are recorded.
    const executors::Recorder recorder(argv[1]);
    const CommandExecutor executor = recorder.Executor(executors::BatchingExecutor(host));
    Executors::SetProcessExecutor(executor);
    Executors::SetZpoolExecutor(executor);
    Executors::SetDfExecutor(executor);

    IsZfsToolsInstalled();
    for (const Zpool& pool : ZpoolEnumerator::Enumerate(executor))
        ZfsDatasetEnumerator().Enumerate(pool.name, executor);
    recorder.Close();
    std::cout << executors::ReadRecording(argv[1]).exchanges.size() << " commands are recorded\n";
}
