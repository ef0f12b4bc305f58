// zfsinspect, run as a child, and its parts. What it tells of recordings is in told/.

#include "fakes.h"
#include "inspect/Escape.h"
#include "inspect/Gather.h"
#include "inspect/HealthReport.h"
#include "inspect/Interruption.h"
#include "inspect/MissingTools.h"
#include "inspect/Operands.h"
#include "inspect/Progress.h"
#include "inspect/Size.h"
#include "inspect/Table.h"
#include "inspect/ToolWarnings.h"
#include "posix/CSimpleCmdExec.h"
#include "util/str.h"

#include <csignal>
#include <fstream>
#include <future>
#include <gmock/gmock.h>
#include <sstream>
#include <unistd.h>

using namespace inspect;
using posix::CCommandFailure;
using posix::CSimpleCmdExec;
using testing::HasSubstr;

namespace {

struct Outcome {
    int status = 0;
    std::string out;
    std::string err;
};

Outcome Inspect(const std::vector<std::string>& arguments) {
    Outcome outcome;
    try {
        CSimpleCmdExec::RunCommandAndGetOutput(ZFSINSPECT, arguments, outcome.err, outcome.out,
                                               false, 60);
    } catch (const CCommandFailure& failure) {
        EXPECT_EQ(CCommandFailure::Kind::ExitStatus, failure.GetKind()) << failure.what();
        outcome = {failure.GetCode(), failure.GetOutput(), failure.GetErrorText()};
    }
    return outcome;
}

} // namespace

TEST(Inspect, JudgesTheAgeOfTheLastScrub) {
    using zfslib::PoolHealth;
    const std::pair<std::string, std::vector<std::size_t>> rows[] = {
        {"none requested", {1, 1}},
        {"scrub repaired 0 in 1 with 0 errors on Thu Jan  1 00:00:00 1970", {0, 1}},
        {"scrub in progress since Thu Jan  1 00:00:00 1970", {0, 1}},
        {"resilver in progress for 0h1m", {0, 0}},
        {"scrub repaired 0 in 1 with 0 errors on Fri Jan  2 00:00:00 1970\n"
         "  scan: resilver (m) in progress since Thu Jan  1 00:00:00 1970",
         {0, 0}},
    };
    for (const auto& [scan, reasons] : rows)
        for (const std::size_t second : {0U, 1U}) { // the last of 30 days, and the next
            std::string error;
            const auto found =
                Judge(PoolHealth::Parse(" state: ONLINE\n  scan: " + scan, PoolHealth::Clock::Utc),
                      {}, {90, 30}, static_cast<std::int64_t>(30 * 86400 - 1 + second), error);
            EXPECT_EQ(reasons[second], found.size()) << scan;
            EXPECT_TRUE(found.empty() || found[0].kind == HealthReason::Kind::ScrubAge);
            EXPECT_EQ("", error) << scan;
        }
}

