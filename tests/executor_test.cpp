#include "posix/CSimpleCmdExec.h"
#include "zfstools/Executor.h"

#include <gmock/gmock.h>

using namespace zfslib;
using posix::CCommandFailure;
using testing::ThrowsMessage;

namespace {

TEST(Executors, WordsAndJoining) {
    const struct {
        const char *name, *command, *expected;
    } rows[] = {
        {"words", "  printf   [%s] list\t-H \n\v\f\r", "[list][-H]"},
        {"no quoting", "printf [%s] 'a b'", "['a][b']"},
        {"nothing", "true", ""},
        {"second text only", "echo out", "out\n"},
        {"first text only", "sh -c printf${IFS}err>&2", "\nerr"},
        {"both", "sh -c printf${IFS}out;printf${IFS}err>&2", "out\nerr"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(Executors::ChildProcessExecute(row.command), row.expected) << row.name;
    for (const char* const empty : {"", "   ", "\t\n"})
        EXPECT_THAT([&] { Executors::ChildProcessExecute(empty); },
                    ThrowsMessage<std::runtime_error>("Command is empty. "));
    EXPECT_THROW(Executors::ChildProcessExecute("false"), CCommandFailure);
}

TEST(Executors, StandardErrorIsKeptApart) {
    std::string told;
    const auto tell = [&told](const auto& command, const auto& text) { told += command + text; };
    const CommandExecutor executor = Executors::ChildExecutor({0, tell});
    EXPECT_EQ(executor("echo  out"), "out\n");
    EXPECT_EQ(executor("sh -c echo${IFS}in;echo${IFS}err>&2"), "in\n");
    EXPECT_THROW(executor("sh -c echo${IFS}err>&2;false"), CCommandFailure);
    EXPECT_EQ(Executors::ChildExecutor({0, tell, true})("echo 'a  b'; echo x >&2"), "a  b\n");
    EXPECT_EQ(told, "sh -c echo${IFS}in;echo${IFS}err>&2err\necho 'a  b'; echo x >&2x\n");
    EXPECT_EQ(Executors::ChildExecutor({})("sh -c echo${IFS}err>&2"), "");
}

TEST(Executors, TimedOnes) {
    EXPECT_EQ(Executors::TimedChildProcessExecutor(600)("echo $HOME"), "$HOME\n");
    EXPECT_EQ(Executors::TimedShellExecutor(600)("(echo a; echo b >&2) 2>&1; echo c >&2"),
              "a\nb\n");
    for (const CommandExecutor& executor :
         {Executors::TimedChildProcessExecutor(1), Executors::TimedShellExecutor(1),
          Executors::ChildExecutor({1, {}, false})})
        EXPECT_THAT([&] { executor("sleep 600"); },
                    ThrowsMessage<CCommandFailure>("Command [sleep 600] failed: timed out after "
                                                   "1 s, its outcome is unknown"));
}

TEST(Executors, Slots) {
    const struct {
        const char* name;
        CommandExecutor (*get)();
        void (*set)(CommandExecutor);
        const char* shellsAnswer;
    } rows[] = {
        {"df", Executors::GetDfExecutor, Executors::SetDfExecutor, "a\n"},
        {"zpool", Executors::GetZpoolExecutor, Executors::SetZpoolExecutor, "a\n"},
        {"process", Executors::GetProcessExecutor, Executors::SetProcessExecutor, "a;:\n"},
    };
    for (const auto& row : rows) {
        const CommandExecutor original = row.get();
        EXPECT_EQ(original("echo a;:"), row.shellsAnswer) << row.name;
        row.set([&row](const std::string& command) { return row.name + command; });
    }
    for (const auto& row : rows) {
        EXPECT_EQ(row.get()(" x"), row.name + std::string(" x"));
        row.set({});
        EXPECT_FALSE(row.get()) << row.name;
        EXPECT_THROW(row.get()("x"), std::bad_function_call) << row.name;
    }
    Executors::SetDfExecutor(&posix::CSimpleCmdExec::RunCommand);
    Executors::SetZpoolExecutor(&posix::CSimpleCmdExec::RunCommand);
    Executors::SetProcessExecutor(&Executors::ChildProcessExecute);
}

} // namespace
