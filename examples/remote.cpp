// Lists the pools of a host that is reached over ssh.

#include "executors/BatchingExecutor.h"
#include "executors/HostWordsExecutor.h"
#include "executors/SshExecutor.h"
#include "posix/CSimpleCmdExec.h"
#include "zfstools/ZpoolsEnumerator.h"

#include <cstdlib>
#include <iostream>

using namespace zfslib;

CommandExecutor HostExecutor(const std::string& destination) {
    executors::SshOptions options;
    options.destination = destination;
    options.options = {"ConnectTimeout=20", "ServerAliveInterval=15"};
    if (const char* const agent = std::getenv("SSH_AUTH_SOCK"))
        options.environment = {std::string("SSH_AUTH_SOCK=") + agent};
    options.timeoutSeconds = 600;
    return executors::BatchingExecutor(
        executors::HostWordsExecutor(executors::SshExecutor(options)));
}

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: remote [USER@]HOST\n";
        return 2;
    }
    try {
        for (const Zpool& pool : ZpoolEnumerator::Enumerate(HostExecutor(argv[1])))
            std::cout << pool.name << ": " << Zpool::StateToString(pool.state) << '\n';
    } catch (const posix::CCommandFailure& failure) {
        std::cerr << failure.what() << '\n';
        if (failure.GetKind() == posix::CCommandFailure::Kind::NotConnected)
            std::cout << "nothing was run\n";
    }
}