TEST(Inspect, FailsWithOneLineAndRunsNothingAfterAUsageError) {
    const std::string recording = testing::TempDir() + std::to_string(getpid()) + "unwritten.rec";
    const struct {
        std::vector<std::string> arguments;
        int status;
        std::string reason;
    } rows[] = {
        {{}, 2, "a command is missing"},
        {{"pool"}, 2, "[pool] is no command or option; did you mean \"pools\"?"},
        {{"imp"}, 2, "did you mean \"importable\"?"},
        {{"dtaset"}, 2, "did you mean \"datasets\"?"},
        {{"--json", "destroy"}, 2, "[destroy] is no command or option (see"},
        {{"pools", "--propertys"}, 2, "--propertys"},
        {{"pools", "a b"}, 2, "white space"},
        {{"pools", "[tank]"}, 2, "brackets"},
        {{"datasets"}, 2, "ROOT is required"},
        {{"datasets", "tank;reboot"}, 2, "[tank;reboot] is refused"},
        {{"datasets", "tank", "--type", "pool"}, 2, "pool not in"},
        {{"datasets", "tank", "--changed", "--properties"}, 2, "excludes"},
        {{"volume", "tank/\x1b[2J\n"}, 2, "[tank/\\e[2J ] is refused"},
        {{"volume", std::string(10000, 'a')}, 2, "longer than 255"},
        {{"locate", "/a", "b"}, 2, "[b] is refused: the path is not absolute"},
        {{"--timeout", "-1", "tools"}, 2, "digits"},
        {{"--replay", "x", "tools"}, 2, "excludes"},
        {{"health", "--metrics", "--json"}, 2, "excludes"},
        {{"health", "--capacity", "x"}, 2, "digits"},
        {{"plan", "--saved", "x", "--disk", "=x"}, 2, "[=x] is refused"},
        {{"plan", "--saved", "x", "--rename", "t=a", "--rename", "t=b"}, 2, "has another one al"},
        {{"plan", "--saved", "x", "--rename", "t"}, 2, "[t] is refused"},
        {{"datasets", "nosuch"}, 1, " zfs "},
    };
    for (const auto& row : rows) {
        std::vector<std::string> arguments = {"--record", recording};
        arguments.insert(arguments.end(), row.arguments.begin(), row.arguments.end());
        const Outcome outcome = Inspect(arguments);
        EXPECT_EQ(row.status, outcome.status) << row.reason;
        EXPECT_EQ("", outcome.out) << row.reason;
        EXPECT_THAT(outcome.err, testing::StartsWith("zfsinspect: ")) << row.reason;
        EXPECT_THAT(outcome.err, HasSubstr(row.reason));
        EXPECT_EQ(outcome.err.size() - 1, outcome.err.find('\n')) << row.reason;
        EXPECT_EQ(row.status == 1, std::remove(recording.c_str()) == 0) << row.reason;
    }
    EXPECT_EQ("zfsinspect " ZFSINSPECT_VERSION "\n", Inspect({"--version"}).out);
}

TEST(Inspect, SendsNothingFromOutsideRaw) {
    for (const char* option : {"--verbose", "--json", "--flat"}) {
        const Outcome outcome = Inspect({"--replay", ZFSLIB_RECORDINGS "/odd-answers.rec",
                                         "datasets", "h", "--changed", option, "--type", "fs"});
        EXPECT_EQ(0, outcome.status) << outcome.err;
        const std::string all = outcome.out + outcome.err;
        EXPECT_EQ(std::string::npos, all.find_first_of("\x1b\x07\x9b\xe2")) << option << all;
        EXPECT_THAT(outcome.err, HasSubstr("for [h/\\e]0;x\\x07\\x9b2J\\xe2\\x80\\xae]."))
            << option;
    }
}

TEST(InspectParts, EndBySignalAfterTheirChildren) {
    const auto interrupted = [] {
        std::signal(SIGINT, SIG_DFL);
        std::signal(SIGHUP, SIG_IGN);
        const Interruption interruption;
        std::raise(SIGHUP);
        if (Interruption::Signal() != 0)
            return;
        try {
            CSimpleCmdExec::RunCommand("echo $$; kill -INT $PPID; exec sleep 100");
        } catch (const CCommandFailure& failure) {
            const pid_t child = std::stoi(failure.GetOutput());
            if (failure.GetKind() == CCommandFailure::Kind::Stopped && kill(-child, 0) != 0 &&
                Interruption::Signal() == SIGINT)
                Interruption::EndBy(SIGINT);
        }
    };
    EXPECT_EXIT(interrupted(), testing::KilledBySignal(SIGINT), "");
}

