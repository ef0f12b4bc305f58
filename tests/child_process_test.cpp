#include "logging/logging.h"
#include "posix/CSimpleCmdExec.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <gmock/gmock.h>
#include <new>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using posix::CCommandFailure;
using posix::CSimpleCmdExec;
using testing::HasSubstr;
using namespace std::chrono_literals;

// What the system does to the library is changed here, where chance alone would do it.
std::atomic<bool> killsAreLost{false};
std::function<void(int number)> beforeRead;
std::function<int()> readError;                // what the read fails with; 0: it does not
std::atomic<std::size_t> readAtMost{SIZE_MAX}; // as from a pipe of packets
std::atomic<int> reads{0};

extern "C" int kill(pid_t pid, int signal) noexcept {
    static const auto systemKill = reinterpret_cast<int (*)(pid_t, int)>(dlsym(RTLD_NEXT, "kill"));
    return killsAreLost ? 0 : systemKill(pid, signal);
}
extern "C" ssize_t read(int number, void* buffer, std::size_t size) {
    static const auto systemRead =
        reinterpret_cast<ssize_t (*)(int, void*, std::size_t)>(dlsym(RTLD_NEXT, "read"));
    if (beforeRead)
        beforeRead(number);
    ++reads;
    if (readError)
        if (const int error = readError(); error != 0) {
            errno = error;
            return -1;
        }
    return systemRead(number, buffer, std::min<std::size_t>(size, readAtMost));
}

namespace {

/// What a command must leave as it was: descriptors, children, signal mask and dispositions.
std::string HostState() {
    std::string state = "open:";
    for (int number = 0; number < 1024; ++number)
        if (fcntl(number, F_GETFD) >= 0)
            state += " " + std::to_string(number);
    state += waitpid(-1, nullptr, WNOHANG) < 0 && errno == ECHILD ? "; no child" : "; a child";
    sigset_t blocked;
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    for (int signal = 1; signal < SIGRTMIN; ++signal) {
        struct sigaction action {};
        sigaction(signal, nullptr, &action);
        state += sigismember(&blocked, signal) == 1 ? " b" : " u";
        state += std::to_string(reinterpret_cast<std::uintptr_t>(action.sa_handler));
    }
    return state;
}

/// "ok [out] [err]", or the failure with its number instead of "ok".
std::string Execute(const std::string& program, const std::vector<std::string>& arguments,
                    int timeoutSeconds = 0, bool mergeError = false) {
    try {
        std::string err;
        std::string out;
        CSimpleCmdExec::RunCommandAndGetOutput(program, arguments, err, out, mergeError,
                                               timeoutSeconds);
        return "ok [" + out + "] [" + err + "]";
    } catch (const CCommandFailure& failure) {
        const char* const kinds[] = {"CannotStart", "ExitStatus", "Signal",        "TimeOut",
                                     "StatusLost",  "Stopped",    "OutputTooLong", "OutputLost"};
        return kinds[static_cast<int>(failure.GetKind())] +
               (" " + std::to_string(failure.GetCode())) + " [" + failure.GetOutput() + "] [" +
               failure.GetErrorText() + "]";
    }
}

std::string Script(const std::string& script, int timeoutSeconds = 0) {
    return Execute("sh", {"-c", script}, timeoutSeconds);
}

/// Runs expectations in a copy of this process, which may be spoilt in any way.
void InForkedCopy(const std::function<void()>& body) {
    const pid_t pid = fork();
    if (pid == 0) {
        body();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(pid, &status, 0), pid);
    EXPECT_EQ(status, 0) << "in the forked copy";
}

/// Lets a read wait until there is text, or the end of it: never an empty pipe.
void OnceThereIsMore(int number) {
    pollfd end{number, POLLIN, 0};
    poll(&end, 1, -1);
}

/// Lets the first read wait until the child has written, however slow the machine is.
std::function<void(int)> OnceThereIsText() {
    return [first = true](int number) mutable {
        if (std::exchange(first, false))
            OnceThereIsMore(number);
    };
}

void OnceItHasEnded(int /*number*/) {
    siginfo_t end;
    waitid(P_ALL, 0, &end, WEXITED | WNOWAIT);
}

class ChildProcess : public testing::Test {
protected:
    ChildProcess() { EXPECT_EQ(mkfifo(fifo.c_str(), 0600), 0); }
    ~ChildProcess() override {
        EXPECT_EQ(HostState(), stateBefore);
        beforeRead = nullptr;
        readError = nullptr;
        readAtMost = SIZE_MAX;
        CSimpleCmdExec::SetOutputLimit(CSimpleCmdExec::defaultOutputLimit);
        std::filesystem::remove_all(directory);
    }

