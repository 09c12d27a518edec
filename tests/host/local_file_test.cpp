// The local end of a copy.
#include "host/base/local_file.h"

#include <cerrno>

#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/host/support.h"

using namespace xfhost;

namespace {

BoundedFile in_memory(uint64_t most) {
    return {Fd(memfd_create("file", MFD_CLOEXEC)), most};
}

off_t size_of(const BoundedFile &file) {
    struct stat found = {};
    fstat(file.fd().get(), &found);
    return found.st_size;
}

TEST(BoundedFile, TakesAsMuchAsItMay) {
    BoundedFile file = in_memory(10);
    EXPECT_EQ(file.write_at(4, "456789"), 0);
    EXPECT_EQ(file.write_at(0, "0123"), 0);
    EXPECT_EQ(file.write_at(10, ""), 0);
    for (uint64_t offset : {uint64_t{9}, uint64_t{10}, UINT64_MAX})
        EXPECT_EQ(file.write_at(offset, "xx"), EFBIG) << offset;
    EXPECT_EQ(size_of(file), 10);
}

TEST(BoundedFile, TellsBeforehandWhatDoesNotFit) {
    const BoundedFile file = in_memory(10);
    EXPECT_EQ(file.expect(10), 0);
    EXPECT_EQ(file.expect(11), EFBIG);
    EXPECT_EQ(file.expect(UINT64_MAX), EFBIG);
}

// Beyond that the kernel ends the process.
TEST(BoundedFile, IsNoLargerThanTheProcessMayWrite) {
    struct rlimit before;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    struct rlimit small = before;
    small.rlim_cur = 4096;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    BoundedFile file = in_memory(10000);
    EXPECT_EQ(file.expect(4097), EFBIG);
    EXPECT_EQ(file.write_at(4090, "0123456"), EFBIG);
    EXPECT_EQ(file.write_at(4090, "012345"), 0);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
}

TEST(BoundedFile, AFileThatCannotBeWritten) {
    BoundedFile file(Fd(), 10);
    EXPECT_EQ(file.write_at(0, "x"), EBADF);
}

class FetchedFileTest : public testing::Test {
  protected:
    std::string path = support::directory() + "/fetched";
    void SetUp() override {
        support::write_file(path, "old");
    }
};

TEST_F(FetchedFileTest, GetsItsNameWhenItIsKept) {
    FetchedFile fetched(path);
    ASSERT_EQ(fetched.open(100), 0);
    ASSERT_EQ(fetched.file().write_at(0, "new"), 0);
    EXPECT_EQ(support::read_file(path), "old");
    EXPECT_EQ(fetched.keep(), 0);
    EXPECT_EQ(support::read_file(path), "new");
    EXPECT_FALSE(support::exists(fetched.part()));
    struct stat found;
    ASSERT_EQ(stat(path.c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777, 0600u);
}

TEST_F(FetchedFileTest, LeavesNothingWithoutThat) {
    std::string part;
    {
        FetchedFile fetched(path);
        ASSERT_EQ(fetched.open(100), 0);
        ASSERT_EQ(fetched.file().write_at(0, "new"), 0);
        // As where a file system has no files without a name.
        part = fetched.part();
        support::write_file(part, "new");
    }
    EXPECT_EQ(support::read_file(path), "old");
    EXPECT_FALSE(support::exists(part));
}

TEST_F(FetchedFileTest, PlacesForNoFile) {
    FetchedFile folder(support::directory());
    EXPECT_EQ(folder.open(100), EISDIR);
    FetchedFile nowhere(path + "-missing/x");
    EXPECT_EQ(nowhere.open(100), ENOENT);
}

int refusal(const std::string &path) {
    errno = 0;
    EXPECT_FALSE(open_source(path)) << path;
    return errno;
}

TEST_F(FetchedFileTest, WhatIsNoFileToSend) {
    const std::string link = path + "-link", pipe = path + "-pipe";
    unlink(link.c_str());
    unlink(pipe.c_str());
    ASSERT_EQ(symlink(path.c_str(), link.c_str()), 0);
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_EQ(refusal(link), ELOOP);
    EXPECT_EQ(refusal(pipe), EINVAL);
    EXPECT_EQ(refusal(support::directory()), EINVAL);
    EXPECT_EQ(refusal(path + "-missing"), ENOENT);
    EXPECT_TRUE(open_source(path));
}

} // namespace
