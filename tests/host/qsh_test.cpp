#include "platform/qsh.h"

#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "platform/procd.h"
#include "platform/program_runner.h"
#include "tests/host/support.h"

namespace {

class Qsh : public testing::Test {
  protected:
    void SetUp() override {
        std::filesystem::remove_all(state());
        ASSERT_EQ(mkdir(state().c_str(), 0700), 0);
        std::filesystem::remove(results());
    }
    static std::string state() {
        return support::directory() + "/state";
    }
    static std::string results() {
        return support::directory() + "/results.txt";
    }
    static std::string running() {
        return support::read_file(state() + "/running-config");
    }
    // As an older version has left it.
    void store_running(const std::string &text) {
        std::filesystem::remove(state() + "/running-config.sum");
        damage_running(text);
    }
    void damage_running(const std::string &text) {
        support::write_file(state() + "/running-config", text);
        chmod((state() + "/running-config").c_str(), 0600);
    }
    // Runs `qsh -c command`; its output goes to `output`.
    int run(const char *command, std::string &output) {
        std::string path = support::directory() + "/qsh.out";
        int out = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        int null = open("/dev/null", O_WRONLY);
        int status = execute_program_and_wait_redirect(
            -1, out, null, "/brim/bin/qsh", "-c", command, nullptr);
        close(out);
        close(null);
        output = support::read_file(path);
        return WEXITSTATUS(status);
    }
    int apply(const std::string &text) {
        std::string path = support::directory() + "/new.cfg";
        support::write_file(path, text);
        return apply_file(path);
    }
    int apply_file(const std::string &path) {
        qsh_cfg_file_request request = {};
        strncpy(request.cfg_file, path.c_str(), sizeof request.cfg_file - 1);
        strncpy(request.out_file, results().c_str(),
                sizeof request.out_file - 1);
        return qsh_execute_cfg_file2(&request);
    }
};

TEST_F(Qsh, ShowsTheRunningConfigurationOctetForOctet) {
    std::string text = "hostname a\n\x01\xff no newline at the end";
    store_running(text);
    std::string output;
    EXPECT_EQ(run("show running-config", output), 0);
    EXPECT_EQ(output, text);
}

TEST_F(Qsh, ANewSwitchHasAnEmptyConfiguration) {
    std::string output;
    EXPECT_EQ(run("show running-config", output), 0);
    EXPECT_EQ(output, "");
}

TEST_F(Qsh, ShowsTheStartupConfiguration) {
    std::string output;
    EXPECT_NE(run("show startup-config", output), 0);
    std::string path = support::directory() + "/start.cfg";
    support::write_file(path, "hostname kept\n");
    ASSERT_EQ(procd_cli_write_ascii_cfg(nullptr, path.c_str()), 0);
    EXPECT_EQ(run("show startup-config", output), 0);
    EXPECT_EQ(output, "hostname kept\n");
}

TEST_F(Qsh, SavesTheRunningConfiguration) {
    std::string output;
    store_running("hostname a\n\xff");
    EXPECT_EQ(run("copy running-config startup-config", output), 0);
    EXPECT_EQ(output, "");
    EXPECT_EQ(support::read_file(state() + "/startup/system.cfg"),
              "hostname a\n\xff");
}

TEST_F(Qsh, SaysThatItCouldNotSave) {
    std::string output;
    store_running("hostname a\n");
    std::filesystem::remove_all(state() + "/startup");
    ASSERT_EQ(mkdir((state() + "/startup").c_str(), 0700), 0);
    ASSERT_EQ(mkdir((state() + "/startup/system.cfg").c_str(), 0700), 0);
    EXPECT_NE(run("copy running-config startup-config", output), 0);
    ASSERT_EQ(rmdir((state() + "/startup/system.cfg").c_str()), 0);
}

TEST_F(Qsh, RefusesOtherCommands) {
    std::string output;
    EXPECT_NE(run("reload", output), 0);
    EXPECT_NE(run("show running-config ", output), 0);
    EXPECT_EQ(output, "");
}

TEST_F(Qsh, DoesNotShowSomebodyElsesFile) {
    support::write_file(support::directory() + "/secret", "secret");
    ASSERT_EQ(symlink((support::directory() + "/secret").c_str(),
                      (state() + "/running-config").c_str()),
              0);
    std::string output;
    EXPECT_NE(run("show running-config", output), 0);
    EXPECT_EQ(output, "");
}

TEST_F(Qsh, AppliesAFile) {
    store_running("hostname old\nvlan 3\n");
    EXPECT_EQ(apply("! from the server\nhostname new\nno vlan 3\n"), 0);
    EXPECT_EQ(running(), "hostname new\n");
    EXPECT_EQ(support::read_file(results()), "");
    EXPECT_EQ(support::mode_of(state() + "/running-config"), 0600u);
}

TEST_F(Qsh, SomeLinesRefused) {
    EXPECT_EQ(apply("hostname good\nbogus \"x\x02\"\n"), 0x40540001);
    EXPECT_EQ(running(), "hostname good\n");
    EXPECT_EQ(support::read_file(results()),
              "line 2: not printable ASCII: \"bogus \\\"x\\x02\\\"\"\n");
}

TEST_F(Qsh, NoConfigurationInTheFile) {
    store_running("hostname a\n");
    EXPECT_EQ(apply(""), 0x40540002);
    EXPECT_EQ(apply("! only\n\n"), 0x40540002);
    EXPECT_EQ(running(), "hostname a\n");
}

TEST_F(Qsh, TooManyLinesRefused) {
    std::string text;
    for (int i = 0; i < 200; i++)
        text += "bad\n";
    EXPECT_EQ(apply("hostname a\n" + text), 0x40540003);
    EXPECT_EQ(running(), "hostname a\n");
    EXPECT_NE(support::read_file(results()).find("stopped after 100"),
              std::string::npos);
}

TEST_F(Qsh, AMissingFileIsAnotherError) {
    int result = apply_file(support::directory() + "/nowhere.cfg");
    EXPECT_NE(result, 0);
    EXPECT_GT(result ^ 0x40540000, 3);
}

// A directory with files that a copy has staged, as the working directory.
class Staged : public Qsh {
  protected:
    void SetUp() override {
        Qsh::SetUp();
        before = std::filesystem::current_path();
        std::filesystem::remove_all(here);
        ASSERT_EQ(mkdir(here.c_str(), 0700), 0);
        std::filesystem::current_path(here);
    }
    void TearDown() override {
        std::filesystem::current_path(before);
    }
    // As the module names it: cut where its field ends.
    int apply_staged(const std::string &name) {
        return apply_file(here + "/" + name);
    }
    const std::string here = support::directory() + "/here";
    std::filesystem::path before;
};

TEST_F(Staged, NamesOfEveryLength) {
    for (size_t length = 1; length <= 255; length++) {
        std::string name(length, 'n');
        std::string line = "vlan " + std::to_string(length) + "\n";
        support::write_file(name, line);
        EXPECT_EQ(apply_staged(name), 0) << length;
        EXPECT_NE(running().find(line), std::string::npos) << length;
        std::filesystem::remove(name);
    }
}

TEST_F(Staged, ACutPathThatMayMeanTwoFiles) {
    support::write_file(std::string(200, 'n'), "hostname one\n");
    support::write_file(std::string(201, 'n'), "hostname two\n");
    EXPECT_GT(apply_staged(std::string(200, 'n')) ^ 0x40540000, 3);
    EXPECT_EQ(running(), "(missing)");
}

TEST_F(Staged, ACutPathThatLeadsNowhere) {
    EXPECT_GT(apply_staged(std::string(200, 'n')) ^ 0x40540000, 3);
    support::write_file(std::string(200, 'm'), "hostname one\n");
    EXPECT_GT(apply_staged(std::string(200, 'n')) ^ 0x40540000, 3);
    ASSERT_EQ(
        symlink(std::string(200, 'm').c_str(), std::string(200, 'n').c_str()),
        0);
    EXPECT_GT(apply_staged(std::string(200, 'n')) ^ 0x40540000, 3);
    EXPECT_EQ(running(), "(missing)");
}

TEST_F(Qsh, TheResultsFileLeadsNowhere) {
    std::string victim = support::directory() + "/victim";
    support::write_file(victim, "precious");
    ASSERT_EQ(symlink(victim.c_str(), results().c_str()), 0);
    EXPECT_EQ(apply("bad\n"), 0x40540001);
    EXPECT_EQ(support::read_file(victim), "precious");
    EXPECT_EQ(support::read_file(results()),
              "line 1: unknown command: \"bad\"\n");
    EXPECT_EQ(support::mode_of(results()), 0600u);
}

TEST_F(Qsh, AShellThatCannotBeRun) {
    std::string saved = getenv("XF_STATE_DIRECTORY");
    setenv("XF_STATE_DIRECTORY", "relative", 1); // the shell refuses to start
    int result = apply("hostname a\n");
    setenv("XF_STATE_DIRECTORY", saved.c_str(), 1);
    EXPECT_GT(result ^ 0x40540000, 3);
    EXPECT_EQ(running(), "(missing)");
}

// Whether the running configuration is taken for whole.
class DamagedRunning : public Qsh {
  protected:
    void SetUp() override {
        Qsh::SetUp();
        EXPECT_EQ(apply("hostname first\nvlan 7\n"), 0);
        std::string output;
        EXPECT_EQ(run("copy running-config startup-config", output), 0);
    }
    static std::string startup() {
        return support::read_file(state() + "/startup/system.cfg");
    }
    void expect_refused() {
        std::string output, before = running();
        EXPECT_EQ(run("show running-config", output), 74);
        EXPECT_EQ(output, "");
        EXPECT_EQ(run("copy running-config startup-config", output), 74);
        EXPECT_EQ(startup(), "hostname first\nvlan 7\n");
        EXPECT_EQ(apply("vlan 8\n"), 0x40540010);
        EXPECT_EQ(running(), before);
    }
    void expect_whole() {
        std::string output;
        EXPECT_EQ(run("show running-config", output), 0);
        EXPECT_EQ(output, running());
    }
};

TEST_F(DamagedRunning, CutOff) {
    damage_running("hostname first\n");
    expect_refused();
}

TEST_F(DamagedRunning, Emptied) {
    damage_running("");
    expect_refused();
}

TEST_F(DamagedRunning, OneOctetChanged) {
    damage_running("hostname first\nvlan 9\n");
    expect_refused();
}

TEST_F(DamagedRunning, Gone) {
    std::filesystem::remove(state() + "/running-config");
    expect_refused();
}

TEST_F(DamagedRunning, IsTakenAsItIsOnDemand) {
    damage_running("hostname first\n");
    std::string output;
    EXPECT_EQ(run("accept running-config", output), 0);
    expect_whole();
    EXPECT_EQ(apply("vlan 8\n"), 0);
    EXPECT_EQ(running(), "hostname first\nvlan 8\n");
    damage_running("hostname first\n");
    expect_refused();
}

TEST_F(DamagedRunning, OfAnOlderVersionIsWholeUntilTheNextOneIsMade) {
    store_running("");
    expect_whole();
    EXPECT_EQ(apply("vlan 8\n"), 0);
    expect_whole();
    damage_running("");
    expect_refused();
}

// Where a crash can stop a writer: both sums are there, the file is one of the
// two.
TEST_F(DamagedRunning, AWriterThatDiedLeavesAWholeOne) {
    std::string sum = state() + "/running-config.sum";
    std::string old_text = running(), old_sum = support::read_file(sum);
    EXPECT_EQ(apply("vlan 8\n"), 0);
    std::string new_text = running(), new_sum = support::read_file(sum);
    EXPECT_EQ(new_sum.find(old_sum), std::string::npos);
    support::write_file(sum, old_sum + new_sum);
    expect_whole();
    damage_running(old_text);
    expect_whole();
    damage_running(old_text.substr(0, 5));
    expect_refused();
    damage_running(new_text);
    EXPECT_EQ(apply("vlan 9\n"), 0);
    damage_running(old_text);
    expect_refused();
}

TEST_F(DamagedRunning, OnlyItsSumWasWrittenBeforeTheFirstOne) {
    std::string sum = state() + "/running-config.sum";
    support::write_file(sum, "none\n" + support::read_file(sum));
    std::filesystem::remove(state() + "/running-config");
    std::string output;
    EXPECT_EQ(run("show running-config", output), 0);
    EXPECT_EQ(output, "");
    damage_running("");
    expect_refused();
}

TEST_F(Qsh, StartupConfigurationIsKeptAsItIs) {
    std::string text(100000, 'x');
    text[5] = 0;
    std::string path = support::directory() + "/start.cfg";
    support::write_file(path, text);
    ASSERT_EQ(procd_cli_write_ascii_cfg(nullptr, path.c_str()), 0);
    std::string directory = procd_cli_dir_get(nullptr, 2);
    EXPECT_EQ(directory, state() + "/startup");
    EXPECT_EQ(support::read_file(directory + "/system.cfg"), text);
    EXPECT_EQ(support::mode_of(directory), 0700u);
    // A file that cannot be read leaves the old one.
    EXPECT_NE(procd_cli_write_ascii_cfg(nullptr, "/no/such/file"), 0);
    EXPECT_EQ(support::read_file(directory + "/system.cfg"), text);
    EXPECT_STREQ(procd_cli_dir_get(nullptr, 1), "");
}

TEST_F(Qsh, TwoWritersDoNotLoseLines) {
    std::vector<pid_t> children;
    for (int i = 1; i <= 8; i++) {
        pid_t child = fork();
        if (child == 0) {
            std::string path =
                support::directory() + "/w" + std::to_string(i) + ".cfg";
            support::write_file(path, "vlan " + std::to_string(i) + "\n");
            qsh_cfg_file_request request = {};
            strncpy(request.cfg_file, path.c_str(),
                    sizeof request.cfg_file - 1);
            strncpy(request.out_file, (path + ".out").c_str(),
                    sizeof request.out_file - 1);
            _exit(qsh_execute_cfg_file2(&request) == 0 ? 0 : 1);
        }
        children.push_back(child);
    }
    for (pid_t child : children) {
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
    }
    std::string text = running();
    for (int i = 1; i <= 8; i++)
        EXPECT_NE(text.find("vlan " + std::to_string(i) + "\n"),
                  std::string::npos);
}

} // namespace
