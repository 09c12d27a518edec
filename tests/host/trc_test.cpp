#include "platform/trc.h"

#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "host/base/files.h"
#include "host/trc/ring.h"
#include "platform/program_runner.h"
#include "tests/host/support.h"

using namespace xfhost;

namespace {

class TraceRing : public testing::Test {
  protected:
    void SetUp() override {
        path = support::directory() + "/rings";
        directory = open_private_directory(path);
        unlink((path + "/ring").c_str());
        open_ring();
    }
    void open_ring() {
        ring.reset();
        ring = Ring::open(directory.get(), "ring", 8);
        ASSERT_NE(ring, nullptr);
    }
    void add(const std::string &text) {
        ring->add(0x730000, 101, text.data(), text.size());
    }
    std::string texts() {
        std::string all;
        for (const TraceEvent &event : ring->events())
            all += event.text + ";";
        return all;
    }
    std::string path;
    Fd directory;
    std::unique_ptr<Ring> ring;
};

TEST_F(TraceRing, KeepsTheLastEventsInOrder) {
    for (int i = 0; i < 20; i++)
        add(std::to_string(i));
    EXPECT_EQ(texts(), "12;13;14;15;16;17;18;19;");
}

TEST_F(TraceRing, GoesOnWhereItWasLeft) {
    add("before");
    open_ring();
    add("after");
    EXPECT_EQ(texts(), "before;after;");
    EXPECT_EQ(support::mode_of(path + "/ring"), 0600u);
}

TEST_F(TraceRing, ADamagedFileIsMadeAnew) {
    add("old");
    ring.reset();
    ASSERT_EQ(truncate((path + "/ring").c_str(), 100), 0);
    EXPECT_EQ(Ring::open_to_read((path + "/ring").c_str()), nullptr);
    EXPECT_EQ(errno, EBADMSG);
    open_ring();
    EXPECT_EQ(texts(), "");
    add("new");
    EXPECT_EQ(texts(), "new;");
}

TEST_F(TraceRing, TheOrderIsKeptWhenTheCounterWraps) {
    constexpr uint32_t written = UINT32_MAX - 4;
    constexpr off_t counter = 16;
    int file = open((path + "/ring").c_str(), O_WRONLY);
    ASSERT_EQ(pwrite(file, &written, sizeof written, counter),
              static_cast<ssize_t>(sizeof written));
    close(file);
    for (char c = 'a'; c < 'g'; c++)
        add(std::string(1, c));
    // The event of sequence 0 counts as an empty slot.
    EXPECT_EQ(texts(), "a;b;c;d;f;");
}

TEST_F(TraceRing, LongTextIsCut) {
    add(std::string(2000, 'x'));
    EXPECT_EQ(texts(), std::string(511, 'x') + ";");
}

TEST_F(TraceRing, ChildrenWriteBesideTheirParent) {
    constexpr int each = 20000;
    pid_t children[2];
    for (pid_t &child : children) {
        child = fork();
        if (child == 0) {
            for (int i = 0; i < each; i++)
                add(std::string(100, 'c'));
            _exit(0);
        }
    }
    for (int i = 0; i < each; i++)
        add(std::string(100, 'p'));
    for (pid_t child : children)
        ASSERT_EQ(waitpid(child, nullptr, 0), child);
    add("end");
    auto events = ring->events();
    ASSERT_FALSE(events.empty());
    EXPECT_EQ(events.back().text, "end");
    EXPECT_EQ(events.back().sequence, 3u * each + 1);
    for (const TraceEvent &event : events) {
        bool child = event.pid != getpid();
        if (event.text != "end") {
            EXPECT_EQ(event.text, std::string(100, child ? 'c' : 'p'));
        }
    }
}

// The record as the module makes it: a level in native order, then the text.
void trace(uint32_t level, const std::string &text) {
    std::string record(sizeof level, 0);
    memcpy(record.data(), &level, sizeof level);
    record += text;
    trc_hist_event(0x730000, static_cast<uint32_t>(record.size() + 1),
                   record.c_str());
}

TEST(Trace, TheReaderPrintsWhatWasTraced) {
    ASSERT_EQ(trc_hist_event_subtype_check(0x730000, 100), 0);
    trace(100, "do_something : failed\n");
    std::string path = support::directory() + "/reader.out";
    int out = open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
    EXPECT_EQ(execute_program_and_wait_redirect(-1, out, -1, XF_TEST_READER,
                                                "host_tests", nullptr),
              0);
    close(out);
    std::string output = support::read_file(path);
    std::string expected = "Z " + std::to_string(getpid()) +
                           " 0x730000 100 do_something : failed\n";
    EXPECT_NE(output.find(expected), std::string::npos) << output;
    EXPECT_EQ(
        support::mode_of(support::directory() + "/state/trace/host_tests.trc"),
        0600u);
}

TEST(Trace, AnotherProcessNeedNotWaitForTheHistory) {
    trace(100, "opened\n");
    Fd file(open((support::directory() + "/state/trace/host_tests.trc").c_str(),
                 O_RDWR | O_CLOEXEC));
    ASSERT_TRUE(file);
    EXPECT_EQ(flock(file.get(), LOCK_EX | LOCK_NB), 0);
}

TEST(Trace, AShortRecordIsHarmless) {
    trc_hist_event(0x730000, 3, "abc");
    uint32_t level = 100;
    trc_hist_event(0x730000, sizeof level, &level); // no text at all
    trace(101, "");
}

TEST(Trace, LiveOutputIsOffByDefault) {
    EXPECT_EQ(trc_chk_int(100, 0, 0, 1), 0);
    dprint(1, trc_dbg_modname, 0, "not printed %d\n", 1);
}

} // namespace
