// Programs under a time limit, and the words of ssh.
#include "host/procd/remote.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>

#include <sys/wait.h>

#include <gtest/gtest.h>

namespace {

using namespace xfhost;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

struct Outcome {
    int error, status = -1;
    std::string output;
    Clock::duration time;
};

Outcome run(const std::string &script, int from = 1, int seconds = 10,
            std::stop_token stop = {}, size_t limit = 1000000) {
    SpawnRequest request;
    request.path = "/bin/sh";
    request.arguments = {"-c", script};
    Outcome result;
    auto start = Clock::now();
    result.error = run_and_read(request, from, limit, seconds, stop,
                                result.output, result.status);
    result.time = Clock::now() - start;
    return result;
}

TEST(RunAndRead, ReadsOneOfTheOutputs) {
    EXPECT_EQ(run("echo out; echo err >&2").output, "out\n");
    EXPECT_EQ(run("echo out; echo err >&2", 2).output, "err\n");
    Outcome failed = run("cat; exit 7");
    EXPECT_EQ(failed.error, 0);
    EXPECT_EQ(WEXITSTATUS(failed.status), 7);
    EXPECT_EQ(run("yes | head -c 500000").output.size(), 500000u);
}

TEST(RunAndRead, EndsAtTheLimits) {
    Outcome late = run("exec sleep 20", 1, 1);
    EXPECT_EQ(late.error, ETIMEDOUT);
    EXPECT_LT(late.time, std::chrono::seconds(5));
    EXPECT_EQ(run("exec sleep 20 >&- 2>&-", 1, 1).error, ETIMEDOUT);
    EXPECT_EQ(run("exec yes", 1, 10, {}, 1000).error, EFBIG);
}

TEST(RunAndRead, StopsWhenAsked) {
    std::stop_source stop;
    std::jthread asker([&] {
        std::this_thread::sleep_for(milliseconds(200));
        stop.request_stop();
    });
    Outcome stopped = run("exec sleep 20", 1, 30, stop.get_token());
    EXPECT_EQ(stopped.error, ECANCELED);
    EXPECT_LT(stopped.time, std::chrono::seconds(5));
}

TEST(Ssh, NeverAsksAndKnowsItsServer) {
    Settings settings;
    settings.fabric_key_file = "/etc/keys/a key";
    settings.fabric_known_hosts = "/etc/100%";
    settings.fabric_connect_seconds = 3;
    settings.fabric_command = "save it";
    FabricSwitch to;
    to.address = "2001:db8::1";
    to.port = 2222;
    to.user = "admin";
    std::vector<std::string> arguments = ssh_arguments(settings, to);
    auto has = [&](const std::string &text) {
        return std::find(arguments.begin(), arguments.end(), text) !=
               arguments.end();
    };
    for (const char *option : {"BatchMode=yes", "StrictHostKeyChecking=yes",
                               "UserKnownHostsFile=\"/etc/100%%\"",
                               "IdentityFile=\"/etc/keys/a key\"",
                               "IdentitiesOnly=yes", "ConnectTimeout=3"})
        EXPECT_TRUE(has(option)) << option;
    std::vector<std::string> end(arguments.end() - 7, arguments.end());
    EXPECT_EQ(end, (std::vector<std::string>{"-p", "2222", "-l", "admin", "--",
                                             "2001:db8::1", "save it"}));
}

int exited(int code) {
    return code << 8;
}

TEST(Ssh, IsExplainedToAPerson) {
    EXPECT_EQ(explain_ssh(exited(0), "a warning"), "");
    EXPECT_EQ(explain_ssh(exited(255),
                          "ssh: connect to host 192.0.2.1 port 22: "
                          "Connection refused\r\n"),
              "The switch cannot be reached: ssh: connect to host 192.0.2.1 "
              "port 22: Connection refused");
    EXPECT_EQ(explain_ssh(exited(255), "a@b: Permission denied (publickey)."),
              "The switch refused the key of this switch.");
    EXPECT_EQ(explain_ssh(exited(255), "Host key verification failed.\r\n")
                  .substr(0, 31),
              "The switch is not the known one");
    EXPECT_EQ(explain_ssh(exited(127), "sh: 1: qsh: not found\n"),
              "The switch could not run the command to save: "
              "sh: 1: qsh: not found");
    EXPECT_EQ(explain_ssh(exited(74), "qsh: x: No space left on device\n")
                  .substr(0, 30),
              "The disk of the switch is full");
    EXPECT_EQ(explain_ssh(exited(74), "first\nlast \n\n"),
              "The switch could not save: last");
    EXPECT_EQ(explain_ssh(exited(3), ""),
              "The switch could not save: exit status 3");
    EXPECT_NE(explain_ssh(9, ""), ""); // killed
}

TEST(Ssh, AProgramThatIsNotThereIsAFailure) {
    Settings settings;
    settings.ssh_program = "/no/such/ssh";
    FabricSwitch to;
    to.address = "127.0.0.1";
    EXPECT_NE(save_on_switch(settings, to, {}), "");
}

} // namespace