TEST(InspectParts, TellAHostWithoutToolsFromOneWhereTheyFail) {
    using Kind = CCommandFailure::Kind;
    const std::string folders =
        " in /usr/sbin, /usr/bin, /sbin, /bin, /usr/local/sbin, /usr/local/bin";
    const std::tuple<std::string, Kind, int, std::string> rows[] = {
        {"TZ=UTC0 zpool status", Kind::CannotStart, ENOENT,
         "no ZFS tools on the host: no zpool" + folders},
        {"pkginfo SUNWzfsu", Kind::CannotStart, ENOENT, "host: no zfs" + folders},
        {"ls x", Kind::CannotStart, ENOENT, "ls x"},
        {"zfs list", Kind::CannotStart, EACCES, "zfs list"},
        {"zfs list", Kind::ExitStatus, ENOENT, "zfs list"},
    };
    for (const auto& [command, kind, code, error] : rows) {
        const auto failing = [kind = kind, code = code](const auto& line) -> std::string {
            throw CCommandFailure(line, kind, code, "", "");
        };
        EXPECT_THAT(
            ErrorOf([&, &line = command] { NamingMissingTools(failing)(commands::env + line); }),
            HasSubstr(error));
    }
    Options options;
    options.operands = {"/tank"};
    for (const Command command : {Command::Volume, Command::Locate, Command::State}) {
        options.command = command;
        const auto missing = [](const std::string&) -> std::string { throw MissingTools("x"); };
        const InstalledExecutor installed(missing);
        EXPECT_THROW((void)Gather(options, missing), MissingTools);
    }
}

TEST(InspectParts, FindTheDeviceOfAVolume) {
    Options options;
    options.command = Command::Volume;
    options.operands = {"t/v"};
    const std::string device = "/dev/zvol/t/v";
    const std::pair<std::string, std::string> rows[] = {
        {"lrwxrwxrwx 1 root root 9 Nov 23 08:59 /dev/zvol/t/v -> ../../zd0\n", device},
        {"crw-r-----  1 root operator 0x6e Nov 23 08:59 /dev/zvol/t/v\n", device},
        {"total 0\ndrwxr-xr-x 2 root root 80 Nov 23 08:59 .\n", "pseudo@zfs"},
        {"", "pseudo@zfs"},
    };
    for (const auto& [answer, expected] : rows) {
        const FakeExecutor host;
        host.Answer(commands::env + "ls -la " + device, answer);
        const InstalledExecutor installed(host);
        EXPECT_EQ(expected, std::get<VolumeReport>(Gather(options, host)).device) << answer;
    }
}

TEST(InspectParts, WarnOnceOfWhatToolsWriteToStandardError) {
    std::vector<std::string> printed;
    {
        ToolWarnings warnings([&printed](const std::string& text) { printed.push_back(text); });
        for (const char* text : {"ld.so: b\n", "no pools available\n", "a\nno datasets available\n",
                                 "\nno pools available to import\n", "ld.so: b", "a\n", "\n"})
            warnings.Add(text);
        EXPECT_TRUE(printed.empty());
    }
    EXPECT_THAT(printed, testing::ElementsAre("ld.so: b\n", "a\n"));
}

TEST(InspectParts, DrawProgressOnOneLineAndEraseIt) {
    std::ostringstream terminal;
    const std::string longName = "t/\x1b" + std::string(200, 'n');
    std::size_t width = 80;
    {
        Progress progress(terminal, [&width] { return width; });
        const auto executor =
            progress.Watch([&](const std::string&) { return "t\n" + longName + "\n"; });
        executor(commands::zfsGet + "before");
        executor(commands::zfsList + "volume t");
        executor(commands::userspace + "t");
        EXPECT_EQ("", terminal.str());
        executor(commands::zfsGet + longName);
        EXPECT_EQ("volume 1 of 2: t/\\e" + std::string(60, 'n'), terminal.str());
        width = 20;
    }
    EXPECT_THAT(terminal.str(), testing::EndsWith("n\r" + std::string(19, ' ') + "\r"));
}

TEST(InspectParts, NameTheCommandThatIsWaitedFor) {
    struct Screen : std::stringbuf { // tells of the first text that is shown
        std::promise<std::string> shown;
        int sync() override {
            if (!std::exchange(isOld, true))
                shown.set_value(str());
            return 0;
        }
        bool isOld = false;
    } screen;
    std::ostream terminal(&screen);
    Progress progress(
        terminal, [] { return 25; }, std::chrono::milliseconds(1));
    std::future<std::string> shown = screen.shown.get_future();
    progress.Watch([&shown](const std::string&) {
        const bool isShown = shown.wait_for(std::chrono::minutes(1)) == std::future_status::ready;
        EXPECT_EQ("waiting 0 s: zpool impor", isShown ? shown.get() : "");
        return "";
    })("/usr/bin/env -i zpool import");
    EXPECT_THAT(screen.str(), testing::EndsWith("\r" + std::string(24, ' ') + "\r"));
}

