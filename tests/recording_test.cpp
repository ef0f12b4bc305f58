#include "executors/RecordingExecutor.h"
#include "executors/ReplayingExecutor.h"
#include "fakes.h"
#include "util/str.h"

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zfslib::executors {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using namespace std::string_literals;

std::string Dump(const Recording& recording) {
    std::string dump;
    for (const auto& [command, output, failure] : recording.exchanges)
        dump += testing::PrintToString(std::vector{command, output, failure.value_or("succeeded")});
    for (const std::string& missing : recording.missing)
        dump += missing + " ";
    return dump + util::str(static_cast<int>(recording.end));
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
         {""s,       "\n"s,    "\n\n"s,    "a"s,          "a\n"s, "a\n\nb"s, "\\"s,
          "\\\n"s,   "\\\\"s,  "\n\\"s,    "\\\n\\\n"s,   "$ "s,  "$ x\n"s,  "> "s,
          "> y\n"s,  "! "s,    "! \n! "s,  "$"s,          "#\n"s, "\r\n"s,   "\t\xff\x80"s,
          "\0\n\0"s, "\\.\n"s, "\\end\n"s, "\\begin x\n"s}) {
        exchanges.push_back({"output", text, {}});
        exchanges.push_back({"command" + text, "", {}});
        exchanges.push_back({text + "command", "", text});
    }
    for (const Exchange& exchange : exchanges) {
        EXPECT_EQ(Dump(ParseRecording(FormatExchange(exchange), "one")),
                  Dump({{exchange}, {}, {}}));
        recording += FormatExchange(exchange);
    }
    EXPECT_EQ(Dump(ParseRecording(recording, "all")), Dump({exchanges, {}, {}}));
}

TEST(Recording, ReadsLikeATerminal) {
    EXPECT_EQ(FormatExchange({"ls a\nb", "\\x\n$ y\n$z", {}}),
              "$ ls a\n> b\n\\\\x\n\\$ y\n$z\n\\\n\\.\n");
    EXPECT_EQ(FormatExchange({"ls", "", "two\nlines"}), "$ ls\n! two\n! lines\n\\.\n");
    EXPECT_EQ(Dump(ParseRecording("# a\n\n#b\n$ one\n# text\n\n$ two\nno newline", "name")),
              Dump({{{"one", "# text\n\n", {}}, {"two", "no newline\n", {}}}, {}, {}}));
    EXPECT_EQ(Dump(ParseRecording("# nothing yet\n", "name")), "0");
    EXPECT_EQ(ParseRecording("$ a\nx\n\\", "name").exchanges.at(0).output, "x");
    EXPECT_EQ(Dump(ParseRecording("\\begin x\n$ a\nx\n\\end\n", "name")),
              "name:2: the answer to [a] is cut short 2");
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
             {"$ a\nx\n\\\n! y\n", "f:4: a command that failed"},
             {"$ a\n\\.\nx\n", "f:3: behind the end of an exchange"},
             {"\\.\n", "f:1: a line \"\\.\" ends an exchange, but there is none"},
             {"# a\r\n$ ls\r\n", "f:1: every line ends in CR LF"}})
        EXPECT_THAT(ErrorOf([&t = text] { Replayer(ParseRecording(t, "f"), ""); }),
                    HasSubstr(error))
            << testing::PrintToString(text);
    for (const std::string missing : {"/nonexistent/x.rec", "/", "/proc/self/mem"})
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
    std::filesystem::permissions(path, std::filesystem::perms(0644));
    const Recorder recorder(path);
    const CommandExecutor executor =
        recorder.Executor([](const std::string& c) { return std::string(1, c.at(0)); });
    const std::string before = TextOf(path);
    EXPECT_THAT(before,
                testing::MatchesRegex("# mine\n[$] x\ncut\n[\\]begin zfslib [0-9.]+, host .+, "
                                      ".+, 20..-..-.. ..:..:.. UTC\n"));
    EXPECT_EQ(executor("a"), "a");
    EXPECT_EQ(TextOf(path), before + "$ a\na\n\\\n\\.\n");
    EXPECT_THROW(executor(""), std::out_of_range) << "passed on, but not recorded";
    EXPECT_EQ(Dump(ReadRecording(path)),
              Dump({{{"x", "cut\n", {}}, {"a", "a", {}}}, {}, Recording::End::CutShort}));
    recorder.Close();
    recorder.Close();
    EXPECT_EQ(ReadRecording(path).end, Recording::End::Ended);
    EXPECT_THAT(ErrorOf([&] { executor("b"); }), HasSubstr("it was closed"));
}

