#include "host/agent/debug_log.h"

#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "host/base/log.h"
#include "tests/host/support.h"

using namespace xfhost;

namespace {

std::string logged;

void keep(int, const char *text) {
    logged = text;
}

class DebugLog : public testing::Test {
  protected:
    void SetUp() override {
        logged.clear();
        set_log_sink(keep);
        unlink(path.c_str());
    }
    void TearDown() override {
        unlink(path.c_str());
        set_log_sink(nullptr);
    }
    void refused() const {
        EXPECT_FALSE(debug_log_make_private());
        EXPECT_EQ(logged.rfind("debug log " + path + ": ", 0), 0u) << logged;
        EXPECT_NE(logged.find("; it stays off"), std::string::npos) << logged;
    }
    const std::string path = debug_log_path();
    const std::string other = support::directory() + "/other";
};

TEST_F(DebugLog, HasTheIdOfThisProcessInItsName) {
    EXPECT_EQ(path, "/tmp/cfg_snmp_debug.log." + std::to_string(getpid()));
}

TEST_F(DebugLog, IsMadeForItsOwnerAlone) {
    const mode_t mask = umask(0);
    EXPECT_TRUE(debug_log_make_private());
    umask(mask);
    EXPECT_EQ(support::mode_of(path), 0600u);
    EXPECT_EQ(logged, "");
}

TEST_F(DebugLog, AnOwnOneIsKeptAndClosedToOthers) {
    support::write_file(path, "earlier\n");
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    EXPECT_TRUE(debug_log_make_private());
    EXPECT_EQ(support::mode_of(path), 0600u);
    EXPECT_EQ(support::read_file(path), "earlier\n");
}

TEST_F(DebugLog, ALinkIsRefused) {
    ASSERT_EQ(symlink(other.c_str(), path.c_str()), 0);
    refused();
    EXPECT_FALSE(support::exists(other));
}

TEST_F(DebugLog, AFileWithAnotherNameIsRefused) {
    // In the same directory: a hard link does not cross file systems.
    const std::string elsewhere = path + ".elsewhere";
    support::write_file(elsewhere, "precious");
    ASSERT_EQ(chmod(elsewhere.c_str(), 0640), 0);
    ASSERT_EQ(link(elsewhere.c_str(), path.c_str()), 0);
    refused();
    EXPECT_EQ(support::mode_of(elsewhere), 0640u);
    unlink(elsewhere.c_str());
}

TEST_F(DebugLog, AFifoIsRefusedAtOnce) {
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    refused();
}

TEST_F(DebugLog, SomebodyElsesFileIsRefused) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can give a file away";
    support::write_file(path, "");
    ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
    refused();
    EXPECT_NE(logged.find("Operation not permitted"), std::string::npos);
}

} // namespace
