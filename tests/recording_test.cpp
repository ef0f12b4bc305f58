#include "executors/RecordingExecutor.h"
#include "executors/ReplayingExecutor.h"
#include "fakes.h"
#include "util/str.h"
#include "zfstools/ZfsDatasetEnumerator.h"
#include "zfstools/ZpoolsEnumerator.h"

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <future>

#include <sys/resource.h>
#include <unistd.h>

namespace zfslib::executors {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using namespace std::string_literals;

std::string Dump(const std::vector<Exchange>& exchanges) {
    std::string dump;
    for (const auto& [command, output, failure] : exchanges)
        dump += testing::PrintToString(std::vector{command, output, failure.value_or("succeeded")});
    return dump;
}

std::string TextOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

struct RecorderTest : testing::Test {
    ~RecorderTest() override { std::filesystem::remove(path); }
    const std::string path = std::filesystem::temp_directory_path() /
                             ("zfslib-recorder-test-" + util::str(getpid()) + ".rec");
};

TEST(Recording, EveryByteStringComesBack) {
    std::string recording;
    std::vector<Exchange> exchanges;
    for (const std::string& text :
         {""s,       "\n"s,   "\n\n"s,     "a"s,    "a\n"s,        "a\n\nb"s, "\\"s,    "\\\n"s,
          "\\\\"s,   "\n\\"s, "\\\n\\\n"s, "$ "s,   "$ x\n"s,      "> "s,     "> y\n"s, "! "s,
          "! \n! "s, "$"s,    "#\n"s,      "\r\n"s, "\t\xff\x80"s, "\0\n\0"s}) {
        exchanges.push_back({"output", text, {}});
        exchanges.push_back({"command" + text, "", {}});
        exchanges.push_back({text + "command", "", text});
    }
    for (const Exchange& exchange : exchanges) {
        EXPECT_EQ(Dump(ParseRecording(FormatExchange(exchange), "one")), Dump({exchange}));
        recording += FormatExchange(exchange);
    }
    EXPECT_EQ(Dump(ParseRecording(recording, "all")), Dump(exchanges));
}

TEST(Recording, ReadsLikeATerminal) {
    EXPECT_EQ(FormatExchange({"ls a\nb", "\\x\n$ y\n$z", {}}),
              "$ ls a\n> b\n\\\\x\n\\$ y\n$z\n\\\n");
    EXPECT_EQ(FormatExchange({"ls", "", "two\nlines"}), "$ ls\n! two\n! lines\n");
    EXPECT_EQ(Dump(ParseRecording("# a\n\n#b\n$ one\n# text\n\n$ two\nno newline", "name")),
              Dump({{"one", "# text\n\n", {}}, {"two", "no newline\n", {}}}));
    EXPECT_EQ(Dump(ParseRecording("# nothing yet\n", "name")), "");
}

TEST(Recording, MalformedIsRefusedWithFileLineAndReason) {
    for (const auto& [text, error] : std::map<std::string, std::string>{
             {"# a\nls\n$ ls\n", "f:2: before the first command"},
             {"\\\n", "f:1: before the first command"},
             {"$ a\n$ \nx\n", "f:2: the command is empty"},
             {"$ a\nx\n> b\n", "f:3: a command is continued"},
             {"$ a\nx\n! b\n", "f:3: a command that failed (\"! \") has no output; write"},
             {"$ a\n! x\n\n", "f:3: a command that failed (\"! \") has no output"},
             {"$ a\n\\\n", "f:2: a line \"\\\" stands only below output"},
             {"$ a\nx\n\\\ny\n", "f:4: a line \"\\\" ends the output"},
             {"$ a\nx\n\\\n! y\n", "f:4: a command that failed"}})
        EXPECT_THAT(ErrorOf([&t = text] { Replayer(ParseRecording(t, "f"), ""); }),
                    HasSubstr(error))
            << testing::PrintToString(text);
    for (const std::string missing : {"/nonexistent/x.rec", "/"})
        EXPECT_THAT(ErrorOf([&] { Replayer{missing}; }),
                    HasSubstr("Cannot read the recording [" + missing + "]: "));
}

TEST(Replayer, AnswersInOrderThenRepeatsTheLast) {
    const Replayer replayer(
        ParseRecording("$ a\n1\n$ b\n! b\n! c\n$ a\n! gone\n$ c\n$ a\n3\n$ c\n", ""), "six.rec");
    const CommandExecutor first = replayer.Executor();
    const CommandExecutor second = replayer.Executor();
    EXPECT_THAT(replayer.UnusedCommands(), ElementsAre("a", "b", "c"));
    EXPECT_EQ(first("a"), "1\n");
    EXPECT_EQ(ErrorOf([&] { second("a"); }), "gone");
    EXPECT_EQ(first("a") + second("a"), "3\n3\n");
    EXPECT_THAT(replayer.UnusedCommands(), ElementsAre("b", "c"));
    EXPECT_THROW(first("b"), std::runtime_error);
    EXPECT_EQ(ErrorOf([&] { first("b"); }), "b\nc");
    EXPECT_EQ(ErrorOf([&] { first("d"); }),
              "The recording [six.rec] has no answer to the command [d].");
    EXPECT_THAT(replayer.UnusedCommands(), ElementsAre("c"));
}

TEST_F(RecorderTest, WritesEachExchangeBeforeItReturns) {
    std::ofstream(path) << "# mine\n$ x\ncut";
    const CommandExecutor executor =
        RecordingExecutor([](const std::string& c) { return std::string(1, c.at(0)); }, path);
    EXPECT_EQ(executor("a"), "a");
    EXPECT_EQ(TextOf(path), "# mine\n$ x\ncut\n$ a\na\n\\\n");
    const CommandExecutor failing = RecordingExecutor(
        [](const auto&) -> std::string { throw std::out_of_range("two\nlines"); }, path);
    EXPECT_THROW(failing("fail"), std::out_of_range);
    EXPECT_EQ(TextOf(path), "# mine\n$ x\ncut\n$ a\na\n\\\n$ fail\n! two\n! lines\n");
    EXPECT_THROW(executor(""), std::out_of_range) << "passed on, but not recorded";
    EXPECT_EQ(ReadRecording(path).size(), 3U);
}

TEST_F(RecorderTest, SaysWhenItCannotWrite) {
    EXPECT_THAT(ErrorOf([&] { Recorder{"/nonexistent/x.rec"}; }),
                HasSubstr("Cannot write the recording [/nonexistent/x.rec]: "));
    std::ofstream(path) << "precious";
    EXPECT_THAT(ErrorOf([&] { Recorder{path}; }), HasSubstr(path + ":1: before the first"));
    EXPECT_EQ(TextOf(path), "precious");

    std::filesystem::resize_file(path, 0);
    const CommandExecutor executor =
        RecordingExecutor([](const auto& c) -> std::string { throw std::logic_error(c); }, path);
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit tight{8, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &tight);
    try {
        executor("long command");
        ADD_FAILURE() << "no error";
    } catch (const std::runtime_error& error) {
        setrlimit(RLIMIT_FSIZE, &before);
        EXPECT_THAT(error.what(), HasSubstr("Cannot write the recording [" + path + "]: "));
        EXPECT_EQ(ErrorOf([&] { std::rethrow_if_nested(error); }), "long command");
    }
}

TEST_F(RecorderTest, ManyThreadsRecordAndReplay) {
    const auto answer = [](const std::string& command) { return std::string(2000, 'x') + command; };
    const auto inThreads = [&](const CommandExecutor& executor) {
        std::vector<std::future<void>> threads;
        for (int first = 0; first < 400; first += 50)
            threads.push_back(std::async(std::launch::async, [&, first] {
                for (int i = first; i < first + 50; ++i)
                    EXPECT_EQ(executor(util::str(i)), answer(util::str(i)));
            }));
    };
    inThreads(RecordingExecutor(answer, path));
    const Replayer replayer(path);
    EXPECT_EQ(replayer.UnusedCommands().size(), 400U);
    inThreads(replayer.Executor());
    EXPECT_THAT(replayer.UnusedCommands(), ElementsAre());
}

TEST(Recordings, EveryOneIsCanonicalAndEnumerates) {
    std::map<std::string, std::string> found; // the pools, with the number of their datasets
    for (const auto& entry : std::filesystem::directory_iterator(ZFSLIB_RECORDINGS)) {
        if (entry.path().extension() != ".rec")
            continue;
        SCOPED_TRACE(entry.path());
        std::string written;
        for (const Exchange& exchange : ReadRecording(entry.path()))
            written += FormatExchange(exchange);
        const std::string text = TextOf(entry.path());
        EXPECT_EQ(text.substr(text.find("\n$ ") + 1), written);

        if (util::str_is_finishes_with(entry.path().stem().string(), "-state"))
            continue; // a state was recorded, which is read by others
        const CommandExecutor executor = Replayer(entry.path()).Executor();
        const InstalledExecutor installed(executor);
        std::string& pools = found[entry.path().stem()];
        for (const Zpool& pool : ZpoolEnumerator::Enumerate(executor)) {
            pools += pool.name + " ";
            if (!util::str_is_finishes_with(entry.path().stem().string(), "-host"))
                continue; // only pools were recorded
            const auto result = ZfsDatasetEnumerator().Enumerate(pool.name, executor);
            EXPECT_THAT(result.second, ElementsAre()) << pool.name;
            pools += util::str(result.first.size()) + " ";
        }
    }
    EXPECT_EQ(found, (std::map<std::string, std::string>{
                         {"degraded-pools", "cks degr fault off repl una "},
                         {"many-layouts", "Big-Pool_1.x:y ex fewfeat old28 rm single stripe "
                                          "twodisks z1 z2 z3 "},
                         {"mirror-host", "backup 4 tank 24 "},
                         {"solaris-host", "rpool 12 tank 14 "}}));
}

} // namespace
} // namespace zfslib::executors
