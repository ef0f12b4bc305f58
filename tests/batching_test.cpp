#include "executors/BatchingExecutor.h"
#include "executors/PrefetchingExecutor.h"
#include "executors/Recording.h"
#include "executors/RecordingExecutor.h"
#include "fakes.h"
#include "posix/CSimpleCmdExec.h"
#include "util/str.h"

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <filesystem>
#include <future>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <thread>
#include <unistd.h>

namespace zfslib::executors {
namespace {

using testing::ElementsAre;

const std::string &list = commands::zfsList, &get = commands::zfsGet;

/// What `zfs get all` says about one property of a dataset. The value may hold newlines.
struct Row {
    std::string property, value, source;
};

/// The columns in front of the source, in bytes.
struct Widths {
    explicit Widths(std::string_view header = "NAME  PROPERTY  VALUE  SOURCE")
        : name(header.find("PROPERTY") - 2), property(header.find("VALUE") - name - 4),
          value(header.find("SOURCE") - name - property - 6) {}
    std::size_t name, property, value;
};

/// A host with the datasets p/d0, p/d1, ..., or others. It answers `zfs get all` as the tool does:
/// columns as wide as the widest of their cells, in bytes, newlines raw.
struct FakeHost {
    explicit FakeHost(std::size_t datasets = 0) {
        for (std::size_t i = 0; i < datasets; ++i)
            names.push_back("p/d" + util::str(i));
    }

    CommandExecutor Executor() {
        return [this](const std::string& command) {
            {
                const std::lock_guard<std::mutex> lock(mutex);
                commands.push_back(command);
            }
            if (util::str_is_starts_with(command, "zfs set"))
                change();
            const std::string answer = Answer(command);
            const std::lock_guard<std::mutex> lock(mutex);
            textRead += answer.size();
            return Asked(command).size() > 1 ? distort(answer) : answer;
        };
    }

    std::string Answer(const std::string& command) const {
        if (util::str_is_starts_with(command, get))
            return Table(Asked(command), least);
        if (failing.count(command) != 0)
            throw std::runtime_error("cannot " + command);
        const std::string unique = util::str(changes) + " " + command;
        const bool listsPools = command == commands::zpoolList;
        if (!listsPools && !util::str_is_starts_with(command, list))
            return unique;
        std::string answer = listsPools ? "NAME  SIZE  ALLOC\n" : "";
        for (const std::string& name : names)
            answer += name + (listsPools ? "  1G  1K\n" : "\t" + unique + "\t1K\t0\n");
        return answer;
    }

    std::string Table(const std::vector<std::string>& asked, Widths widths) const {
        const std::vector<Row> usual{{"type", "x", "-"}, {"a:b", "y", "-"}};
        std::vector<std::pair<std::string, Row>> cells{{"NAME", {"PROPERTY", "VALUE", "SOURCE"}}};
        for (const std::string& name : asked) {
            const auto odd = rows.find(name);
            if (odd != rows.end() && odd->second.empty())
                throw std::runtime_error("cannot open " + name);
            for (const Row& row : odd != rows.end() ? odd->second : usual)
                cells.emplace_back(name, row);
        }
        for (const auto& [name, row] : cells) {
            widths.name = std::max(widths.name, name.size());
            widths.property = std::max(widths.property, row.property.size());
            widths.value = std::max(widths.value, row.value.size());
        }
        std::string text;
        const auto add = [&text](const std::string& cell, std::size_t width) {
            text.append(cell).append(width - cell.size() + 2, ' ');
        };
        for (const auto& [name, row] : cells) {
            add(name, widths.name);
            add(row.property, widths.property);
            add(row.value, widths.value);
            text += row.source + "\n";
        }
        return text;
    }

    static std::vector<std::string> Asked(const std::string& command) {
        return util::str_is_starts_with(command, get) ? util::split(command.substr(get.size()))
                                                      : std::vector<std::string>();
    }

