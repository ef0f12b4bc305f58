// The library inside a host: while the process ends, in forked children, among other threads, and
// with the host's own user database.

#include "executors/ReplayingExecutor.h"
#include "fakes.h"
#include "posix/CSimpleCmdExec.h"
#include "zfstools/ZfsDatasetEnumerator.h"
#include "zfstools/ZpoolsEnumerator.h"
#include "zfstools/logging.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <gmock/gmock.h>
#include <pwd.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

using namespace zfslib;
using logging::Level;

namespace {

std::map<std::string, int> userLookUps;

/// What an enumeration of a recorded host tells, as text, the warnings at the end.
std::string Enumerated(const CommandExecutor& executor, ZfsDatasetEnumerator& enumerator) {
    std::string text;
    const auto add = [&text](const auto& property) {
        text += property.GetName() + "=" + property.GetText() + "(" + property.GetSource().text +
                PropSource::TypeToString(property.GetSource().type) + ") ";
    };
    std::vector<std::string> warnings;
    for (const Zpool& pool : ZpoolEnumerator::Enumerate(executor)) {
        text += pool.name + Zpool::StateToString(pool.state);
        Zpool::Properties::ForEach(pool.properties, add);
        const auto result = enumerator.Enumerate(pool.name, executor);
        for (const ZfsDataset& dataset : result.first) {
            text += "\n" + dataset.name + " ";
            ZfsProperties::ForEach(dataset.properties, add);
            for (const auto& quotas :
                 {dataset.properties.userQuotas, dataset.properties.groupQuotas})
                std::for_each(quotas.begin(), quotas.end(), add);
        }
        warnings.insert(warnings.end(), result.second.begin(), result.second.end());
    }
    for (const std::string& warning : warnings)
        text += "\n" + warning;
    return text;
}

CommandExecutor RecordedHost(const std::string& name) {
    return executors::Replayer(ZFSLIB_RECORDINGS "/" + name + ".rec").Executor();
}

/// Called by exit() after everything that was built later is destroyed.
void (*lastAtExit)() = nullptr;
void RunAtExit(void (*last)()) {
    lastAtExit = last;
    std::atexit([] { lastAtExit(); });
}

std::atomic<int> enumerations{0};

} // namespace

// In place of the system's, also for the library.
extern "C" int getpwnam_r(const char* name, struct passwd* entry, char* /*buffer*/,
                          std::size_t /*size*/, struct passwd** found) {
    ++userLookUps[name];
    entry->pw_uid = 1000;
    *found = std::string(name) == "nobody-knows" ? nullptr : entry;
    return 0;
}

TEST(Embedding, OutlivesExitInOtherThreads) {
    EXPECT_EXIT(
        {
            RunAtExit([] {
                for (const int seen = enumerations; enumerations < seen + 8;)
                    std::this_thread::yield();
                _exit(0);
            });
            logging::SetSink([](Level, const std::string&, const std::string&) {});
            for (int i = 0; i < 4; ++i)
                std::thread([i] {
                    const CommandExecutor executor = RecordedHost("solaris-host");
                    ZfsDatasetEnumerator enumerator;
                    const std::string expected = Enumerated(executor, enumerator);
                    for (; expected.size() > 10000; ++enumerations)
                        if ((i == 0 && posix::CSimpleCmdExec::RunCommand("echo e >&2") != "") ||
                            Enumerated(executor, enumerator) != expected)
                            break;
                    _exit(1);
                }).detach();
            while (enumerations < 4)
                std::this_thread::yield();
            std::exit(2);
        },
        testing::ExitedWithCode(0), "");
}

TEST(Embedding, LogsInAChildForkedWhileThreadsLog) {
    std::atomic<bool> done{false};
    logging::SetSink([](Level, const std::string&, const std::string&) {});
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back([&done] {
            while (!done)
                zfslib_log.info("x");
        });
    int failed = 0;
    for (int i = 0; i < 300 && failed == 0; ++i) {
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);
            zfslib_log.info("x");
            _exit(0);
        }
        waitpid(child, &failed, 0);
    }
    done = true;
    for (std::thread& thread : threads)
        thread.join();
    logging::SetSink({});
    EXPECT_EQ(0, failed) << "a child waits for a lock that nobody holds there";
}