    const std::string stateBefore = HostState();
    std::string directoryTemplate = testing::TempDir() + "childXXXXXX";
    const std::string directory = mkdtemp(directoryTemplate.data());
    const std::string fifo = directory + "/fifo";
};

TEST_F(ChildProcess, HowItEnds) {
    const std::string plainFile = directory + "/plain";
    close(open(plainFile.c_str(), O_CREAT | O_WRONLY, 0644));
    const std::string enoent = "CannotStart " + std::to_string(ENOENT);
    const std::string eacces = "CannotStart " + std::to_string(EACCES);
    const struct {
        std::string name, program;
        std::vector<std::string> arguments;
        std::string expected;
    } rows[] = {
        {"both streams", "sh", {"-c", "echo out; echo err >&2"}, "ok [out\n] [err\n]"},
        {"silent", "/bin/true", {}, "ok [] []"},
        {"status", "sh", {"-c", "echo o; echo e >&2; exit 3"}, "ExitStatus 3 [o\n] [e\n]"},
        {"largest status", "sh", {"-c", "exit 255"}, "ExitStatus 255 [] []"},
        {"signal in mid-output", "sh", {"-c", "printf half; kill -9 $$"}, "Signal 9 [half] []"},
        {"own group", "sh", {"-c", "kill -15 0"}, "Signal 15 [] []"},
        {"closes its streams", "sh", {"-c", "exec >&- 2>&-; exit 5"}, "ExitStatus 5 [] []"},
        {"no such name", "no-such-tool", {}, enoent + " [] []"},
        {"no such path", "/no/such/tool", {}, enoent + " [] []"},
        {"no name", "", {}, enoent + " [] []"},
        {"not executable", plainFile, {}, eacces + " [] []"},
        {"directory", "/usr/bin", {}, eacces + " [] []"},
        {"NUL in program", std::string("true\0x", 6), {}, "CannotStart 22 [] []"},
        {"NUL in argument", "true", {std::string("\0", 1)}, "CannotStart 22 [] []"},
        {"too long", "true", {std::string(8 << 20, 'x')}, "CannotStart 7 [] []"},
        {"not found by sh", "/bin/sh", {"-c", "no-such-tool 2>&-"}, enoent + " [] []"},
        {"not run by sh", "sh", {"-c", plainFile + " 2>&-"}, eacces + " [] []"},
        {"127 of another", "nice", {"sh", "-c", "exit 127"}, "ExitStatus 127 [] []"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Execute(row.program, row.arguments), row.expected) << row.name;
    EXPECT_THAT(Execute("/usr/bin/env", {"-i", "no-such-tool"}),
                HasSubstr(enoent + " [] [/usr/bin/env: "));
    EXPECT_THAT(Execute("env", {"-i", plainFile}), HasSubstr(eacces + " [] [env: "));
}

TEST_F(ChildProcess, RunCommandAndItsMessages) {
    std::string log;
    logging::SetSink([&log](logging::Level, const std::string& section, const std::string& text) {
        log += section + ": " + text;
    });
    EXPECT_EQ(CSimpleCmdExec::RunCommand("echo out; echo err >&2"), "out\n");
    logging::SetSink({});
    EXPECT_EQ(log, "zfslib: Command [echo out; echo err >&2] wrote to standard error: [err\n]");
    const struct {
        std::string line, expected;
    } rows[] = {
        {"echo out; echo 'no\n such' >&2; exit 1", "exit status 1: no\n such"},
        {"(echo busy >&2; exit 1) 2>&1", "exit status 1: busy"},
        {"exit 9 # silently", "exit status 9"},
        {"no-such-tool 2>&-", "cannot be started: No such file or directory"},
        {"kill -9 $$", "killed by signal 9"},
    };
    for (const auto& row : rows)
        EXPECT_THAT([&] { CSimpleCmdExec::RunCommand(row.line); },
                    testing::ThrowsMessage<CCommandFailure>("Command [" + row.line +
                                                            "] failed: " + row.expected));
    EXPECT_THAT([] { CSimpleCmdExec::RunCommand("head -c 99999 /dev/zero | tr '\\0' x; exit 1"); },
                testing::ThrowsMessage<CCommandFailure>(
                    testing::SizeIs(testing::Lt(CCommandFailure::errorTextLimit + 200))));
    std::string text;
    const auto run = [&text](std::vector<std::string> words) {
        CSimpleCmdExec::RunCommandAndGetOutput("/no", words, text, text, false, 0);
    };
    EXPECT_THAT(
        [&] {
            run({"a", "b"});
        },
        testing::ThrowsMessage<CCommandFailure>(HasSubstr("Command [/no a b] failed: cannot be ")));
    EXPECT_THAT([&] { run({std::string(9 << 20, 'x')}); },
                testing::ThrowsMessage<CCommandFailure>(
                    testing::AllOf(testing::SizeIs(testing::Lt(5000)),
                                   HasSubstr("x... (9437188 bytes)] failed: cannot be "))));
}

TEST_F(ChildProcess, SeesNothingOfTheHost) {
    EXPECT_EQ(Execute("printf", {"[%s]", "a b", "", "'$HOME'", "*\n"}),
              "ok [[a b][]['$HOME'][*\n]] []");
    EXPECT_EQ(Execute("env", {}), "ok [PATH=/usr/sbin:/usr/bin:/sbin:/bin\nLC_ALL=C\n] []");
    EXPECT_EQ(Execute("wc", {"-c"}), "ok [0\n] []");
    InForkedCopy([this] {
        setenv("PATH", directory.c_str(), 1);
        std::filesystem::create_symlink("/bin/true", directory + "/hosts-own");
        EXPECT_EQ(Execute("hosts-own", {}), "CannotStart 2 [] []");
        signal(SIGPIPE, SIG_IGN);
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);
        for (const int number : {SIGPIPE, SIGTERM})
            EXPECT_EQ(Script("kill -" + std::to_string(number) + " $$; echo survived"),
                      "Signal " + std::to_string(number) + " [] []");
        for (const int number : {5, 9, 250})
            dup2(STDOUT_FILENO, number);
        // 3 is the directory that ls reads.
        EXPECT_EQ(Execute("ls", {"/proc/self/fd"}), "ok [0\n1\n2\n3\n] []");
    });
}

TEST_F(ChildProcess, KeepsTheEndOfALongErrorText) {
    const std::string flood = "head -c 100000 /dev/zero | tr '\\0' x >&2; echo end >&2; exit ";
    EXPECT_EQ(Script(flood + "0"), "ok [] [" + std::string(100000, 'x') + "end\n]");
    EXPECT_EQ(Script(flood + "1"), "ExitStatus 1 [] [" +
                                       std::string(CCommandFailure::errorTextLimit - 4, 'x') +
                                       "end\n]");
}

TEST_F(ChildProcess, FloodOnBothPipes) {
    constexpr std::size_t size = 256 * 1024 * 1024;
    const std::string head = "head -c " + std::to_string(size) + " /dev/zero";
    const std::clock_t start = std::clock();
    std::string err;
    std::string out;
    CSimpleCmdExec::RunCommandAndGetOutput("sh", {"-c", head + " >&2 & " + head + "; wait"}, err,
                                           out, false, 0);
    EXPECT_LT((std::clock() - start) / CLOCKS_PER_SEC, 60) << "seconds of processor time";
    for (const std::string* text : {&out, &err}) {
        EXPECT_EQ(text->size(), size);
        EXPECT_EQ(text->find_first_not_of('\0'), std::string::npos);
    }
}

TEST_F(ChildProcess, ProcessItLeftBehindDelaysNothing) {
    const auto start = std::chrono::steady_clock::now();
    kill(std::stoi(CSimpleCmdExec::RunCommand("sleep 600 & echo $!")), SIGKILL);
    beforeRead = OnceThereIsMore;
    EXPECT_THAT(Script("yes 2>&- & exit 4"), testing::StartsWith("ExitStatus 4 ["));
    EXPECT_THAT(Script("yes 2>&- &"), testing::StartsWith("OutputLost 0 ["));
    EXPECT_LT(std::chrono::steady_clock::now() - start, 120s);
}

TEST_F(ChildProcess, TimeOutKillsTheGroup) {
    pollfd heldByGrandchild{open(fifo.c_str(), O_RDONLY | O_NONBLOCK), POLLIN, 0};
    beforeRead = OnceThereIsText();
    EXPECT_THAT(
        Script("exec 3>" + fifo + "; sleep 600 & echo e >&2; while :; do echo flows; done", 1),
        testing::AllOf(testing::StartsWith("TimeOut 1 [flows\n"), testing::EndsWith("] [e\n]")));
    EXPECT_EQ(poll(&heldByGrandchild, 1, 60000), 1) << "the grandchild lives";
    EXPECT_TRUE(heldByGrandchild.revents & POLLHUP);
    close(heldByGrandchild.fd);
    EXPECT_EQ(Script("exec >&- 2>&-; sleep 600", 1), "TimeOut 1 [] []");
    EXPECT_EQ(Script("echo in time", 600), "ok [in time\n] []");
}

TEST_F(ChildProcess, SurvivorOfItsKillIsReapedLater) {
    InForkedCopy([] {
        static pid_t survivor = 0;
        std::atexit([] { // after what was built later is destroyed
            EXPECT_EQ(Execute("true", {}), "ok [] []");
            EXPECT_EQ(waitpid(survivor, nullptr, WNOHANG), -1);
            _exit(HasFailure() ? 1 : 0);
        });
        beforeRead = OnceThereIsText();
        killsAreLost = true;
        const std::string result = Script("echo $$; exec sleep 600", 1);
        killsAreLost = false;
        ASSERT_THAT(result, testing::StartsWith("TimeOut 1 ["));
        survivor = std::stoi(result.substr(result.find('[') + 1));
        kill(survivor, SIGKILL);
        siginfo_t end;
        EXPECT_EQ(waitid(P_PID, static_cast<id_t>(survivor), &end, WEXITED | WNOWAIT),
                  0); // dead now, and a zombie
        std::exit(2);
    });
}

TEST_F(ChildProcess, ExceptionWhileReading) {
    beforeRead = [](int) { throw std::bad_alloc(); };
    EXPECT_THROW(Script("sleep 600"), std::bad_alloc);
}

TEST_F(ChildProcess, EndsBeforeItsOutputIsRead) {
    beforeRead = OnceItHasEnded;
    const std::string zeros(60000, '\0');
    EXPECT_EQ(Script("head -c 60000 /dev/zero; head -c 60000 /dev/zero >&2"),
              "ok [" + zeros + "] [" + zeros + "]");
    readAtMost = 1;
    EXPECT_EQ(Script("head -c 999 /dev/zero"), "ok [" + zeros.substr(0, 999) + "] []");
}

TEST_F(ChildProcess, FailedReads) {
    readError = [] { return EIO; };
    EXPECT_EQ(Script("sleep 600"), "OutputLost 5 [] []");
    readError = [count = 0]() mutable { return ++count % 2 == 0 ? 0 : EINTR; };
    EXPECT_EQ(Script("echo out; echo err >&2"), "ok [out\n] [err\n]");
}

TEST_F(ChildProcess, WritesTooMuch) {
    CSimpleCmdExec::SetOutputLimit(1000);
    EXPECT_EQ(Script("head -c 600 /dev/zero; head -c 400 /dev/zero >&2").substr(0, 4), "ok [");
    EXPECT_EQ(Script("head -c 600 /dev/zero; head -c 401 /dev/zero >&2").substr(0, 15),
              "OutputTooLong 0");
    EXPECT_LT(Script("yes").size(), CCommandFailure::errorTextLimit + 100);
    beforeRead = [](int number) {
        OnceItHasEnded(number);
        OnceThereIsMore(number);
    };
    readAtMost = 1;
    reads = 0;
    EXPECT_EQ(Script("yes 2>&- &").substr(0, 15), "OutputTooLong 0");
    EXPECT_LT(reads, 1100);
}

TEST_F(ChildProcess, SilentOneIsRarelyLookedAt) {
    reads = 0;
    EXPECT_EQ(Script("sleep 1"), "ok [] []");
    EXPECT_LT(reads, 300); // of two pipes, every twentieth of a second and some more at first
}

TEST_F(ChildProcess, ThreadIsNotCancelledInIt) {
    std::string result;
    int state = PTHREAD_CANCEL_DISABLE;
    std::thread thread([&] {
        result = Script(": >" + fifo + "; sleep 0.1; echo out");
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    });
    close(open(fifo.c_str(), O_RDONLY)); // opens when the other side does
    pthread_cancel(thread.native_handle());
    thread.join();
    EXPECT_EQ(result, "ok [out\n] []");
    EXPECT_EQ(state, PTHREAD_CANCEL_ENABLE);
}

TEST_F(ChildProcess, StoppedByASignalHandler) {
    std::string result;
    std::thread command([&] { result = Script("echo started; sleep 600 >" + fifo); });
    close(open(fifo.c_str(), O_RDONLY)); // opens when the other side does
    const auto formerHandler = signal(SIGUSR1, [](int) { CSimpleCmdExec::SetStopped(true); });
    const auto start = std::chrono::steady_clock::now();
    raise(SIGUSR1);
    command.join();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 60s);
    EXPECT_EQ(result, "Stopped 0 [started\n] []");
    EXPECT_EQ(Execute("no-such-tool", {}), "Stopped 0 [] []");
    CSimpleCmdExec::SetStopped(false);
    signal(SIGUSR1, formerHandler);
    EXPECT_EQ(Execute("true", {}), "ok [] []");
    beforeRead = [](int number) {
        OnceThereIsMore(number);
        CSimpleCmdExec::SetStopped(true);
    };
    reads = 0;
    EXPECT_THAT(Script("exec yes 2>&-"), testing::StartsWith("Stopped 0 [y\n"));
    CSimpleCmdExec::SetStopped(false);
    EXPECT_LT(reads, 5) << "of a child that writes on";
}