TEST_F(RecorderTest, CutAnywhereItSaysSo) {
    const std::vector<Exchange> exchanges = {
        {"zfs list", "a\nb\n", {}}, {"two\nlines", "no newline", {}}, {"silent", "", {}},
        {"fails", "", "x\ny"},      {"marks", "$ a\n\\.\n.\n", {}},   {"empty failure", "", ""}};
    const auto record = [this](const std::vector<Exchange>& all) {
        const Recorder recorder(path);
        const CommandExecutor executor = recorder.Executor(Replayer(all, "").Executor());
        for (const Exchange& exchange : all)
            ErrorOf([&] { executor(exchange.command); });
        recorder.Close();
    };
    record(exchanges);
    using End = Recording::End;
    const std::string whole = TextOf(path);
    const Exchange byHand{"by hand", "x\n", {}};
    for (std::size_t size = 0; size <= whole.size(); ++size) {
        const std::string text = whole.substr(0, size);
        SCOPED_TRACE(text);
        std::vector<Exchange> kept;
        std::size_t end = whole.find('\n');
        for (const Exchange& exchange : exchanges)
            if ((end += FormatExchange(exchange).size()) <= size)
                kept.push_back(exchange);
        const bool isWhole = size + 1 >= whole.size();
        const Recording cut = ParseRecording(text, "f");
        EXPECT_EQ(Dump({cut.exchanges, {}, {}, {}}), Dump({kept, {}, {}, {}}));
        EXPECT_EQ(cut.end, size == 0 ? End::Unmarked : isWhole ? End::Ended : End::CutShort);

        for (const bool isBelowOther : {false, true}) {
            if (isBelowOther && size == 1)
                continue; // "x", as far as anybody can tell
            std::ofstream(path, std::ios::trunc) << (isBelowOther ? "$ by hand\nx\n" : "") << text;
            record({{"more", "", {}}});
            std::vector<Exchange> expected = kept;
            if (isBelowOther)
                expected.insert(expected.begin(), byHand);
            expected.push_back({"more", "", {}});
            const Recording again = ReadRecording(path);
            EXPECT_EQ(Dump({again.exchanges, {}, {}, {}}), Dump({expected, {}, {}, {}}));
            EXPECT_EQ(again.end, size < 7 || isWhole ? End::Ended : End::CutShort);
        }
    }
}

/// What happens to a recorder that writes to `path`; "" when it can.
std::string RecordingError(const std::string& path, RecorderOptions options = {}) {
    return ErrorOf([&] {
        const Recorder recorder(path, options);
        recorder.Executor([](const auto&) { return "x"; })("a");
        recorder.Close();
    });
}

TEST_F(RecorderTest, RefusesWhatOthersCouldHavePutThere) {
    namespace fs = std::filesystem;
    const std::string folder = path + ".d/";
    const struct {
        std::string name, made;
        std::string reason;
    } rows[] = {
        {"new", "true", ""},
        {"file", "true", ""},
        {"file", "chmod 1777 .", ""},
        {"inner/new", "chmod 1777 .", ""},
        {"link/new", "ln -s inner link", ""},
        {"link", "ln -s file link", "it is a symbolic link"},
        {"link", "ln -s inner/dangling link", "it is a symbolic link"},
        {"file", "ln file other", "it has other names"},
        {"file", "chmod g+w file", "other users may write to it"},
        {"new", "chmod 775 .", "another user may write to the folder [" + folder},
        {"inner/new", "chmod 777 .", "another user may write to the folder"},
        {"link/new", "chmod 777 inner; mkdir inner/own; ln -s inner/own link", "another user"},
        {"link/new", "chmod 1777 .; ln -s inner link", "is a symbolic link in a folder for all"},
        {"loop/new", "ln -s loop loop", "Too many levels of symbolic links"},
        {"file", "chown 12345 file", "it belongs to another user"},
        {"pipe", "mkfifo pipe; chown 12345 pipe; cat pipe >/dev/null &", "it belongs to another"},
        {"inner/new", "chown 12345 inner", "another user may write to the folder"},
    };
    for (const auto& row : rows) {
        if (geteuid() != 0 && row.made.find("chown") != std::string::npos)
            continue;
        SCOPED_TRACE(row.made + ": " + row.name);
        const std::string made = "rm -rf " + folder + "; mkdir -p " + folder + "inner; cd " +
                                 folder + "; umask 077; true >file; umask 022; " + row.made;
        ASSERT_EQ(std::system(made.c_str()), 0);
        const std::string error = RecordingError(folder + row.name);
        if (row.reason.empty()) {
            EXPECT_EQ(error, "");
            EXPECT_EQ(fs::status(folder + row.name).permissions(), fs::perms(0600));
            continue;
        }
        EXPECT_THAT(error, HasSubstr(row.reason));
        EXPECT_EQ(fs::file_size(folder + "file"), 0);
        if (row.name.find('/') == std::string::npos && row.name != "pipe") {
            EXPECT_EQ(RecordingError(folder + row.name, {true, ""}), "");
        }
    }
    fs::remove_all(folder);
}