    std::vector<std::string> names;
    std::map<std::string, std::vector<Row>> rows; ///< others than usual; none: it has vanished
    std::set<std::string> failing;
    unsigned changes = 0; ///< without a lock: nothing may be read while something changes
    std::function<void()> change = [this] { ++changes; };
    Widths least;
    std::function<std::string(const std::string&)> distort = [](const auto& text) { return text; };
    std::vector<std::string> commands;
    std::size_t textRead = 0;
    std::mutex mutex;
};

/// What the executor says, or throws.
std::string OutcomeOf(const CommandExecutor& executor, const std::string& command) {
    try {
        return executor(command);
    } catch (const std::exception& error) {
        return error.what();
    }
}

std::string Ask(const CommandExecutor& executor, const std::string& name) {
    return OutcomeOf(executor, get + name);
}

/// Whether the executor says what the host says about this dataset alone, in columns as wide as
/// the executor's or wider.
void ExpectTruth(const FakeHost& host, const CommandExecutor& executor, const std::string& name) {
    const std::string answer = Ask(executor, name);
    const Widths widths(answer.find("  SOURCE\n") == std::string::npos ? Widths() : Widths(answer));
    EXPECT_EQ(answer, Ask([&](const auto&) { return host.Table({name}, widths); }, name));
}

/// Asks for all datasets of the host, in order, and compares with the single commands. Returns
/// how many commands the batching took.
std::size_t CompareAll(FakeHost& host, std::size_t namesPerCommand = 256) {
    const CommandExecutor batching = BatchingExecutor(host.Executor(), {namesPerCommand});
    batching(list + "filesystem p");
    host.commands.clear();
    for (const std::string& name : host.names)
        ExpectTruth(host, batching, name);
    return host.commands.size();
}

/// A host whose tenants try to have rows of others' datasets read from their own values.
class HostileHost {
public:
    explicit HostileHost(unsigned seed) : random_(seed) {
        for (const char* name : {"p", "p/a", "p/a  local", "p/a 1G 1G 1G", "p/a/b", "p/a@s", "p/ab",
                                 "p/a/b@s", "p/v", "p/v@s", "p/v@t"})
            if (Below(3) != 0)
                host.names.emplace_back(name);
        if (Below(2) != 0)
            std::shuffle(host.names.begin(), host.names.end(), random_);
        if (Below(8) == 0)
            host.failing.insert(list + "snapshot p");
        const bool sorted = Below(2) != 0;
        for (const std::string& name : host.names) {
            host.rows[name] = Rows(name, sorted);
            if (Below(8) == 0)
                host.failing.insert(commands::userspace + name);
        }
        host.change = [this, sorted] {
            ++host.changes;
            const std::string name = Name();
            host.rows[name] = Rows(name, sorted);
        };
    }

    std::size_t Below(std::size_t end) { return random_() % end; }
    std::string Name() { return host.names.empty() ? "p/a" : host.names[Below(host.names.size())]; }

    FakeHost host;

private:
    std::vector<Row> Rows(const std::string& name, bool sorted) {
        std::vector<Row> rows;
        if (Below(20) == 0)
            return rows;
        const bool isVolume = name.find("/v") != std::string::npos;
        rows.push_back({"type", isVolume ? "volume" : "filesystem", "-"});
        for (std::size_t i = Below(4); i > 0; --i)
            rows.push_back(
                {Pick({"a:b", "org:x", "quota", "casesensitivity", "type"}),
                 Below(2) == 0 ? Pick({"on", "", "\xc3\xa4 \xc3\xb6", "1  local"}) : Value(),
                 Source(name)});
        if (sorted)
            std::sort(rows.begin(), rows.end(),
                      [](const Row& a, const Row& b) { return a.property < b.property; });
        return rows;
    }

    std::string Source(const std::string& name) {
        const std::string parent = name.substr(0, name.find_last_of("/@"));
        return Below(2) == 0 ? "inherited from " + parent + std::string(Below(3) * 30, 'x')
                             : Pick({"-", "local", "default", "received", "temporary"});
    }

