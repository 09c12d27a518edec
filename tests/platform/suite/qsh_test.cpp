#include "platform/qsh.h"

#include <cstdio>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "files.h"
#include "platform/program_runner.h"
#include "suite.h"

namespace {

class Qsh : public testing::Test {
  protected:
    void SetUp() override {
        if (suite::options().accepted.empty())
            GTEST_SKIP() << "no --accepted line was named";
        configuration = support::directory() + "/qsh.cfg";
        results = support::directory() + "/qsh.results";
        unlink(configuration.c_str());
        unlink(results.c_str());
    }
    int apply() const {
        struct qsh_cfg_file_request request = {};
        snprintf(request.cfg_file, sizeof request.cfg_file, "%s",
                 configuration.c_str());
        snprintf(request.out_file, sizeof request.out_file, "%s",
                 results.c_str());
        return qsh_execute_cfg_file2(&request);
    }
    int apply(const std::string &text) const {
        support::write_file(configuration, text);
        return apply();
    }
    std::string configuration, results;
};

TEST_F(Qsh, AppliesWhatItKnowsAndShowsIt) {
    const std::string &line = suite::options().accepted;
    EXPECT_EQ(apply(line + "\n"), 0);
    const std::string path = support::directory() + "/shown";
    const int out =
        open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    EXPECT_EQ(execute_program_and_wait_redirect(-1, out, -1, "/brim/bin/qsh",
                                                "-c", "show running-config",
                                                nullptr),
              0);
    close(out);
    EXPECT_NE(support::read_file(path).find(line), std::string::npos)
        << support::read_file(path);
}

TEST_F(Qsh, SaysThatAFileHasNoConfiguration) {
    EXPECT_EQ(apply(""), QSH_ERR_CFG_EMPTY);
}

TEST_F(Qsh, SaysThatLinesWereRefusedAndWhich) {
    const std::string &line = suite::options().refused;
    if (line.empty())
        GTEST_SKIP() << "no --refused line was named";
    EXPECT_EQ(apply(line + "\n" + suite::options().accepted + "\n"),
              QSH_ERR_CFG_LINES_REFUSED);
    EXPECT_TRUE(support::exists(results));
    EXPECT_NE(support::read_file(results), "");
}

TEST_F(Qsh, AMissingFileIsAnErrorOfItsOwn) {
    const int result = apply();
    EXPECT_NE(result, 0);
    EXPECT_NE(result, QSH_ERR_CFG_EMPTY);
}

TEST(QshNews, AreOfNoConsequenceAndDoNotBlock) {
    ipcbus_handle handle = nullptr;
    ASSERT_GE(
        ipcbus_bind(IPCBUS_KIND_REQ_RESP, IPCBUS_SAP_ANY, &handle, "news"), 0);
    const double begun = suite::now();
    qsh_notify_cfg_update(handle, 1, 2, 3);
    qsh_notify_cfg_update(handle, 1, 1, 3);
    EXPECT_LT(suite::now() - begun, 5);
    ipcbus_unbind(handle, 0);
}

} // namespace
