// The library inside a host: while the process ends, in forked children, among other threads, and
// with the host's own user database.

#include "executors/ReplayingExecutor.h"
#include "fakes.h"
#include "posix/CSimpleCmdExec.h"
#include "zfstools/ZfsDatasetEnumerator.h"
#include "zfstools/ZpoolsEnumerator.h"
#include "zfstools/logging.h"

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

/// What a recorded host shows, as text.
std::string Enumerated(const CommandExecutor& executor) {
    std::string text;
    for (const Zpool& pool : ZpoolEnumerator::Enumerate(executor)) {
        text += pool.name + Zpool::StateToString(pool.state);
        for (const ZfsDataset& dataset :
             ZfsDatasetEnumerator().Enumerate(pool.name, executor).first)
            ZfsProperties::ForEach(dataset.properties, [&](const auto& property) {
                text += property.GetName() + property.GetText() +
                        PropSource::TypeToString(property.GetSource().type);
            });
    }
    return text;
}

CommandExecutor RecordedHost() {
    return executors::Replayer(ZFSLIB_RECORDINGS "/solaris-host.rec").Executor();
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

TEST(Embedding, IsUsedAfterMain) {
    EXPECT_EXIT(
        {
            static std::string expected;
            RunAtExit([] {
                const bool isSame = Enumerated(RecordedHost()) == expected;
                _exit(isSame && expected.size() > 10000 ? 0 : 1);
            });
            logging::SetSink([](Level, const std::string&, const std::string&) {});
            expected = Enumerated(RecordedHost());
            std::exit(2);
        },
        testing::ExitedWithCode(0), "");
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
                    const CommandExecutor executor = RecordedHost();
                    for (const std::string expected = Enumerated(executor);; ++enumerations)
                        if ((i == 0 && posix::CSimpleCmdExec::RunCommand("echo e >&2") != "") ||
                            Enumerated(executor) != expected)
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

TEST(Embedding, LooksEachUserUpOncePerEnumeration) {
    const FakeExecutor host(
        {{"/usr/bin/env -i zfs get all t", "H\n"}, {"/usr/bin/env -i zfs get all t/a", "H\n"}});
    const std::string quotas = "TYPE NAME USED QUOTA\nPOSIX User alice 1K 5M\n";
    host.Answer("/usr/bin/env -i zfs userspace t", quotas + "POSIX User nobody-knows 1K 5M\n");
    host.Answer("/usr/bin/env -i zfs userspace t/a", quotas + "POSIX User nobody-knows 1K 5M\n");
    host.Answer("/usr/bin/env -i zfs groupspace t", "TYPE\n");
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

TEST(Embedding, RecordsStayWhenMovedIntoThemselves) {
    Zpool pool;
    pool.name = "a name that does not fit into the string itself";
    pool.devices.resize(2);
    Zpool& samePool = pool;
    pool = std::move(samePool);
    EXPECT_EQ(2, pool.devices.size());
    EXPECT_EQ("a name that does not fit into the string itself", pool.name);
    ZfsProperties properties;
    properties.copies.Set("2");
    properties.userProperties.emplace_back("a:b", "");
    ZfsProperties& sameProperties = properties;
    properties = std::move(sameProperties);
    EXPECT_EQ("2", properties.copies.GetText());
    EXPECT_EQ(1, properties.userProperties.size());
    ZfsProperties other;
    other = std::move(properties);
    EXPECT_EQ("2", other.copies.GetText());
    EXPECT_EQ(1, other.userProperties.size());
}