TEST(InspectParts, EscapeAndFold) {
    const std::pair<std::string, std::string> rows[] = {
        {"plain ~", "plain ~"},
        {"\n\t\r\x1b\x01\x7f", R"(\n\t\r\e\x01\x7f)"},
        {R"(\n)", R"(\\n)"},
        {"\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80", "é€😀"},
        {"\x80\x9b\xff", R"(\x80\x9b\xff)"},
        {"\xc2\x9b\xc2\xa0", "\\xc2\\x9b\xc2\xa0"},
        {"\xe2\x80\xaa\xe2\x80\xae", R"(\xe2\x80\xaa\xe2\x80\xae)"},
        {"\xe2\x81\xa6\xe2\x81\xa9", R"(\xe2\x81\xa6\xe2\x81\xa9)"},
        {"\xc2\x9f\xd8\x9c", R"(\xc2\x9f\xd8\x9c)"},
        {"\xe2\x80\x8a\xe2\x80\x8e\xe2\x80\x8f\xe2\x80\x90",
         "\u200a\\xe2\\x80\\x8e\\xe2\\x80\\x8f\u2010"},
        {"\u2027\xe2\x80\xa8\xe2\x80\xa9\u202f", "\u2027\\xe2\\x80\\xa8\\xe2\\x80\\xa9\u202f"},
        {"a\xef\xb8\x8f\xef\xbb\xbf", R"(a\xef\xb8\x8f\xef\xbb\xbf)"},
        {"\xf3\xa0\x80\x81\xf3\xa0\x87\xaf", R"(\xf3\xa0\x80\x81\xf3\xa0\x87\xaf)"},
        {"\xc0\xaf", R"(\xc0\xaf)"},
        {"\xe0\x9f\xbf", R"(\xe0\x9f\xbf)"},
        {"\xed\xa0\x80", R"(\xed\xa0\x80)"},
        {"\xf4\x90\x80\x80", R"(\xf4\x90\x80\x80)"},
        {"\xe2\x82", R"(\xe2\x82)"},
        {"\xe2\x82x", R"(\xe2\x82x)"},
        {"", ""},
        {std::string(1, '\0'), R"(\x00)"},
    };
    for (const auto& [text, escaped] : rows)
        EXPECT_EQ(escaped, Escape(text)) << escaped;
    EXPECT_EQ(3, Columns("é€😀"));
    EXPECT_EQ("é€", CutToColumns("é€😀", 2));
    EXPECT_EQ("a: b c", Fold("\na:\r\n\n b \nc\n"));
    const std::string cut = Fold(std::string(5000, 'h') + std::string(500, 't'));
    EXPECT_EQ(std::string(1500, 'h') + " ... " + std::string(500, 't'), cut);
}

TEST(InspectParts, TablesGrowWithTheirTextOnly) {
    Table table({1});
    table.Add({"short", "1"});
    table.Add({std::string(5000, 'n'), "23"});
    EXPECT_EQ("short" + std::string(115, ' ') + "   1", table.Line(0));
    EXPECT_EQ(std::string(5000, 'n') + "  23", table.Line(1));
    EXPECT_EQ(8, Indentation(2));
    EXPECT_EQ(200, Indented(8000, "n").find('n'));
}

