// A plan as a script, run by every shell that is there, and by Apply.

#include "fakes.h"
#include "posix/CSimpleCmdExec.h"
#include "restore/Apply.h"
#include "restore/Script.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

using namespace zfslib::restore;
using posix::CCommandFailure;
using testing::HasSubstr;

namespace {

Step MakeStep(Phase phase, Action action, const std::string& property,
              std::vector<std::string> words, std::vector<std::size_t> needs = {}) {
    Step step;
    step.phase = phase;
    step.action = action;
    step.object = words.back();
    step.property = property;
    step.words = std::move(words);
    step.needs = std::move(needs);
    return step;
}

/// A folder with zfs and zpool that note their words, and a script of the plan.
class FakeHost {
public:
    explicit FakeHost(const Plan& plan)
        : folder_(testing::TempDir() + "apply" + std::to_string(getpid())) {
        std::filesystem::create_directory(folder_);
        for (const char* tool : {"/zfs", "/zpool"}) {
            std::ofstream(folder_ + tool)
                << "#!/bin/sh\nprintf '%s\\0' \"${0##*/}\" \"$@\" >>" << folder_
                << "/log\n[ \"$1\" = allow ] && echo 'usage\ninvalid user x'\n[ \"$1\" = refused ] "
                   "&& { echo no >&2; exit 7; }\n"
                   "cat >>"
                << folder_ << "/log\n";
            std::filesystem::permissions(folder_ + tool, std::filesystem::perms::owner_all);
        }
        std::ofstream(folder_ + "/plan.sh") << PlanScript(plan, "of a test\nexit 9");
    }
    ~FakeHost() { std::filesystem::remove_all(folder_); }
    FakeHost(const FakeHost&) = delete;
    FakeHost& operator=(const FakeHost&) = delete;