TEST_F(ChildProcess, DescriptorsRunOutInMidStart) {
    InForkedCopy([] {
        // UndefinedBehaviorSanitizer needs a pipe to look at an exception of a type new to it.
        EXPECT_THAT(Execute("no-such-program", {}), testing::StartsWith("CannotStart"));
        int highest = 0;
        while (highest < 40) // fills the gaps
            highest = dup(STDERR_FILENO);
        for (int number = highest + 1; number < 1024; ++number)
            close(number);
        const std::string before = HostState();
        const std::string refused = "CannotStart " + std::to_string(EMFILE) + " [] []";
        for (int spare = 0; spare <= 8; ++spare) {
            const rlimit limit{static_cast<rlim_t>(highest + 1 + spare), 4096};
            EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
            const std::string result = Execute("true", {});
            // Two pipes take four. How many more posix_spawn needs is up to the system.
            if (spare < 4 || spare == 8) {
                EXPECT_EQ(result, spare < 4 ? refused : "ok [] []") << spare << " spare";
            }
            EXPECT_EQ(HostState(), before) << spare << " spare";
        }
        const rlimit below{static_cast<rlim_t>(highest), 4096}; // which the child would inherit
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &below), 0);
        for (int number = 4; number < highest; ++number)
            close(number);
        EXPECT_EQ(Execute("true", {}), "ok [] []");
    });
}

