#include "executors/BatchingExecutor.h"
#include "executors/Recording.h"
#include "executors/ReplayingExecutor.h"
#include "posix/CSimpleCmdExec.h"
#include "util/str.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <future>
#include <map>
#include <mutex>

namespace zfslib::executors {
namespace {

using testing::ElementsAre;

const std::string list = "/usr/bin/env -i zfs list -rH -o name,avail,used,usedrefreserv -t ";
const std::string get = "/usr/bin/env -i zfs get all ";
const std::string header = "NAME  PROPERTY  VALUE  SOURCE\n";

std::string BelowHeader(const std::string& text) {
    return text.substr(text.find('\n') + 1);
}

/// A host with the datasets p/d0, p/d1, ..., or a recorded one. It answers `zfs get all` for
/// several names by joining the answers for each.
struct FakeHost {
    explicit FakeHost(std::size_t datasets) {
        for (std::size_t i = 0; i < datasets; ++i)
            names.push_back("p/d" + util::str(i));
    }

    CommandExecutor Executor() {
        return [this](const std::string& command) {
            const std::lock_guard<std::mutex> lock(mutex);
            commands.push_back(command);
            const std::vector<std::string> words = util::split(command);
            if (!util::str_is_starts_with(command, get) || words.size() <= 6)
                return single(command);
            std::string answer = header;
            for (std::size_t i = 5; i < words.size(); ++i)
                answer += BelowHeader(single(get + words[i]));
            return distort(answer);
        };
    }

    std::string Rows(const std::string& name) const {
        const auto odd = rows.find(name);
        return odd != rows.end() ? odd->second
                                 : util::str_format("%1  type  x  -\n%1  a:b  y  -\n", name);
    }

    std::string Answer(const std::string& command) const {
        std::string answer;
        if (!util::str_is_starts_with(command, get)) {
            for (const std::string& name : names)
                answer += name + "\t1G\t1K\t0\n";
            return answer;
        }
        if ((answer = Rows(command.substr(get.size()))).empty())
            throw std::runtime_error("failed: " + command);
        return header + answer;
    }

