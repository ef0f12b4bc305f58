// Command lines run through ssh by a real sshd on 127.0.0.1.

#include "executors/SshExecutor.h"
#include "posix/CSimpleCmdExec.h"

#include <chrono>
#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <thread>
#include <unistd.h>

using namespace zfslib;
using executors::SshExecutor;
using executors::SshOptions;
using posix::CCommandFailure;
using posix::CSimpleCmdExec;
using testing::HasSubstr;

namespace {

/// An sshd for the time of one test, with keys of its own, which admits two commands at once. Of
/// the keys, "user" lets in past a greeting, "tools" to a stand-in for zfs; "forced" is for
/// something else, "deadly" for the end of the program in the file "pid", and "strange" is unknown.
class Ssh : public testing::Test {
protected:
    void SetUp() override {
        if (access("/usr/sbin/sshd", X_OK) != 0 || access("/usr/bin/ssh", X_OK) != 0)
            GTEST_SKIP() << "openssh-server and openssh-client are not installed";
        ASSERT_NE(nullptr, mkdtemp(folder_.data()));
        CSimpleCmdExec::RunCommand("set -e; FAKE=" FAKE_ZFS "; cd " + folder_ + R"sh(
            mkdir sockets bin; test "$(id -u)" != 0 || mkdir -p /run/sshd
            for key in host user tools forced deadly strange; do ssh-keygen -q -t ed25519 -N '' -f $key; done
            touch unknown; sed 's/^/* /' host.pub > known
            greet='echo hello; echo hello >\&2; eval \\"$SSH_ORIGINAL_COMMAND\\"'
            sed "s/^/command=\"$greet\" /" user.pub > keys
            echo 'eval "$(printf %s "$SSH_ORIGINAL_COMMAND" | sed "s#C zfs#C $FAKE#")"' > script
            sed "s#^#command=\"env FAKE=$FAKE sh $PWD/script\" #" tools.pub >> keys
            sed 's/^/command="echo this is another service" /' forced.pub >> keys
            sed "s#^#command=\"read pid <$PWD/pid; kill \$pid; exec sleep 5\" #" deadly.pub >> keys
            printf '#!/bin/sh\necho "$@" >>%s/calls\nexec /usr/bin/ssh -F none "$@"\n' $PWD > bin/ssh; chmod +x bin/ssh
            printf '%s\n' 'ListenAddress 127.0.0.1' "HostKey $PWD/host" "SetEnv HOME=$PWD" \
                "AuthorizedKeysFile $PWD/keys" StrictModes=no PidFile=none MaxSessions=2 > config)sh");
        std::string line; // another program may have the port
        for (port_ = 20000 + getpid() % 10000; line.find("listening") == std::string::npos;) {
            if (line.empty()) {
                const std::string sshd = "exec /usr/sbin/sshd -D -e -f " + folder_ + "/config -p ";
                log_ = popen(("echo $$; " + sshd + std::to_string(++port_) + " 2>&1").c_str(), "r");
                listener_ = std::stoi(Line());
            }
            line = Line();
        }
    }
    std::string Line() {
        char text[1000];
        return fgets(text, sizeof text, log_) == nullptr ? "" : text;
    }
    /// How many connections there were. Waits until all have ended; one that was left to itself
    /// would wait for a further command for a minute.
    int Connections() {
        const auto start = std::chrono::steady_clock::now();
        kill(std::exchange(listener_, 0), SIGTERM);
        int count = 0;
        for (std::string line = Line(); !line.empty(); line = Line())
            count += line.find("Accepted publickey") != std::string::npos ? 1 : 0;
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
        return count;
    }
    void TearDown() override {
        if (listener_ != 0)
            Connections();
        if (log_ != nullptr)
            pclose(log_);
        std::filesystem::remove_all(folder_);
    }
    SshOptions Options(const std::string& key = "user", const std::string& hosts = "known") {
        SshOptions options;
        options.destination = "127.0.0.1";
        options.options = {"Port=" + std::to_string(port_), "IdentityFile=" + folder_ + "/" + key,
                           "IdentitiesOnly=yes", "UserKnownHostsFile=" + folder_ + "/" + hosts};
        options.environment = {"PATH=" + folder_ + "/bin:/bin"}; // not the user's configuration
        options.socketFolder = folder_ + "/sockets";
        return options;
    }

#ifdef ZFSINSPECT
    /// With a key, of the host.
    std::string Inspect(const std::string& key, const std::string& rest) {
        const SshOptions ssh = Options(key);
        std::string line =
            "echo $$ >" + folder_ + "/pid; export " + ssh.environment[0] + "; exec " ZFSINSPECT;
        if (!key.empty())
            line += " --host 127.0.0.1";
        for (const std::string& option : ssh.options)
            line += key.empty() ? "" : " --ssh-option " + option;
        return CSimpleCmdExec::RunCommand(line + " " + rest);
    }
#endif