    /// Some lines of which most look like rows; often as wide as the columns could be.
    std::string Value() {
        std::string value = Pick({"", "x", "x  local", "                              -"});
        for (std::size_t i = Below(4); i > 0; --i) {
            std::string line = Below(4) == 0 ? Pick({"", "  -", "\xc3\xa4", "\r\t"}) : Name();
            for (const char* cell : {"type", "filesystem"}) {
                Pad(line);
                line += Below(3) == 0 ? Pick({"volume", "-", "yes", "a:b", "x  local"}) : cell;
            }
            Pad(line);
            value += "\n" + line + Pick({"", "-", "local", "inherited from p/a  local", "\n"});
        }
        if (Below(3) == 0)
            Pad(value);
        if (value.find('\n') == std::string::npos) // blanks at its end are not to be seen
            value.erase(value.find_last_not_of(' ') + 1);
        return value;
    }

    void Pad(std::string& text) {
        text.append(2, ' ');
        if (Below(2) == 0)
            text.resize(std::max(text.size(), Below(90)), ' ');
    }

    std::string Pick(std::initializer_list<const char*> texts) {
        return texts.begin()[Below(texts.size())];
    }

    std::minstd_rand random_;
};

/// Asks for what an enumeration of a hostile host asks for, most of the time in its order.
void AskAround(HostileHost& hostile, const CommandExecutor& executor) {
    FakeHost& host = hostile.host;
    const auto expectSame = [&](const std::string& line) {
        const auto alone = [&host](const std::string& asked) { return host.Answer(asked); };
        EXPECT_EQ(OutcomeOf(executor, line), OutcomeOf(alone, line));
    };
    constexpr std::array types{"filesystem ", "snapshot ", "volume "};
    std::size_t type = hostile.Below(3);
    for (std::size_t i = 0; i < host.names.size() + 2; ++i) {
        if (i == 0 || hostile.Below(10) == 0)
            expectSame(list + types[type++ % 3] + (hostile.Below(4) == 0 ? "q" : "p"));
        if (hostile.Below(10) == 0)
            executor(hostile.Below(2) == 0 ? commands::zpoolList : "zfs set a:b=c p");
        const std::string name =
            hostile.Below(5) == 0 ? hostile.Name() : host.names[i % host.names.size()];
        if (name.find(' ') != std::string::npos)
            continue;
        ExpectTruth(host, executor, name);
        for (const char* command : {"zfs userspace ", "zfs groupspace ", "zpool status "}) {
            if (hostile.Below(3) != 0)
                expectSame(commands::env + command + name);
        }
    }
}

class HostileHosts : public testing::TestWithParam<unsigned> {};

TEST_P(HostileHosts, BatchingTrustsNoRowThatAValueMayHaveForged) {
    std::size_t batches = 0;
    for (unsigned seed = GetParam(); seed <= 100000 && !HasFailure(); seed += 4) {
        SCOPED_TRACE(seed);
        HostileHost hostile(seed);
        AskAround(hostile, BatchingExecutor(hostile.host.Executor(),
                                            {hostile.Below(2) == 0 ? 256 : hostile.Below(5)}));
        for (const std::string& command : hostile.host.commands)
            batches += FakeHost::Asked(command).size() > 1 ? 1 : 0;
    }
    EXPECT_GT(batches, 25000U) << "hardly anything was tried";
}

TEST_P(HostileHosts, PrefetchingIsNotSeen) {
    const std::thread::id caller = std::this_thread::get_id();
    std::atomic<std::size_t> ahead{0}, listsAhead{0};
    for (unsigned seed = GetParam(); seed <= 10000 && !HasFailure(); seed += 4) {
        SCOPED_TRACE(seed);
        HostileHost hostile(seed);
        PrefetchingOptions options;
        options.workers = 1 + hostile.Below(8);
        options.batching.namesPerCommand = hostile.Below(5);
        options.commandsAhead = hostile.Below(9);
        options.bytesAhead = hostile.Below(2) == 0 ? 100 : options.bytesAhead;
        const std::size_t faults = hostile.Below(4);
        AskAround(hostile, PrefetchingExecutor(
                               [&, host = hostile.host.Executor()](const std::string& command) {
                                   if (std::this_thread::get_id() == caller)
                                       return host(command);
                                   const std::size_t number = ++ahead;
                                   listsAhead += util::str_is_starts_with(command, list) ? 1 : 0;
                                   if (number % 7 < faults)
                                       throw std::runtime_error("fails only ahead");
                                   if (number % 7 == 6 && faults == 3)
                                       throw 6; // NOLINT(hicpp-exception-baseclass)
                                   return host(command);
                               },
                               options));
    }
    EXPECT_GT(ahead, 1000U) << "hardly anything was tried";
    EXPECT_GT(listsAhead, 0U); // how many hangs on the machine
}

INSTANTIATE_TEST_SUITE_P(, HostileHosts, testing::Values(1, 2, 3, 4));

TEST(Batching, FallsBackFromAnyUnusableAnswer) {
    using Text = const std::string&;
    const std::map<std::string, std::function<std::string(Text)>> answers{
        {"empty", [](Text) { return ""; }},
        {"cut in a line", [](Text text) { return text.substr(0, text.size() - 5); }},
        {"last missing",
         [](Text text) { return text.substr(0, text.rfind("p/d", text.rfind("type"))); }},
        {"first missing",
         [](Text text) {
             return text.substr(0, text.find('\n') + 1) + text.substr(text.find("p/d1"));
         }},
        {"another header", [](Text text) { return "warning\n" + text; }},
        {"no header", [](Text text) { return text.substr(text.find('\n') + 1); }},
        {"narrow header", [](Text text) { return "NAME PROPERTY VALUE SOURCE\n" + text; }},
        {"row of another", [](Text text) { return text + text.substr(text.find("p/d0")); }},
        {"no columns", [](Text text) { return text.substr(0, 9) + " " + text.substr(9); }},
        {"throws", [](Text) -> std::string { throw std::runtime_error("x"); }}};
    for (const auto& [name, distort] : answers) {
        SCOPED_TRACE(name);
        FakeHost host(7);
        host.distort = distort;
        const LogCapture log;
        EXPECT_GE(CompareAll(host), 7U);
        if (name == "throws") {
            EXPECT_THAT(log.lines, testing::Contains("debug: The answer to [" + get +
                                                     "p/d0 p/d1 p/d2] is not used: x"));
        }
    }
}

TEST(Batching, OddDatasetsCostFewFurtherCommands) {
    FakeHost host(512);
    EXPECT_EQ(host.Answer(get + "p/d0 p/d10"),
              "NAME   PROPERTY  VALUE  SOURCE\n" // as the tool does
              "p/d0   type      x      -\n"
              "p/d0   a:b       y      -\n"
              "p/d10  type      x      -\n"
              "p/d10  a:b       y      -\n");
    EXPECT_EQ(CompareAll(host), 512U / 256);
    host.rows = {{"p/d7", {{"a:b", "x\ny", "local"}, {"type", "x", "-"}}},
                 {"p/d300", {{"type", "x", "-"}, {"a:b", "x\ny", "local"}}}};
    EXPECT_EQ(CompareAll(host), 512U / 256 + 2 + 2) << "with the one before, and with the next";
    for (std::size_t vanished = 0; vanished < 256; vanished += 17) { // 0 and 255 are among them
        host.rows = {{"p/d" + util::str(vanished), {}}};
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

TEST(Batching, ReadsEachDatasetInOneBatchAtMost) {
    FakeHost host(1000);
    const CommandExecutor batching = BatchingExecutor(host.Executor());
    batching(list + "filesystem p");
    for (std::size_t i = 0; i < 5000; ++i) // each five times, in leaps
        ExpectTruth(host, batching, host.names[i * 7 % 1000]);
    std::size_t datasets = 0;
    for (const std::string& command : host.commands)
        datasets += FakeHost::Asked(command).size();
    EXPECT_LE(datasets, 5000U + 1000);
}

TEST(Batching, AWideValueCostsLittleText) {
    FakeHost host(2560);
    // Many in a row, then one in each batch of the usual size.
    for (std::size_t i = 0; i < 2560; i += i < 400 ? 1 : 256)
        host.rows["p/d" + util::str(i)] = {{"a:b", std::string(50000, 'x'), "local"},
                                           {"type", "x", "-"}};
    EXPECT_LE(CompareAll(host), 2560U / 10);
    EXPECT_LE(host.textRead, std::size_t{140} * 1000 * 1000) << "twice as much if not bounded";
}

TEST(Batching, AsksOnlyForPlainNamesInBoundedCommandLines) {
    FakeHost host(11);
    host.names.insert(host.names.begin() + 1,
                      {"p/with blank", "-r", "p/$(reboot)", "p/\xc3\xa9", "p/a%b", "", "p/d0"});
    const std::size_t commandLength = get.size() + std::string("p/d0 p/d1 p/d2").size();
    const CommandExecutor batching = BatchingExecutor(host.Executor(), {256, commandLength});
    batching(list + "filesystem p");
    for (const char* name : {"p/d0", "p/with", "p/with blank", "-r", "p/$(reboot)", "p/d2", "p/d8"})
        Ask(batching, name);
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
        host.rows["p/d1"] = {{"type", "changed", "-"}};
        batching(command);
        return Ask(batching, "p/d1").find("changed") == std::string::npos;
    };
    using commands::env;
    for (const std::string& command :
         {env + "zpool list -o name,size,alloc", env + "TZ=UTC0 zpool status p",
          env + "zpool get all p", get + "elsewhere", env + "zfs userspace p",
          env + "zfs groupspace p", std::string("df -Z"), get + "p/d0"})
        EXPECT_TRUE(isHeldAfter(command)) << command;
    for (const std::string& command :
         {env + "zfs set quota=1G p/d1", env + "zfs inherit quota p/d1",
          env + "mount -F zfs p/d1 /m", env + "zpool set autoexpand=on p",
          std::string("sh -c status"), list + "snapshot p"})
        EXPECT_FALSE(isHeldAfter(command)) << command;
    FakeHost host(2);
    const CommandExecutor batching = BatchingExecutor(host.Executor());
    host.change = [&] {
        Ask(batching, "p/d0"); // as another caller may in the meantime
        host.rows["p/d1"] = {{"type", "changed", "-"}};
    };
    batching(list + "filesystem p");
    batching("zfs set a:b=c p/d1");
    EXPECT_THAT(Ask(batching, "p/d1"), testing::HasSubstr("changed"));
}

/// Asks for all that an enumeration of the filesystems asks for.
void Enumerate(const CommandExecutor& executor, const FakeHost& host, bool quotas = true) {
    executor(list + "filesystem p");
    for (const std::string& name : host.names)
        for (const char* command : {"get all ", "userspace ", "groupspace "})
            if (quotas || command == std::string("get all "))
                OutcomeOf(executor, commands::env + "zfs " + command + name);
}

PrefetchingOptions Workers(std::size_t count, std::size_t namesPerCommand = 256) {
    PrefetchingOptions options;
    options.workers = count;
    options.batching.namesPerCommand = namesPerCommand;
    return options;
}

TEST(Prefetching, AsksForTheQuotasOfOneFilesystemInTurn) {
    FakeHost host(200);
    std::map<std::string, std::atomic<int>> inProgress;
    for (const std::string& name : host.names)
        inProgress[name] = 0;
    std::atomic<int> together{0};
    const CommandExecutor run = [&](const std::string& command) -> std::string {
        if (command.find("space ") == std::string::npos)
            return host.Answer(command);
        std::atomic<int>& ofThisOne = inProgress.at(command.substr(command.rfind(' ') + 1));
        together += ++ofThisOne > 1 ? 1 : 0;
        for (int i = 0; i < 5; ++i)
            std::this_thread::yield();
        --ofThisOne;
        return "TYPE \n";
    };
    for (std::size_t workers = 1; workers <= 8; ++workers) // with few, the caller asks itself
        for (int round = 0; round < 3; ++round)
            Enumerate(PrefetchingExecutor(run, Workers(workers)), host);
    EXPECT_EQ(together, 0);
}

TEST(Prefetching, RecordingsAreTheSameWhateverTheNumberOfWorkers) {
    const auto recorded = [](std::size_t workers, std::size_t names) {
        FakeHost host(150);
        host.rows = {{"p/d7", {{"type", "x", "-"}, {"a:b", "x\ny", "local"}}},
                     {"p/d9", {}},
                     {"p/d40", {{"a:b", std::string(300, 'x'), "local"}, {"type", "x", "-"}}}};
        host.failing = {commands::userspace + "p/d30"};
        std::string text;
        Enumerate(
            [&, executor = PrefetchingExecutor(host.Executor(), Workers(workers, names))](
                const std::string& command) {
                return text.append(command).append(OutcomeOf(executor, command));
            },
            host);
        return text;
    };
    const std::string expected = recorded(0, 256);
    for (const std::size_t workers : {0U, 1U, 2U, 8U})
        for (const std::size_t names : {2U, 256U})
            EXPECT_EQ(recorded(workers, names), expected) << workers << " " << names;
}

TEST(Prefetching, RunsAheadInAWindow) {
    FakeHost host(500);
    std::atomic<int> running{0};
    std::atomic<std::size_t> started{0};
    std::promise<void> gate;
    const std::shared_future<void> open = gate.get_future().share();
    PrefetchingOptions options = Workers(4, 10);
    options.commandsAhead = 8;
    const CommandExecutor executor = PrefetchingExecutor(
        [&, fake = host.Executor()](const std::string& command) {
            if (!util::str_is_starts_with(command, list)) {
                ++started;
                if (++running == 4)
                    gate.set_value(); // four at a time
                open.wait();
            }
            return fake(command);
        },
        options);
    executor(list + "filesystem p");
    for (std::size_t i = 0; i < 500; ++i) {
        Ask(executor, host.names[i]);
        EXPECT_LE(started, i / 10 + 2 * i + 8 + 1) << "the answers that were used, and the window";
        for (const char* command : {"userspace ", "groupspace "})
            OutcomeOf(executor, commands::env + "zfs " + command + host.names[i]);
    }
    for (const char* type : {"snapshot p", "volume p"}) {
        executor(list + type);
        for (const std::string& name : host.names)
            Ask(executor, name);
    }
    EXPECT_EQ(started, 3U * 500 / 10 + 2 * 500) << "each once";
    EXPECT_EQ(host.commands.size(), started + 3) << "each list once";
}

TEST(Prefetching, LearnsWhatIsNotAskedFor) {
    FakeHost host(300);
    Enumerate(PrefetchingExecutor(host.Executor(), Workers(4, 10)), host, false);
    EXPECT_LE(host.commands.size(), 1U + 300 / 10 + 40);
}

TEST(Prefetching, ReadsTheListAheadThatFollows) {
    FakeHost host(1);
    std::map<std::string, std::promise<void>> lists;
    for (const char* foreseen : {"snapshot p", "volume p", "snapshot q"})
        lists[list + foreseen];
    const CommandExecutor executor = PrefetchingExecutor(
        [&, fake = host.Executor()](const std::string& command) {
            const std::string answer = fake(command);
            if (const auto found = lists.find(command); found != lists.end())
                found->second.set_value(); // throws the second time
            return answer;
        },
        Workers(4)); // with room for all that follows
    const auto isForeseen = [&](const char* next) {
        return lists[list + next].get_future().wait_for(std::chrono::minutes(1)) ==
               std::future_status::ready;
    };
    executor(list + "filesystem p");
    for (const char* next : {"snapshot p", "volume p"}) {
        EXPECT_TRUE(isForeseen(next)) << next;
        EXPECT_NO_THROW(executor(list + next)) << next;
    }
    executor(list + "filesystem q");
    EXPECT_TRUE(isForeseen("snapshot q"));
    Enumerate(executor, host); // which asks for no snapshots
    for (int i = 0; i < 1000; ++i)
        host.Answer(list); // time for the worker
    const std::lock_guard<std::mutex> lock(host.mutex);
    EXPECT_EQ(std::count(host.commands.begin(), host.commands.end(), list + "snapshot p"), 1);
}

TEST(Prefetching, HoldsLittleForACallerWithAnOrderOfItsOwn) {
    for (const bool isOfBytes : {false, true}) {
        FakeHost host(40);
        PrefetchingOptions options = Workers(0, 2);
        options.commandsAhead = isOfBytes ? 1000 : 2;
        options.bytesAhead = isOfBytes ? 300 : 1000000;
        const CommandExecutor executor = PrefetchingExecutor(host.Executor(), options);
        executor(list + "volume p");
        for (std::size_t i = 40; i > 0; i -= 2)
            Ask(executor, host.names[i - 2]);
        EXPECT_EQ(host.commands.size(), 1U + 40 / 2);
        Ask(executor, host.names[39]);
        EXPECT_EQ(host.commands.size(), 1U + 40 / 2 + 1) << "the first answer is gone";
    }
}

TEST(Prefetching, HoldsFewBytes) {
    FakeHost host(300);
    PrefetchingOptions options = Workers(1, 1);
    options.bytesAhead = 100;
    const CommandExecutor executor = PrefetchingExecutor(host.Executor(), options);
    std::size_t taken = executor(list + "volume p").size();
    for (const std::string& name : host.names) {
        taken += Ask(executor, name).size();
        host.Answer(list); // the caller is slower than the worker
        const std::lock_guard<std::mutex> lock(host.mutex);
        ASSERT_LT(host.textRead, taken + 100 + 200) << "and one answer";
    }
}

TEST(Prefetching, RunsNothingAheadOnceStopped) {
    FakeHost host(30);
    std::promise<void> begun;
    host.distort = [&begun](const auto&) -> std::string {
        begun.set_value();
        throw posix::CCommandFailure("zfs", posix::CCommandFailure::Kind::Stopped, 0, "", "");
    };
    const CommandExecutor executor = PrefetchingExecutor(host.Executor(), Workers(1));
    executor(list + "volume p");
    begun.get_future().wait();
    Ask(executor, "p/d0");
    for (int i = 0; i < 1000; ++i)
        host.Answer(list); // time for the worker
    const std::lock_guard<std::mutex> lock(host.mutex);
    EXPECT_EQ(host.commands.size(), 3U) << "list, batch, single";
}

TEST(Prefetching, EndsItsCommandsBeforeAChangeAndAtItsEnd) {
    std::atomic<int> running{0};
    std::promise<void> begun;
    const auto start = std::chrono::steady_clock::now();
    {
        const CommandExecutor executor = PrefetchingExecutor(
            [&](const std::string& command) {
                if (util::str_is_starts_with(command, list))
                    return FakeHost(2).Answer(command);
                if (util::str_is_starts_with(command, "zfs set"))
                    return util::str(running.load());
                if (++running == 2)
                    begun.set_value();
                EXPECT_THROW(Executors::ChildProcessExecute("sleep 600"), posix::CCommandFailure);
                --running;
                throw std::runtime_error("ended");
            },
            Workers(2, 1));
        for (int i = 0; i < 2; ++i) {
            begun = {};
            executor(list + "filesystem p");
            begun.get_future().wait();
            if (i == 0) {
                EXPECT_EQ(executor("zfs set a:b=c p"), "0");
            }
        }
    }
    EXPECT_EQ(running, 0);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
}

TEST(Batching, ManyThreadsGetTheirOwnAnswers) {
    FakeHost host(200);
    host.change = [] {}; // one caller may read while another changes something
    const std::string path = testing::TempDir() + "/threads" + util::str(getpid());
    const CommandExecutor batching =
        RecordingExecutor(PrefetchingExecutor(host.Executor(), Workers(3, 16)), path);
    batching(list + "filesystem p");
    std::vector<std::future<void>> threads;
    for (std::size_t first = 0; first < 4; ++first)
        threads.push_back(std::async(std::launch::async, [&, first] {
            for (std::size_t i = first; i < 200; i += first + 1) {
                ExpectTruth(host, batching, host.names[i]);
                if (i % 50 == 0)
                    batching(i % 100 == 0 ? list + "filesystem p" : "zfs set a:b=x p/d1");
            }
        }));
    threads.clear();
    EXPECT_EQ(ReadRecording(path).exchanges.size(), 1U + 200 + 100 + 66 + 50 + 5);
    std::filesystem::remove(path);
}

} // namespace
} // namespace zfslib::executors