TEST_F(RecorderTest, SaysWhenItCannotWrite) {
    EXPECT_THAT(RecordingError("/nonexistent/x.rec"),
                HasSubstr("Cannot write the recording [/nonexistent/x.rec]: No such file"));
    EXPECT_THAT(RecordingError("/dev/full"), HasSubstr("No space left on device"));
    std::ofstream(path) << "precious";
    chmod(path.c_str(), 0600);
    EXPECT_THAT(RecordingError(path), HasSubstr(path + ":1: before the first"));
    EXPECT_EQ(TextOf(path), "precious");

    std::filesystem::resize_file(path, 0);
    const Recorder recorder(path);
    const CommandExecutor executor =
        recorder.Executor([](const auto& c) -> std::string { throw std::logic_error(c); });
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit tight{std::filesystem::file_size(path) + 8, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &tight);
    try {
        executor("long command");
        ADD_FAILURE() << "no error";
    } catch (const std::runtime_error& error) {
        setrlimit(RLIMIT_FSIZE, &before);
        EXPECT_EQ(error.what(), "Cannot write the recording [" + path + "]: File too large");
        EXPECT_EQ(ErrorOf([&] { std::rethrow_if_nested(error); }), "long command");
    }
    EXPECT_THAT(ErrorOf([&] { executor("c"); }), HasSubstr("File too large")) << "no gap";
    EXPECT_THAT(ErrorOf([&] { recorder.Close(); }), HasSubstr("File too large"));
    const Recording recording = ReadRecording(path);
    EXPECT_EQ(recording.exchanges.size(), 0);
    EXPECT_EQ(ErrorOf([&] { Replayer(recording, "f").Executor()("c"); }),
              "The recording [f] has no answer to the command [c]. It is cut short.");
}

TEST_F(RecorderTest, PipesAndStandardOutput) {
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int reader = open(path.c_str(), O_RDONLY | O_NONBLOCK);
    const CommandExecutor executor =
        RecordingExecutor([](const std::string& c) { return c + "\n"; }, path);
    executor("a");
    std::string text(4096, '\0');
    text.resize(static_cast<std::size_t>(read(reader, text.data(), text.size())));
    EXPECT_THAT(text, testing::EndsWith("$ a\na\n\\.\n"));
    close(reader);
    EXPECT_THAT(ErrorOf([&] { executor("b"); }), HasSubstr("Broken pipe"));
    sigset_t pending;
    sigpending(&pending);
    EXPECT_EQ(sigismember(&pending, SIGPIPE), 0);

    testing::internal::CaptureStdout();
    EXPECT_EQ(RecordingError("/dev/stdout", {false, "root@a\nb"}), "");
    EXPECT_THAT(testing::internal::GetCapturedStdout(),
                testing::MatchesRegex("[\\]begin zfslib .+, host root@a[?]b, seen from .+ UTC\n"
                                      "[$] a\nx\n[\\]\n[\\].\n[\\]end\n"));
}

TEST_F(RecorderTest, OneProcessAtATime) {
    const Recorder recorder(path);
    const auto inAnother = [&] {
        _exit(RecordingError(path).find("another process") == std::string::npos);
    };
    EXPECT_EXIT(inAnother(), testing::ExitedWithCode(0), "");
    static_cast<void>(ReadRecording(path)); // drops the lock
    recorder.Executor([](const auto& c) { return c; })("a");
    EXPECT_EXIT(inAnother(), testing::ExitedWithCode(0), "");
}

TEST(Recording, IsReadToItsLimitOnly) {
    const std::string path = ZFSLIB_RECORDINGS "/mirror-host.rec";
    const auto size = std::filesystem::file_size(path);
    EXPECT_EQ(ErrorOf([&] { static_cast<void>(ReadRecording(path, size)); }), "");
    EXPECT_EQ(ErrorOf([&] { static_cast<void>(ReadRecording(path, size - 1)); }),
              "Cannot read the recording [" + path + "]: it is longer than " + util::str(size - 1) +
                  " bytes");
    EXPECT_THAT(ErrorOf([] { Replayer{"/dev/zero"}; }), HasSubstr("/dev/zero:1: before the first"));
}

TEST(Recordings, EveryOneIsCanonical) {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(ZFSLIB_RECORDINGS)) {
        if (entry.path().extension() != ".rec")
            continue;
        std::string written;
        for (const Exchange& exchange : ReadRecording(entry.path()).exchanges) {
            written += FormatExchange(exchange);
            written.resize(written.size() - 3); // the end of an exchange, younger than these
        }
        const std::string text = TextOf(entry.path());
        EXPECT_EQ(text.substr(text.find("\n$ ") + 1), written) << entry.path();
        ++count;
    }
    EXPECT_GE(count, 7U);
}

} // namespace
} // namespace zfslib::executors
