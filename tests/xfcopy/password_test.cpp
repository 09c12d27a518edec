#include "xfcopy/password.h"

#include <cstdlib>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

using namespace xfcopy;

namespace {

// A file of its own with a content.
class File {
  public:
    explicit File(const std::string &content, mode_t mode = 0600) {
        const int fd = mkstemp(name_.data());
        EXPECT_EQ(write(fd, content.data(), content.size()),
                  static_cast<ssize_t>(content.size()));
        EXPECT_EQ(fchmod(fd, mode), 0);
        close(fd);
    }
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    ~File() {
        unlink(name_.c_str());
    }
    const std::string &name() const {
        return name_;
    }

  private:
    std::string name_ = "/tmp/xfcopy-test.XXXXXX";
};

struct Read {
    explicit Read(const PasswordSource &source) {
        problem = read_password(source, "joe@host", secret, note);
    }
    Secret secret;
    std::string problem;
    std::string note;
};

TEST(Secret, IsOverwritten) {
    Secret secret;
    for (const char c : std::string("geheim"))
        ASSERT_TRUE(secret.append(c));
    const std::string_view text = secret.text();
    EXPECT_EQ(text, "geheim");
    secret.clear();
    EXPECT_EQ(text, std::string(6, '\0'));
    EXPECT_EQ(secret.text(), "");
}

TEST(Secret, HasRoomForTheTable) {
    Secret secret;
    for (size_t i = 0; i < most_password_octets; ++i)
        ASSERT_TRUE(secret.append('x'));
    EXPECT_FALSE(secret.append('x'));
}

TEST(Password, FirstLineOfAFile) {
    const File file("s3 cr$et\xc3\xa9\nsecond line\n");
    const Read read({-1, file.name()});
    EXPECT_EQ(read.problem, "");
    EXPECT_EQ(read.note, "");
    EXPECT_EQ(read.secret.text(), "s3 cr$et\xc3\xa9");
    const File no_end("x");
    EXPECT_EQ(Read({-1, no_end.name()}).secret.text(), "x");
}

TEST(Password, FileOfOthersIsNoted) {
    const File file("x\n", 0644);
    const Read read({-1, file.name()});
    EXPECT_EQ(read.problem, "");
    EXPECT_NE(read.note.find("others"), std::string::npos);
}

TEST(Password, WhatIsNoPassword) {
    const File empty("\nx");
    EXPECT_NE(Read({-1, empty.name()}).problem.find("empty"),
              std::string::npos);
    const File control("a\tb\n");
    EXPECT_NE(Read({-1, control.name()}).problem.find("control"),
              std::string::npos);
    EXPECT_EQ(Read({-1, File(std::string(41, 'x')).name()}).problem.find("41"),
              std::string::npos);
    const File large(std::string(42, 'x'));
    EXPECT_NE(Read({-1, large.name()}).problem.find("41 octets"),
              std::string::npos);
    EXPECT_NE(Read({-1, "/nonexistent/file"}).problem.find("--password-file"),
              std::string::npos);
    EXPECT_NE(Read({999, ""}).problem.find("--password-fd"), std::string::npos);
}

TEST(Password, DescriptorKeepsWhatFollows) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(write(ends[1], "one\ntwo", 7), 7);
    close(ends[1]);
    EXPECT_EQ(Read({ends[0], ""}).secret.text(), "one");
    char rest[8] = "";
    EXPECT_EQ(read(ends[0], rest, sizeof(rest)), 3);
    close(ends[0]);
}

TEST(Password, EnvironmentIsOverwritten) {
    setenv("XFCOPY_PASSWORD", "from outside", 1);
    const char *const text = getenv("XFCOPY_PASSWORD");
    EXPECT_EQ(Read({}).secret.text(), "from outside");
    EXPECT_EQ(text[0], '\0');
    EXPECT_EQ(memchr(text, 'o', 12), nullptr);
    EXPECT_NE(Read({}).problem.find("XFCOPY_PASSWORD is empty"),
              std::string::npos);
    unsetenv("XFCOPY_PASSWORD");
}

TEST(Password, FileGoesBeforeTheEnvironment) {
    setenv("XFCOPY_PASSWORD", "from outside", 1);
    const File file("from file");
    EXPECT_EQ(Read({-1, file.name()}).secret.text(), "from file");
    unsetenv("XFCOPY_PASSWORD");
}

} // namespace
