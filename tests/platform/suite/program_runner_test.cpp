#include "platform/program_runner.h"

#include <csignal>
#include <string>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "files.h"

namespace {

class ProgramRunner : public testing::Test {
  protected:
    void SetUp() override {
        path = support::directory() + "/runner.out";
        out = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        ASSERT_GE(out, 0);
    }
    void TearDown() override {
        close(out);
    }
    std::string path;
    int out = -1;
};

TEST_F(ProgramRunner, ReturnsTheWaitStatus) {
    int status = execute_program_and_wait_redirect(-1, -1, -1, "/bin/sh", "-c",
                                                   "exit 3", nullptr);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 3);
    status = execute_program_and_wait_redirect(-1, -1, -1, "/bin/sh", "-c",
                                               "kill -TERM $$", nullptr);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGTERM);
}

TEST_F(ProgramRunner, AMissingProgramIsNegative) {
    EXPECT_LT(execute_program_and_wait_redirect(-1, -1, -1, "/no/such/program",
                                                nullptr),
              0);
}

TEST_F(ProgramRunner, ArgumentsReachNoShell) {
    execute_program_and_wait_redirect(-1, out, -1, "/bin/sh", "-c",
                                      "printf '<%s>' \"$@\"", "sh", "a b",
                                      "$HOME;`id`", "", "\"", nullptr);
    EXPECT_EQ(support::read_file(path), "<a b><$HOME;`id`><><\">");
}

TEST_F(ProgramRunner, RedirectsEachStream) {
    const std::string input = support::directory() + "/runner.in";
    support::write_file(input, "from the file");
    const int in = open(input.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(execute_program_and_wait_redirect(in, out, out, "/bin/sh", "-c",
                                                "cat; echo ' and error' >&2",
                                                nullptr),
              0);
    close(in);
    EXPECT_EQ(support::read_file(path), "from the file and error\n");
}

TEST_F(ProgramRunner, LeavesTheCallersStreams) {
    const int before = dup(STDOUT_FILENO);
    ASSERT_GE(before, 0);
    fflush(stdout);
    ASSERT_EQ(dup2(out, STDOUT_FILENO), STDOUT_FILENO);
    const int status = execute_program_and_wait_redirect(
        -1, -1, -1, "/bin/echo", "to the caller's", nullptr);
    dup2(before, STDOUT_FILENO);
    close(before);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(support::read_file(path), "to the caller's\n");
}

} // namespace