    std::string folder_ = "/tmp/zfslib-test-XXXXXX";
    int port_ = 0;
    std::FILE* log_ = nullptr;
    pid_t listener_ = 0;
};

/// "ok [output]" or the failure's message without its beginning.
std::string Try(const CommandExecutor& executor, const std::string& command) {
    try {
        return "ok [" + executor(command) + "]";
    } catch (const std::exception& failure) {
        return std::string(failure.what()).substr(command.size() + 19); // "Command [...] failed: "
    }
}

TEST_F(Ssh, TellsHowCommandsEnd) {
    std::string told;
    SshOptions options = Options();
    options.standardError = [&told](const std::string& command, const std::string& text) {
        told += command + ": " + text;
    };
    CommandExecutor executor = SshExecutor(options);
    const std::pair<const char*, const char*> rows[] = {
        {R"(printf 'a\tb\\ !x %s' "$0")", "ok [a\tb\\ !x sh]"},
        {"echo out; echo err >&2", "ok [out\n]"},
        {"cat; true # ", "ok []"},
        {"echo half; echo no >&2; exit 255", "exit status 255: no"},
        {"echo half; exit 3", "exit status 3: half"},
        {"(exit 126)", "cannot be started: Permission denied"},
        {"nosuchtool 2>/dev/null", "cannot be started: No such file or directory"},
        {"sh -c 'kill -9 $$'", "killed by signal 9: Killed"},
    };
    for (const auto& [command, expected] : rows)
        EXPECT_EQ(expected, Try(executor, command)) << command;
    EXPECT_EQ("echo out; echo err >&2: err\n", told);
    EXPECT_EQ(67108864, executor("head -c 67108864 /dev/zero; echo").find('\n'));
    CSimpleCmdExec::SetStopped(true);
    EXPECT_EQ("stopped by the host", Try(executor, "true"));
    executor = {};
    CSimpleCmdExec::SetStopped(false);
    EXPECT_TRUE(std::filesystem::is_empty(options.socketFolder));
    EXPECT_EQ(1, Connections());
}

TEST_F(Ssh, TakesNoPartForTheWhole) {
    CommandExecutor executor = SshExecutor(Options());
    const std::string lost = "connection lost, its outcome is unknown: ssh to [127.0.0.1]";
    EXPECT_EQ(lost, Try(executor, "head -c 1000000 /dev/zero; kill -9 $PPID")); // sshd
    EXPECT_EQ("ok [again\n]", Try(executor, "echo again"));
    EXPECT_EQ(lost, Try(executor, "echo 0; kill -9 $$")); // what was to tell the status
    SshOptions options = Options();
    options.timeoutSeconds = 5; // enough to connect on a busy machine
    executor = SshExecutor(options);
    EXPECT_EQ("timed out after 5 s, its outcome is unknown", Try(executor, "exec sleep 9"));
    executor = {};
    EXPECT_EQ(3, Connections());
}

TEST_F(Ssh, TellsItsOwnFailures) {
    SshOptions refused = Options();
    refused.options[0] = "Port=1";
    const std::pair<SshOptions, const char*> rows[] = {
        {Options("strange"), "no connection: ssh to .127.0.0.1.: .*127.0.0.1: Permission denied.*"},
        {Options("user", "unknown"), "no connection: .*Host key verification failed."},
        {refused, "no connection: .*Connection refused"},
        {Options("forced"), "cannot be started: Permission denied: this is another service"},
    };
    for (const auto& [options, reason] : rows) {
        const CommandExecutor executor = SshExecutor(options);
        const std::string first = Try(executor, "true");
        EXPECT_THAT(first, testing::MatchesRegex(reason));
        EXPECT_EQ(first, Try(executor, "true"));
    }
    SshOptions options;
    for (const char* const destination : {"", "-oProxyCommand=id"}) {
        options.destination = destination;
        EXPECT_THROW(static_cast<void>(SshExecutor(options)), std::runtime_error) << destination;
    }
}

TEST_F(Ssh, WaitsWhereTheHostAdmitsFewer) {
    CommandExecutor executor = SshExecutor(Options());
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&executor] { EXPECT_EQ("ok [x\n]", Try(executor, "echo x")); });
    for (std::thread& thread : threads)
        thread.join();
    executor = {};
    EXPECT_EQ(1, Connections());
}

#ifdef ZFSINSPECT

TEST_F(Ssh, InspectsAThousandDatasetsOfTheHost) {
    const std::string recording = folder_ + "/recording";
    const std::string live = Inspect("tools", "--record " + recording + " datasets tank");
    EXPECT_EQ(live, Inspect("", "--replay " + recording + " datasets tank"));
    const std::string json = Inspect("", "--json --replay " + recording + " datasets tank");
    std::size_t count = 0; // of the datasets, with the properties that only a full recording has
    for (std::size_t at = json.find("\"parent\""); at != std::string::npos; ++count)
        at = json.find("\"parent\"", at + 1);
    EXPECT_EQ(1000, count);
    EXPECT_THAT([&] { Inspect("strange", "tools"); }, // which takes other failures for a "no"
                testing::ThrowsMessage<CCommandFailure>(HasSubstr("1: zfsinspect: Command [")));
}

TEST_F(Ssh, EndsTheConnectionOfAnInterruptedRun) {
    EXPECT_THAT([&] { Inspect("deadly", "importable"); },
                testing::ThrowsMessage<CCommandFailure>(HasSubstr("failed: killed by signal 15")));
    EXPECT_EQ(1, Connections());
    const std::string folder = "$(grep -o '/tmp/zfslib-ssh-......' " + folder_ + "/calls)";
    EXPECT_THAT([&] { CSimpleCmdExec::RunCommand("ls -d " + folder); },
                testing::ThrowsMessage<CCommandFailure>(HasSubstr("'/tmp/zfslib-ssh-")));
}

#endif

} // namespace