    /// The words of all commands and the input they got, each word with a NUL behind it; the exit
    /// status and standard error go into `ending`.
    std::string Run(const std::string& line, std::string& ending) const {
        std::filesystem::remove(folder_ + "/log");
        std::string ignored;
        ending = "0 ";
        try {
            posix::CSimpleCmdExec::RunShellCommand("cd " + folder_ + "; PATH=" + folder_ +
                                                       ":$PATH; export PATH; " + line,
                                                   60, ignored);
        } catch (const CCommandFailure& failure) {
            ending = std::to_string(failure.GetCode()) + " " + failure.GetErrorText();
        }
        std::ostringstream log;
        log << std::ifstream(folder_ + "/log").rdbuf();
        return log.str();
    }

private:
    std::string folder_;
};

std::string WordsOf(const Plan& plan, std::size_t first, std::size_t last,
                    const std::string& input = "") {
    std::string text;
    for (std::size_t i = first; i < last; ++i) {
        for (const std::string& word : plan.steps[i].words)
            text += word + '\0';
        text += plan.steps[i].asksFor.empty() ? "" : input;
    }
    return text;
}

TEST(PlanScript, GivesEveryWordByteForByteInEveryShell) {
    std::string bytes;
    for (int c = 1; c < 256; ++c)
        bytes += static_cast<char>(c);
    Plan plan;
    plan.steps = {
        MakeStep(Phase::Pools, Action::Create, "",
                 {"zpool", "create", "/dev/a b", "/dev/c", "tank"}),
        MakeStep(Phase::Properties, Action::Set, "u:all",
                 {"zfs", "set", "u:all=" + bytes, "tank/a"}),
        MakeStep(
            Phase::Properties, Action::Set, "u:\n",
            {"zfs", "set", "u:x=\n# 4: forged\n\n", "", "-f", "=x", "~", "*", "\n", "tank\n}"}),
        MakeStep(Phase::Limits, Action::Set, "quota",
                 {"zfs", "refused", "$x `id` '\\''!!", "tank/\x1b"}),
        MakeStep(Phase::Mounts, Action::LoadKey, "", {"zfs", "load-key", "tank/b"}),
    };
    plan.steps[0].diskWords = {2, 3};
    plan.steps[2].why = "'\n}\nexit 8 \xff";
    plan.steps[2].willBe = plan.steps[2].why;
    plan.steps[4].asksFor = "the passphrase of 'tank/b'\n";
    plan.cannot = {{"tank\nexit 6", "p\n", "\n", "", "because\nexit 6"}};
    plan.mentioned = {{"tank\nexit 5", "\nexit 5"}};
    const FakeHost host(plan);
    int shells = 0;
    for (const std::string& shell :
         std::vector<std::string>{"dash", "bash", "ksh93", "mksh", "busybox sh", "zsh --emulate sh",
                                  "sh", "LC_ALL=C.UTF-8 bash", "LC_ALL=C.UTF-8 ksh93"}) {
        std::string ending;
        host.Run(shell + " -c :", ending);
        if (ending != "0 ")
            continue;
        ++shells;
        SCOPED_TRACE(shell);
        host.Run(shell + " -n plan.sh", ending);
        EXPECT_EQ(ending, "0 ");
        EXPECT_EQ(host.Run("printf x | " + shell + " plan.sh prepare", ending),
                  WordsOf(plan, 0, 3));
        EXPECT_EQ(ending, "0 ");
        EXPECT_EQ(host.Run(shell + " plan.sh", ending), WordsOf(plan, 0, 4));
        EXPECT_THAT(ending, HasSubstr("1 no\n"));
        EXPECT_THAT(ending, HasSubstr("step 4 of 5 failed with status 7:\n"
                                      "    # 4: tank/\\x1b: set quota\n"));
        EXPECT_THAT(ending, HasSubstr("sh plan.sh from 5 "));
        EXPECT_EQ(host.Run("printf key | " + shell + " plan.sh finish from 5", ending),
                  WordsOf(plan, 4, 5, "key"));
        EXPECT_EQ(ending, "0 ");
        // A script that is the input must not be taken for a key.
        EXPECT_EQ(host.Run(shell + " -s from 5 <plan.sh", ending), WordsOf(plan, 4, 5, ""));
        for (const char* wrong : {"from 0", "from 7", "prepare finish"}) {
            EXPECT_EQ(host.Run(shell + " plan.sh " + wrong, ending), "") << wrong;
            EXPECT_THAT(ending, HasSubstr("2 usage: ")) << wrong;
        }
        EXPECT_EQ(host.Run("n=$(sed -n /^PATH=/= plan.sh | head -n 1); lines=$(wc -l <plan.sh); "
                           "while [ \"$n\" -lt \"$lines\" ]; do head -n \"$n\" plan.sh >cut; " +
                               shell + " cut 2>/dev/null && exit 9; n=$((n + 1)); done",
                           ending),
                  "");
        EXPECT_EQ(ending, "0 ");
    }
    EXPECT_GE(shells, 2);
    EXPECT_THAT(PlanScript(plan, ""), HasSubstr("\\nexit 8 \\xff\nstep 3 "));
    EXPECT_THAT(PlanScript(plan, ""), HasSubstr("disk1='/dev/a b'\ndisk2='/dev/c'\n"));
    EXPECT_THAT(PlanScript(plan, ""),
                HasSubstr("\nstep 1 zpool create \"$disk1\" \"$disk2\" tank\n"));
    plan.steps[1].words[2] += '\0';
    EXPECT_THAT(ErrorOf([&] { (void)PlanScript(plan, ""); }), HasSubstr("NUL"));
}

/// The letters of the outcomes, in the order of Outcome.
constexpr std::string_view letters = "DRFUPS";

TEST(Apply, FailsWhereTheToolOnlySaysThatItRefuses) {
    Plan plan;
    plan.steps = {MakeStep(Phase::Mounts, Action::Allow, "", {"zfs", "allow", "x", "send", "a"})};
    std::string ending;
    FakeHost(plan).Run("sh plan.sh", ending);
    EXPECT_THAT(ending, HasSubstr("1 invalid user x\n"));
    const ApplyResult result =
        Apply(plan, [](const std::string&) { return "usage\ninvalid user x\n"; });
    EXPECT_EQ(result.steps[0].outcome, Outcome::Failed);
    EXPECT_EQ(result.steps[0].text, "invalid user x\n");
}

TEST(Apply, StopsWhatNeedsAStepThatIsNotDone) {
    using Kind = CCommandFailure::Kind;
    const auto set = [](const std::string& value, std::vector<std::size_t> needs) {
        Step step = MakeStep(Phase::Properties, Action::Set, "u:it's",
                             {"zfs", "set", "u:it's=" + value, "tank/a b"}, std::move(needs));
        step.willBe = value;
        return step;
    };
    Plan plan;
    plan.steps = {
        MakeStep(Phase::Datasets, Action::Create, "", {"zfs", "create", "tank/a b"}),
        set("x\t\n", {0}),
        MakeStep(Phase::Limits, Action::Set, "", {"zfs", "set", "quota=1", "tank/a b"}, {1}),
        MakeStep(Phase::Mounts, Action::Mount, "mounted", {"zfs", "mount", "tank/a b"}, {2}),
        MakeStep(Phase::Mounts, Action::LoadKey, "", {"zfs", "load-key", "tank/k"}),
        MakeStep(Phase::Mounts, Action::Share, "", {"zfs", "share", "tank/k"}, {4, 1}),
    };
    plan.steps[3].willBe = "yes";
    plan.steps[4].asksFor = "the key";
    const std::string create = commands::env + "zfs create 'tank/a b'";
    const std::string setting = commands::env + "zfs set 'u:it'\\''s=x\t\n' 'tank/a b'";
    const std::string get = commands::env + "zfs get -Hp -o value,source ";
    const std::string mounted = get + "'mounted' 'tank/a b'";
    const std::string reading = get + "'u:it'\\''s' 'tank/a b'";
    const auto failure = [](Kind kind) {
        return [kind](const std::string& command) -> std::string {
            throw CCommandFailure(command, kind, 1, "why", "");
        };
    };
    struct Case {
        const char* name;
        std::string command; ///< that is answered in another way
        zfslib::CommandExecutor answer;
        ApplyOptions::Part part;
        std::string outcomes; ///< a letter for each step that is reported
        std::string because;  ///< of the skipped ones
        std::string text;     ///< in the first report that has one
    };
    const auto text = [](const char* answer) {
        return [answer](const std::string&) { return std::string(answer); };
    };
    const auto refuse = [](const std::string&) -> std::string { throw std::runtime_error("no"); };
    using Part = ApplyOptions::Part;
    const std::vector<Case> cases = {
        {"all is well", "", {}, Part::All, "DDDDPS", "4", "the key"},
        {"before the data", "", {}, Part::BeforeData, "DD", "", ""},
        {"after the data", create, failure(Kind::TimeOut), Part::AfterData, "DDPS", "4", "the key"},
        {"refused", create, failure(Kind::ExitStatus), Part::All, "FSSSPS", "0004", "why"},
        {"refused otherwise", create, refuse, Part::All, "FSSSPS", "0004", "no"},
        {"not reached", create, failure(Kind::NotConnected), Part::BeforeData, "FS", "0", "why"},
        {"time-out", create, failure(Kind::TimeOut), Part::All, "USSSPS", "0004", "why"},
        {"connection", setting, failure(Kind::ConnectionLost), Part::All, "DUSSPS", "114", "why"},
        {"another value", reading, text("x\t\tlocal\n"), Part::All, "DRSSPS", "114", "[x\t]"},
        {"one newline less", reading, text("x\t\tlocal\n"), Part::BeforeData, "DR", "", "local"},
        {"cannot be asked", reading, failure(Kind::ExitStatus), Part::BeforeData, "DD", "",
         "not read"},
        {"not mounted", mounted, text("no\t-\n"), Part::AfterData, "DRPS", "4", "[no]"},
        {"nobody knows", reading, failure(Kind::Signal), Part::BeforeData, "DU", "", "not read"},
    };
    for (const Case& test : cases) {
        SCOPED_TRACE(test.name);
        const zfslib::CommandExecutor executor = [&](const std::string& command) -> std::string {
            if (command == test.command)
                return test.answer(command);
            if (command == reading)
                return "x\t\n\tlocal\n";
            return command == mounted ? "yes\t-\n" : "";
        };
        std::string outcomes, because, said;
        ApplyOptions options;
        options.part = test.part;
        options.report = [&](const StepReport& report) {
            outcomes += letters[static_cast<std::size_t>(report.outcome)];
            because += report.because ? std::to_string(*report.because) : "";
            said = said.empty() ? report.text : said;
            EXPECT_EQ(report.reported, outcomes.size());
            EXPECT_EQ(report.count, test.outcomes.size());
        };
        const ApplyResult result = Apply(plan, executor, options);
        EXPECT_EQ(outcomes, test.outcomes);
        EXPECT_EQ(because, test.because);
        EXPECT_THAT(said, HasSubstr(test.text));
        EXPECT_EQ(result.IsComplete(), test.outcomes.find_first_not_of('D') == std::string::npos);
    }
}

TEST(Apply, EndsWithTheHostAndWithItsCallback) {
    Plan plan;
    plan.steps = {MakeStep(Phase::Datasets, Action::Create, "", {"zfs", "create", "tank/a"}),
                  MakeStep(Phase::Datasets, Action::Create, "", {"zfs", "create", "tank/b"})};
    int runs = 0;
    const zfslib::CommandExecutor stopped = [&](const std::string& command) -> std::string {
        ++runs;
        throw CCommandFailure(command, CCommandFailure::Kind::Stopped, 0, "", "");
    };
    EXPECT_THROW(Apply(plan, stopped), CCommandFailure);
    ApplyOptions options;
    options.report = [](const StepReport&) { throw std::logic_error("enough"); };
    EXPECT_EQ(ErrorOf([&] {
                  Apply(
                      plan, [&](const std::string&) { return ++runs, ""; }, options);
              }),
              "enough");
    EXPECT_EQ(runs, 2);
    plan.steps[0].action = Action::Set;
    plan.steps[0].property = *(plan.steps[0].willBe = "quota");
    EXPECT_THROW(Apply(plan,
                       [&](const std::string& command) {
                           return command.find(" get ") == std::string::npos ? ""
                                                                             : stopped(command);
                       }),
                 CCommandFailure);
}

} // namespace