TEST(Embedding, ChangesSinkAndThresholdTogether) {
    std::atomic<bool> done{false};
    std::atomic<int> wrong{0};
    std::thread logger([&done] {
        while (!done)
            zfslib_log.dbg("x");
    });
    for (int i = 0; i < 20000; ++i) {
        logging::SetSink([](Level, const std::string&, const std::string&) {});
        logging::SetSink([&wrong](Level, const std::string&, const std::string&) { ++wrong; },
                         Level::error);
    }
    done = true;
    logger.join();
    logging::SetSink({});
    EXPECT_EQ(0, wrong) << "debug lines for a sink that asked for errors";
}

/// Each command of a full enumeration fails in turn: the error comes out, or a warning stands in
/// its place; and the next run is clean.
TEST(Embedding, EveryCommandMayFail) {
    const CommandExecutor host = RecordedHost("mirror-host");
    ZfsDatasetEnumerator enumerator;
    const auto enumeratedThrough = [&enumerator](const CommandExecutor& executor) {
        const InstalledExecutor installed(executor);
        return Enumerated(executor, enumerator);
    };
    std::vector<std::string> commands;
    const std::string whole = enumeratedThrough([&](const std::string& command) {
        commands.push_back(command);
        return host(command);
    });
    ASSERT_EQ(commands.size(), 69U);
    for (const std::string& command : commands) {
        const bool isQuota = command.find("space ") != std::string::npos;
        const std::string error = ErrorOf([&] {
            const std::string rest = enumeratedThrough([&](const std::string& asked) {
                return asked == command ? throw std::domain_error("the fault") : host(asked);
            });
            EXPECT_NE(rest.find("\nFailed to read ZFS "), std::string::npos) << command;
        });
        EXPECT_EQ(error, isQuota ? "" : "the fault") << command;
        EXPECT_EQ(enumeratedThrough(host), whole) << "the run after " << command;
    }
}

TEST(Embedding, LooksEachUserUpOncePerEnumeration) {
    const FakeExecutor host({{commands::zfsGet + "t", "H\n"}, {commands::zfsGet + "t/a", "H\n"}});
    const std::string quotas = "TYPE NAME USED QUOTA\nPOSIX User alice 1K 5M\n";
    host.Answer(commands::userspace + "t", quotas + "POSIX User nobody-knows 1K 5M\n");
    host.Answer(commands::userspace + "t/a", quotas + "POSIX User nobody-knows 1K 5M\n");
    host.Answer(commands::groupspace + "t", "TYPE\n");
    const InstalledExecutor installed(host);
    ZfsDatasetEnumerator enumerator;
    for (int round = 1; round <= 2; ++round) {
        enumerator.extractDatasetFromOutput("t 1 1 1\nt/a 1 1 1\n", ZfsDataset::filesystem, host);
        EXPECT_EQ(round, userLookUps["alice"]);
        EXPECT_EQ(round, userLookUps["nobody-knows"]);
    }
    ASSERT_EQ(8, enumerator.QuotaFailures().size());
    ASSERT_EQ(8, enumerator.Warnings().size());
    const auto& failure = enumerator.QuotaFailures()[2];
    EXPECT_EQ("t/a userquota", failure.dataset + " " + failure.quotaType);
    EXPECT_EQ("Failed to generate ZFS quota name for [nobody-knows].",
              ErrorOf([&] { std::rethrow_exception(failure.cause); }));
}

TEST(Embedding, RecordsMoveAlsoIntoThemselves) {
    Zpool pool;
    pool.name = "a name that does not fit into the string itself";
    pool.devices.resize(2);
    Zpool& samePool = pool;
    pool = std::move(samePool);
    EXPECT_EQ(2, pool.devices.size());
    EXPECT_EQ("a name that does not fit into the string itself", pool.name);
    ZfsDataset dataset;
    dataset.name = "a";
    dataset.properties.quota.Set("a quota too long for the small string buffer");
    dataset.properties.userProperties.emplace_back("a:b", "");
    const char* text = dataset.properties.quota.GetText().data();
    ZfsDataset moved = std::move(dataset);
    EXPECT_EQ("", dataset.name); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(text, moved.properties.quota.GetText().data()) << "moved, not copied";
    ZfsProperties& sameProperties = moved.properties;
    moved.properties = std::move(sameProperties);
    dataset = std::move(moved);
    EXPECT_EQ("a", moved.name + dataset.name); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(text, dataset.properties.quota.GetText().data());
    EXPECT_EQ(1, dataset.properties.userProperties.size());
}
