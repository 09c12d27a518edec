#include "platform/program_runner.h"

#include <cerrno>
#include <csignal>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "host/base/spawn.h"
#include "tests/host/support.h"

namespace {

class Runner : public testing::Test {
  protected:
    void SetUp() override {
        path = support::directory() + "/runner.out";
        out = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        ASSERT_GE(out, 0);
    }
    void TearDown() override {
        close(out);
    }
    std::string output() {
        return support::read_file(path);
    }
    std::string path;
    int out = -1;
};

TEST_F(Runner, ReturnsTheWaitStatus) {
    int status = execute_program_and_wait_redirect(-1, -1, -1, "/bin/sh", "-c",
                                                   "exit 3", nullptr);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);
    status = execute_program_and_wait_redirect(-1, -1, -1, "/bin/sh", "-c",
                                               "kill -TERM $$", nullptr);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

TEST_F(Runner, TheEndIsToldWhereSigchldWasIgnored) {
    auto *before = signal(SIGCHLD, SIG_IGN);
    int status = execute_program_and_wait_redirect(-1, -1, -1, "/bin/sh", "-c",
                                                   "exit 3", nullptr);
    signal(SIGCHLD, before);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);
}

TEST_F(Runner, AMissingProgramIsAnError) {
    EXPECT_EQ(execute_program_and_wait_redirect(-1, -1, -1, "/no/such/program",
                                                nullptr),
              -1);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(Runner, ArgumentsArriveAsTheyAre) {
    execute_program_and_wait_redirect(-1, out, -1, "/bin/sh", "-c",
                                      "printf '<%s>' \"$@\"", "sh", "a b",
                                      "$HOME;`id`", "", "\"", nullptr);
    EXPECT_EQ(output(), "<a b><$HOME;`id`><><\">");
}

TEST_F(Runner, RedirectsEachStream) {
    std::string input = support::directory() + "/runner.in";
    support::write_file(input, "from the file");
    int in = open(input.c_str(), O_RDONLY);
    EXPECT_EQ(execute_program_and_wait_redirect(in, out, out, "/bin/sh", "-c",
                                                "cat; echo ' and error' >&2",
                                                nullptr),
              0);
    EXPECT_EQ(output(), "from the file and error\n");
    close(in);
}

TEST_F(Runner, OnlyTheThreeStreamsAreOpen) {
    int leak = open("/dev/null", O_RDONLY); // without close-on-exec
    ASSERT_GE(leak, 3);
    execute_program_and_wait_redirect(-1, out, -1, "/bin/sh", "-c",
                                      "for f in /proc/$$/fd/*; do "
                                      "n=${f##*/}; [ $n -gt 2 ] && "
                                      "[ -e $f ] && echo $n; done; :",
                                      nullptr);
    // A shell keeps its own script descriptor above 9, if any.
    EXPECT_EQ(output(), "");
    close(leak);
}

TEST_F(Runner, SignalsAreAsInAFreshProcess) {
    struct sigaction ignore = {}, old = {};
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &ignore, &old);
    sigset_t blocked, before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    sigprocmask(SIG_BLOCK, &blocked, &before);
    execute_program_and_wait_redirect(-1, out, -1, "/bin/grep", "-E",
                                      "^Sig(Blk|Ign)", "/proc/self/status",
                                      nullptr);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    sigaction(SIGPIPE, &old, nullptr);
    unsigned long long mask = 1, ignored = ~0ull;
    ASSERT_EQ(
        sscanf(output().c_str(), "SigBlk: %llx SigIgn: %llx", &mask, &ignored),
        2)
        << output();
    EXPECT_EQ(mask, 0u);
    // Signals 32 and 33 are the C library's own.
    EXPECT_EQ(ignored & 0xffffffff7fffffffull & ~(1ull << 32), 0u);
}

void nothing(int) {}

TEST_F(Runner, ASignalDoesNotEndTheWait) {
    struct sigaction action = {}, old = {};
    action.sa_handler = nothing; // without SA_RESTART
    sigaction(SIGALRM, &action, &old);
    alarm(1);
    int status = execute_program_and_wait_redirect(-1, -1, -1, "/bin/sh", "-c",
                                                   "sleep 2; exit 5", nullptr);
    EXPECT_EQ(status, 5 << 8);
    sigaction(SIGALRM, &old, nullptr);
}

TEST_F(Runner, StandardStreamsMayBeGivenInEachOthersPlace) {
    // The caller's 0 as the program's output, with its input from elsewhere.
    int saved = dup(0);
    ASSERT_GE(saved, 0);
    ASSERT_EQ(dup2(out, 0), 0);
    int in = open("/dev/null", O_RDONLY);
    EXPECT_EQ(execute_program_and_wait_redirect(in, 0, -1, "/bin/echo",
                                                "swapped", nullptr),
              0);
    dup2(saved, 0);
    close(saved);
    close(in);
    EXPECT_EQ(output(), "swapped\n");
}

TEST_F(Runner, FindsProgramsBelowTheRoot) {
    int status = execute_program_and_wait_redirect(
        -1, out, -1, "/brim/bin/qsh", "-c", "show running-config", nullptr);
    EXPECT_EQ(status, 0);
}

TEST(SpawnLimit, EndsAProgramThatTakesTooLong) {
    xfhost::SpawnRequest request;
    request.path = "/bin/sleep";
    request.arguments = {"30"};
    pid_t pid = -1;
    ASSERT_EQ(xfhost::spawn_program(request, pid), 0);
    int status = 0;
    EXPECT_EQ(xfhost::wait_with_limit(pid, 1, status), ETIMEDOUT);
    EXPECT_EQ(kill(pid, 0), -1);
    EXPECT_EQ(errno, ESRCH);
}

} // namespace
