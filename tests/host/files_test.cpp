#include "host/base/files.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/host/support.h"

using namespace xfhost;

namespace {

class Files : public testing::Test {
  protected:
    void SetUp() override {
        path = support::directory() + "/files";
        directory = open_private_directory(path);
        ASSERT_TRUE(directory);
    }
    std::string path;
    Fd directory;
};

TEST_F(Files, DirectoriesAndFilesArePrivate) {
    EXPECT_EQ(support::mode_of(path), 0700u);
    Fd file = open_private_file(directory.get(), "one", O_WRONLY | O_CREAT);
    ASSERT_TRUE(file);
    EXPECT_EQ(support::mode_of(path + "/one"), 0600u);
}

TEST_F(Files, MissingParentsAreMade) {
    EXPECT_TRUE(open_private_directory(path + "/a/b/c"));
    EXPECT_EQ(support::mode_of(path + "/a/b"), 0700u);
}

TEST_F(Files, ALinkIsNotFollowed) {
    support::write_file(path + "/target", "precious");
    ASSERT_EQ(symlink("target", (path + "/link").c_str()), 0);
    EXPECT_FALSE(open_private_file(directory.get(), "link", O_WRONLY));
    EXPECT_EQ(errno, ELOOP);
    ASSERT_EQ(symlink("/", (path + "/dirlink").c_str()), 0);
    EXPECT_FALSE(open_private_directory(path + "/dirlink"));
}

TEST_F(Files, WhatOthersCanWriteIsRefused) {
    mkdir((path + "/open").c_str(), 0700);
    chmod((path + "/open").c_str(), 0777);
    EXPECT_FALSE(open_private_directory(path + "/open"));
    EXPECT_EQ(errno, EPERM);
    support::write_file(path + "/shared", "");
    chmod((path + "/shared").c_str(), 0666);
    EXPECT_FALSE(open_private_file(directory.get(), "shared", O_RDONLY));
    EXPECT_EQ(errno, EPERM);
}

TEST_F(Files, SomebodyElsesFileIsRefused) {
    if (geteuid() != 0)
        GTEST_SKIP() << "only root can make files of other users";
    support::write_file(path + "/theirs", "");
    chmod((path + "/theirs").c_str(), 0600);
    ASSERT_EQ(chown((path + "/theirs").c_str(), 12345, 12345), 0);
    EXPECT_FALSE(open_private_file(directory.get(), "theirs", O_RDONLY));
    EXPECT_EQ(errno, EPERM);
}

TEST_F(Files, AFifoDoesNotStopTheCaller) {
    ASSERT_EQ(mkfifo((path + "/fifo").c_str(), 0600), 0);
    EXPECT_FALSE(open_private_file(directory.get(), "fifo", O_RDONLY));
}

TEST_F(Files, ReplaceLeavesOldOrNew) {
    ASSERT_TRUE(replace_durably(directory.get(), "config", "old"));
    ASSERT_TRUE(replace_durably(directory.get(), "config", "new"));
    EXPECT_EQ(support::read_file(path + "/config"), "new");
    EXPECT_EQ(support::mode_of(path + "/config"), 0600u);
    EXPECT_FALSE(support::exists(path + "/.config.new"));
}

TEST_F(Files, ReplaceTakesTheLinksPlace) {
    support::write_file(path + "/victim", "precious");
    ASSERT_EQ(symlink("victim", (path + "/result").c_str()), 0);
    ASSERT_TRUE(replace_durably(directory.get(), "result", "text"));
    EXPECT_EQ(support::read_file(path + "/victim"), "precious");
    EXPECT_EQ(support::read_file(path + "/result"), "text");
}

TEST_F(Files, AFailedReplaceLeavesNothingBehind) {
    ASSERT_EQ(mkdir((path + "/taken").c_str(), 0700), 0);
    EXPECT_FALSE(replace_durably(directory.get(), "taken", "text"));
    EXPECT_EQ(errno, EISDIR);
    EXPECT_FALSE(support::exists(path + "/.taken.new"));
}

// A directory that was opened for its path only cannot be synced.
TEST_F(Files, WhatMayNotLastIsTakenBack) {
    Fd unsynced(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    ASSERT_TRUE(unsynced);
    EXPECT_FALSE(replace_durably(unsynced.get(), "lasting", "new"));
    EXPECT_EQ(errno, EBADF);
    EXPECT_FALSE(support::exists(path + "/lasting"));
    ASSERT_TRUE(replace_durably(directory.get(), "lasting", "old"));
    EXPECT_FALSE(replace_durably(unsynced.get(), "lasting", "new"));
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(support::read_file(path + "/lasting"), "old");
    EXPECT_FALSE(support::exists(path + "/.lasting.new"));
}

TEST_F(Files, ALockIsExclusive) {
    Fd held = lock_file(directory.get(), "lock", true);
    ASSERT_TRUE(held);
    EXPECT_FALSE(lock_file(directory.get(), "lock", false));
    EXPECT_EQ(errno, EWOULDBLOCK);
    held.reset();
    EXPECT_TRUE(lock_file(directory.get(), "lock", false));
}

TEST_F(Files, ReadIsBounded) {
    support::write_file(path + "/long", std::string(100, 'x'));
    std::string text;
    Fd file(open((path + "/long").c_str(), O_RDONLY));
    EXPECT_FALSE(read_whole(file.get(), 99, text));
    EXPECT_EQ(errno, EFBIG);
}

TEST_F(Files, ProgramsMoveBelowTheRoot) {
    EXPECT_EQ(program_path("/brim/bin/qsh"),
              std::string(XF_TEST_ROOT) + "/brim/bin/qsh");
    EXPECT_EQ(program_path("/bin/true"), "/bin/true");
    EXPECT_EQ(program_path("/brimstone/x"), "/brimstone/x");
}

TEST_F(Files, ANewFileTakesItsPlaceOnlyIfItMay) {
    int place = directory.get();
    ASSERT_TRUE(replace_durably(place, "guarded", "old"));
    bool there = false;
    auto no = [&] {
        there = faccessat(place, ".guarded.new", F_OK, 0) == 0;
        return false;
    };
    EXPECT_FALSE(replace_durably(place, "guarded", "new", no));
    EXPECT_EQ(errno, ECANCELED);
    EXPECT_TRUE(there);
    EXPECT_NE(faccessat(place, ".guarded.new", F_OK, 0), 0);
    std::string guarded = path + "/guarded";
    EXPECT_EQ(support::read_file(guarded), "old");
    EXPECT_TRUE(replace_durably(place, "guarded", "new", [] { return true; }));
    EXPECT_EQ(support::read_file(guarded), "new");
}

} // namespace