TEST(InspectParts, WarningsOfOneKindAreOneLine) {
    using Kind = CCommandFailure::Kind;
    Options options;
    options.command = Command::Datasets;
    options.properties = PropertyChoice::Read;
    options.operands = {"t"};
    options.types = {zfslib::ZfsDataset::filesystem};
    Kind kind = Kind::ExitStatus;
    zfslib::Executors::SetProcessExecutor([&kind](const std::string& command) -> std::string {
        if (command.find("groupspace") != std::string::npos)
            return "TYPE \n";
        throw CCommandFailure(command, kind, 1, "cannot read " + util::split(command).back(), "");
    });
    const auto host = [](const std::string& command) -> std::string {
        return command.find(" list ") == std::string::npos ? "H\n"
                                                           : "t 1 1 1\nt/a 1 1 1\nt/b 1 1 1\n";
    };
    const Report report = Gather(options, host);
    const auto& datasets = std::get<DatasetsReport>(report);
    EXPECT_EQ(3, datasets.warnings.size());
    EXPECT_THAT(datasets.warningCauses, testing::Contains(testing::EndsWith("cannot read t/b")));
    EXPECT_THAT(
        datasets.warningLines,
        testing::ElementsAre("Failed to read ZFS user quota for [t]. This property will not be "
                             "restored. Cause: Command [/usr/bin/env -i zfs userspace t] failed: "
                             "exit status 1: cannot read t (the first of 3 alike)"));
    EXPECT_EQ("", Incompleteness(report));
    kind = Kind::TimeOut;
    EXPECT_NE("", Incompleteness(Gather(options, host)));
    zfslib::Executors::SetProcessExecutor(&zfslib::Executors::ChildProcessExecute);
}

TEST(InspectParts, DocumentsListWhatOnlyACreationSets) {
    std::vector<std::string> names = {"normalization"};
    const zfslib::ZfsProperties properties;
    zfslib::ZfsProperties::ForEach(properties, [&names](const auto& property) {
        if (zfslib::ZfsProperties::IsSetAtCreation(property.GetName()))
            names.push_back(property.GetName());
    });
    ASSERT_EQ(7, names.size());
    std::sort(names.begin(), names.end());
    std::string listed;
    for (const std::string& name : names)
        listed += (listed.empty() ? "" : ", ") + name;
    for (const char* document : {"docs/json.md", "docs/host-guide.md", "inspect/zfsinspect.1"}) {
        std::ifstream file(std::string(ZFSLIB_SOURCE) + "/" + document);
        std::string text;
        for (std::string word; file >> word; text += word + " ")
            word.erase(std::remove(word.begin(), word.end(), '`'), word.end());
        EXPECT_THAT(text, HasSubstr(listed)) << document;
    }
}

TEST(InspectParts, FormatSizesLikeTheTools) {
    const std::pair<std::uint64_t, const char*> rows[] = {
        {0, "0"},           {1023, "1023"},      {1024, "1K"},        {1536, "1.50K"},
        {10500, "10.3K"},   {13946060, "13.3M"}, {150994944, "144M"}, {1048575, "1024K"},
        {1ULL << 60, "1E"}, {~0ULL, "16.0E"},
    };
    for (const auto& [bytes, text] : rows)
        EXPECT_EQ(text, FormatSize(bytes)) << bytes;
}

TEST(InspectParts, CheckOperands) {
    for (const char* good : {"tank", "Big-Pool_1.x:y", "z/Z", "t/a.b/0", "t/d@2026-11-20", "a@s"})
        EXPECT_EQ("", RefusedDataset(good)) << good;
    for (const char* bad :
         {"",    "/",    "1a",  "-a",  "@s",  "a/",  "/a",    "a//b",     "a/b@", "a@b@c", "a@b/c",
          "a b", "a\tb", "a;b", "a$b", "a'b", "a%b", "a\x1b", "\xc3\xa9", "a/..", "a/./b", "a@.."})
        EXPECT_NE("", RefusedDataset(bad)) << bad;
    EXPECT_EQ("", RefusedDataset("t/" + std::string(253, 'a')));
    EXPECT_NE("", RefusedDataset("t/" + std::string(254, 'a')));
    EXPECT_EQ("", RefusedPool("tank"));
    for (const char* bad : {"tank/a", "tank@a", "", "2"})
        EXPECT_NE("", RefusedPool(bad)) << bad;
    EXPECT_EQ("", RefusedPath("/a b;$(c)\n"));
    EXPECT_NE("", RefusedPath(""));
}