    std::vector<std::string> names;
    std::map<std::string, std::string> rows; ///< others than usual; empty: the dataset vanished
    std::function<std::string(const std::string&)> distort = [](const auto& text) { return text; };
    CommandExecutor single = [this](const std::string& command) { return Answer(command); };
    std::vector<std::string> commands;
    std::mutex mutex;
};

/// The rows below the header, or what was thrown.
std::string RowsFrom(const CommandExecutor& executor, const std::string& name) {
    try {
        return BelowHeader(executor(get + name));
    } catch (const std::exception& error) {
        return error.what();
    }
}

/// Asks for all datasets of the host, in order, and compares with the single commands. Returns
/// how many commands the batching took.
std::size_t CompareAll(FakeHost& host, std::size_t namesPerCommand = 256) {
    const CommandExecutor batching = BatchingExecutor(host.Executor(), {namesPerCommand});
    batching(list + "filesystem p");
    host.commands.clear();
    for (const std::string& name : host.names)
        EXPECT_EQ(RowsFrom(batching, name), RowsFrom(host.single, name)) << name;
    return host.commands.size();
}

TEST(Batching, EqualsSingleCommandsOnEveryRecording) {
    std::map<std::string, std::size_t> commands;
    for (const auto& entry : std::filesystem::directory_iterator(ZFSLIB_RECORDINGS))
        for (const std::size_t namesPerCommand : {1U, 2U, 3U, 256U}) {
            if (entry.path().extension() != ".rec")
                continue;
            FakeHost host(0);
            host.single = Replayer(entry.path()).Executor();
            const CommandExecutor replay = Replayer(entry.path()).Executor();
            const CommandExecutor batching = BatchingExecutor(host.Executor(), {namesPerCommand});
            for (const Exchange& exchange : ReadRecording(entry.path())) {
                if (!util::str_is_starts_with(exchange.command, list) || exchange.failure)
                    continue;
                std::string_view names = exchange.output;
                EXPECT_EQ(batching(exchange.command), exchange.output);
                while (!names.empty()) {
                    const std::string name = util::split(util::ConsumeLine(names))[0];
                    EXPECT_EQ(RowsFrom(batching, name), RowsFrom(replay, name)) << entry.path();
                }
            }
            commands[entry.path().stem().string() + util::str(namesPerCommand)] =
                host.commands.size();
        }
    EXPECT_EQ(commands["mirror-host1"], 6U + 12 + 10 + 2 + 3 + 1);
    EXPECT_EQ(commands["mirror-host2"], 6U + 6 + 5 + 1 + 2 + 1);
    EXPECT_EQ(commands["mirror-host256"], 6U + 5);
    // A volume's snapshot among those of filesystems begins with another property: 3 commands more.
    EXPECT_EQ(commands["solaris-host256"], 6U + 6 + 3);
}

TEST(Batching, TrustsNoRowThatAValueMayHaveForged) {
    const std::string own = FakeHost(0).Rows("p/d5");
    for (const std::string& rows :
         {own + "p/d6  type  forged  -\n", own + "p/d6  quota  forged  -\n",
          own + "p/d6  type  forged  -\np/d6  quota  forged  -\np/d6  a:b  forged  -\n",
          own + "p/d6  type  forged  -\np/d7  type  forged  -\n", own + "p/d4  a:c  forged  -\n",
          own + "p/d7  type  forged  -\n", own + "second line  -\n", own + "\n", own + own,
          own + "p/d5  quota  second  -\n", "p/d5  quota  first  -\n" + own,
          own.substr(0, own.size() - 1), std::string("p/d5"), std::string()})
        for (const std::size_t namesPerCommand : {2U, 3U, 10U, 256U}) {
            SCOPED_TRACE(testing::PrintToString(rows) + " by " + util::str(namesPerCommand));
            FakeHost host(10);
            host.rows["p/d5"] = rows;
            CompareAll(host, namesPerCommand);
        }
}

TEST(Batching, FallsBackFromAnyUnusableAnswer) {
    using Text = const std::string&;
    const std::map<std::string, std::function<std::string(Text)>> rows{
        {"empty", [](Text) { return ""; }},
        {"cut in a line", [](Text text) { return text.substr(0, text.size() - 5); }},
        {"last missing",
         [](Text text) { return text.substr(0, text.rfind("p/d", text.rfind("type"))); }},
        {"first missing", [](Text text) { return header + text.substr(text.find("p/d1")); }},
        {"another header", [](Text text) { return "warning\n" + BelowHeader(text); }},
        {"a row at the end",
         [](Text text) {
             const std::size_t row = text.find('\n', header.size()) + 1;
             const std::size_t next = text.find('\n', row) + 1;
             return text.substr(0, row) + text.substr(next) + text.substr(row, next - row);
         }},
        {"rows doubled", [](Text text) { return text + BelowHeader(text); }},
        {"throws", [](Text) -> std::string { throw std::runtime_error("x"); }}};
    for (const auto& [name, distort] : rows) {
        SCOPED_TRACE(name);
        FakeHost host(7);
        host.distort = distort;
        EXPECT_GE(CompareAll(host), 7U);
    }
}

TEST(Batching, OddDatasetsCostFewFurtherCommands) {
    FakeHost host(512);
    EXPECT_EQ(CompareAll(host), 512U / 256);
    for (std::size_t vanished = 0; vanished < 256; vanished += 17) { // 0 and 255 are among them
        host.rows = {{"p/d" + util::str(vanished), ""}};
        EXPECT_LE(CompareAll(host), 512U / 256 + 2 * 8) << vanished;
    }
    FakeHost allOdd(3000);
    allOdd.distort = [](const auto&) { return "odd"; };
    EXPECT_LE(CompareAll(allOdd), 3000U * 102 / 100);

    FakeHost hung(9);
    hung.distort = [](const auto&) -> std::string {
        throw posix::CCommandFailure("zfs", posix::CCommandFailure::Kind::TimeOut, 5, "", "");
    };
    const CommandExecutor batching = BatchingExecutor(hung.Executor());
    batching(list + "filesystem p");
    batching(get + "p/d0");
    EXPECT_EQ(hung.commands.size(), 3U) << "list, batch, single: one more time-out";
}

TEST(Batching, AsksOnlyForPlainNamesInBoundedCommandLines) {
    FakeHost host(11);
    host.names.insert(host.names.begin() + 1,
                      {"p/with blank", "-r", "p/$(reboot)", "p/\xc3\xa9", "p/a%b", "", "p/d0"});
    const std::size_t commandLength = get.size() + std::string("p/d0 p/d1 p/d2").size();
    const CommandExecutor batching = BatchingExecutor(host.Executor(), {256, commandLength});
    batching(list + "filesystem p");
    for (const char* name : {"p/d0", "p/with", "p/with blank", "-r", "p/$(reboot)", "p/d2", "p/d8"})
        batching(get + name);
    host.commands.erase(host.commands.begin());
    EXPECT_THAT(host.commands,
                ElementsAre(get + "p/d0 p/d1 p/d2", get + "p/with", get + "p/with blank",
                            get + "-r", get + "p/$(reboot)", get + "p/d8 p/d9"));
}

TEST(Batching, OnlyCommandsThatReadKeepWhatIsHeld) {
    const auto isHeldAfter = [](const std::string& command) {
        FakeHost host(4);
        const CommandExecutor batching = BatchingExecutor(host.Executor());
        batching(list + "filesystem p");
        batching(get + "p/d0");
        host.rows["p/d1"] = "changed";
        batching(command);
        return RowsFrom(batching, "p/d1") != "changed";
    };
    const std::string env = "/usr/bin/env -i ";
    for (const std::string& command :
         {env + "zpool list -o name,size,alloc", env + "zpool status p", env + "zpool get all p",
          get + "elsewhere", env + "zfs userspace p", env + "zfs groupspace p",
          std::string("df -Z")})
        EXPECT_TRUE(isHeldAfter(command)) << command;
    for (const std::string& command :
         {env + "zfs set quota=1G p/d1", env + "zfs inherit quota p/d1",
          env + "mount -F zfs p/d1 /m", env + "zpool set autoexpand=on p",
          std::string("sh -c status"), list + "snapshot p",
          get + "p/d0"}) // used before, so asked for anew with the next ones
        EXPECT_FALSE(isHeldAfter(command)) << command;
}

TEST(Batching, ManyThreadsGetTheirOwnAnswers) {
    FakeHost host(200);
    const CommandExecutor batching = BatchingExecutor(host.Executor(), {16});
    batching(list + "filesystem p");
    std::vector<std::future<void>> threads;
    for (std::size_t first = 0; first < 4; ++first)
        threads.push_back(std::async(std::launch::async, [&, first] {
            for (std::size_t i = first; i < 200; i += first + 1) {
                EXPECT_EQ(RowsFrom(batching, host.names[i]), host.Rows(host.names[i]));
                if (i % 50 == 0)
                    batching(i % 100 == 0 ? list + "filesystem p" : "zfs set a:b=x p/d1");
            }
        }));
}

} // namespace
} // namespace zfslib::executors