TEST_F(ChildProcess, StandardStreamsOfTheHostClosed) {
    InForkedCopy([] {
        for (const int number : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
            close(number);
        const std::string before = HostState();
        beforeRead = [](int number) { EXPECT_GT(number, STDERR_FILENO); };
        EXPECT_EQ(Script("cat; echo out; echo err >&2"), "ok [out\n] [err\n]");
        EXPECT_EQ(Execute("sh", {"-c", "echo 1; echo 2 >&2; echo 3; echo 4 >&2"}, 0, true),
                  "ok [1\n2\n3\n4\n] []");
        EXPECT_EQ(HostState(), before);
        std::atomic<bool> done{false};
        std::thread writer([&] {
            while (!done)
                for (const int number : {STDOUT_FILENO, STDERR_FILENO})
                    syscall(SYS_write, number, "host",
                            4); // ThreadSanitizer knows whose number it is
        });
        for (int i = 0; i < 200 && !testing::Test::HasFailure(); ++i)
            EXPECT_EQ(Script("echo out; echo err >&2"), "ok [out\n] [err\n]");
        done = true;
        writer.join();
    });
}

TEST_F(ChildProcess, StatusTakenByTheHost) {
    InForkedCopy([] {
        signal(SIGCHLD, SIG_IGN);
        EXPECT_EQ(Script("echo out; exit 0"), "StatusLost 0 [out\n] []");
        EXPECT_EQ(Script("sleep 600", 1), "TimeOut 1 [] []");
    });
}

TEST_F(ChildProcess, InterruptedEverywhere) {
    InForkedCopy([] {
        struct sigaction action {};
        action.sa_handler = [](int) {};
        sigaction(SIGALRM, &action, nullptr);
        const itimerval everyMillisecond{{0, 1000}, {0, 1000}};
        setitimer(ITIMER_REAL, &everyMillisecond, nullptr);
        for (int i = 0; i < 20; ++i)
            EXPECT_EQ(Script("head -c 1000000 /dev/zero; sleep 0.01; exit 3"),
                      "ExitStatus 3 [" + std::string(1000000, '\0') + "] []");
    });
}

TEST_F(ChildProcess, ManyThreadsWhileAnotherForks) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 64; ++i)
        threads.emplace_back([i] {
            const std::string text = std::to_string(i);
            for (int round = 0; round < 5; ++round)
                EXPECT_EQ(Script("echo " + text + "; echo e >&2; exit " + text),
                          (i == 0 ? "ok" : "ExitStatus " + text) + " [" + text + "\n] [e\n]");
        });
    std::vector<pid_t> copies; // each holds what pipes there are at its time, until the end
    while (copies.size() < 20) {
        copies.push_back(fork());
        if (copies.back() == 0)
            for (;;)
                pause();
    }
    for (std::thread& thread : threads)
        thread.join();
    for (const pid_t copy : copies) {
        kill(copy, SIGKILL);
        waitpid(copy, nullptr, 0);
    }
}

} // namespace
