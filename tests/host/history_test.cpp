#include "host/history/log.h"

#include <filesystem>

#include <csignal>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "host/base/clock.h"
#include "host/base/record.h"
#include "host/history/syncer.h"
#include "tests/host/support.h"

using namespace xfhost;

namespace {

HistoryEntry full_entry() {
    HistoryEntry entry;
    entry.number = 4294967295;
    entry.row = 2147483647;
    entry.asker = "alice";
    entry.vrf = "red";
    entry.source = 4;
    entry.destination = 1;
    entry.protocol = 5;
    entry.server_type = 2;
    entry.server =
        std::string("\x20\x01\x0d\xb8\0\0\0\0\0\0\0\0\0\0\0\x01", 16);
    entry.port = 22;
    entry.file = "a b\tc\nd%41\xff\x7f=";
    entry.user = "back up";
    entry.asked = 17000000001;
    entry.started = 17000000002;
    entry.ended = 17000000033;
    entry.state = CopyState::failed;
    entry.cause = 1;
    entry.token = 4000000000;
    entry.report = {"The server's host key is not known.",
                    "Run xfenrol 192.0.2.1",
                    0,
                    std::string(64, 'a'),
                    3,
                    7,
                    "no such command"};
    return entry;
}

// Every field, as text: what the tests compare.
std::string all_of(const std::optional<HistoryEntry> &entry) {
    return entry ? print_entry(*entry) : "(none)";
}

TEST(HistoryEntry, IsReadAsItWasWritten) {
    const HistoryEntry entry = full_entry();
    const std::string line = print_entry(entry);
    const auto again = parse_entry(line);
    ASSERT_TRUE(again);
    EXPECT_EQ(print_entry(*again), line);
    EXPECT_EQ(again->server, entry.server);
    EXPECT_EQ(again->file, entry.file);
    EXPECT_EQ(again->user, entry.user);
    EXPECT_EQ(again->token, entry.token);
    EXPECT_EQ(again->state, CopyState::failed);
    EXPECT_EQ(again->report.reason, entry.report.reason);
    EXPECT_EQ(again->report.octets, 0u);
    EXPECT_EQ(again->report.first_refused, 7u);
}

TEST(HistoryEntry, IsOneLineOfPrintableText) {
    for (unsigned char c : print_entry(full_entry()))
        EXPECT_TRUE((c >= ' ' && c <= '~') || c == '\t') << unsigned{c};
}

TEST(HistoryEntry, NothingToldIsNotNothingMoved) {
    HistoryEntry entry;
    entry.number = 1;
    const auto again = parse_entry(print_entry(entry));
    ASSERT_TRUE(again);
    EXPECT_FALSE(again->report.octets);
}

TEST(HistoryEntry, ChangedLineIsNone) {
    const std::string line = print_entry(full_entry());
    for (size_t i = 0; i < line.size(); i++) {
        std::string other = line;
        other[i] ^= 1;
        EXPECT_EQ(all_of(parse_entry(other)), "(none)") << i;
        EXPECT_EQ(all_of(parse_entry(line.substr(0, i))), "(none)") << i;
    }
}

TEST(HistoryEntry, ValuesOutOfTheirColumnsAreRefused) {
    for (const char *body :
         {"", "row=1", "number=0", "number=4294967296",
          "number=1\trow=2147483648", "number=1\tstate=1", "number=1\tstate=6",
          "number=1\tport=65536", "number=1\tasked=2534023008000", "number=x",
          "number=1\tcause=-1", "number=1\toctets=18446744073709551616"})
        EXPECT_EQ(all_of(parse_entry(with_sum(body))), "(none)") << body;
    EXPECT_NE(all_of(parse_entry(with_sum("number=1\tlater=x"))), "(none)");
    EXPECT_EQ(all_of(parse_entry(
                  with_sum("number=1\tfile=" + std::string(256, 'x')))),
              "(none)");
}

class History : public testing::Test {
  protected:
    void SetUp() override {
        path = support::directory() + "/history";
        std::filesystem::remove_all(path);
    }
    std::vector<uint64_t> open(uint32_t rows) {
        log = HistoryLog();
        EXPECT_TRUE(log.open(open_private_directory(path), rows, entries));
        std::vector<uint64_t> numbers;
        for (const HistoryEntry &each : entries)
            numbers.push_back(each.number);
        return numbers;
    }
    void add(CopyState state = CopyState::running) {
        HistoryEntry entry;
        entry.number = log.next_number();
        entry.state = state;
        EXPECT_TRUE(log.append(entry));
    }
    void add_many(int count) {
        for (int i = 0; i < count; i++)
            add();
    }
    std::string file() const {
        return path + "/history";
    }
    std::string old() const {
        return path + "/history.old";
    }
    std::string path;
    HistoryLog log;
    std::vector<HistoryEntry> entries;
};

using Numbers = std::vector<uint64_t>;

TEST_F(History, IsThereAfterwardsAndGoesOn) {
    EXPECT_EQ(open(10), Numbers{});
    add_many(2);
    EXPECT_EQ(open(10), (Numbers{1, 2}));
    add();
    EXPECT_EQ(open(10), (Numbers{1, 2, 3}));
    EXPECT_EQ(support::mode_of(file()), 0600u);
    EXPECT_EQ(support::mode_of(path), 0700u);
}

TEST_F(History, LastLineOfAnEntryCounts) {
    open(10);
    add();
    HistoryEntry end;
    end.number = 1;
    end.state = CopyState::successful;
    ASSERT_TRUE(log.append(end));
    EXPECT_EQ(open(10), Numbers{1});
    EXPECT_EQ(entries[0].state, CopyState::successful);
    EXPECT_EQ(log.next_number(), 2u);
}

TEST_F(History, IsBounded) {
    open(3);
    for (uint64_t last = 1; last < 30; last++) {
        add();
        const Numbers kept = open(3);
        ASSERT_EQ(kept.back(), last);
        ASSERT_EQ(kept.size(), std::min<uint64_t>(last, 3));
        ASSERT_EQ(kept.front(), last - kept.size() + 1);
    }
    EXPECT_LT(std::filesystem::file_size(file()), 200u);
    EXPECT_LT(std::filesystem::file_size(old()), 200u);
}

TEST_F(History, FewerAreKeptWhenFewerAreAskedFor) {
    open(10);
    add_many(10);
    EXPECT_EQ(open(2), (Numbers{9, 10}));
    EXPECT_EQ(open(4), (Numbers{7, 8, 9, 10}));
}

TEST_F(History, EndIsKeptBehindAChangeOfFiles) {
    open(2);
    add_many(3); // the first two are in the old file now
    HistoryEntry end;
    end.number = 2;
    end.state = CopyState::failed;
    ASSERT_TRUE(log.append(end));
    EXPECT_EQ(open(2), (Numbers{2, 3}));
    EXPECT_EQ(entries[0].state, CopyState::failed);
}

// As a crash in the middle of a write leaves it, at every octet.
TEST_F(History, WhatIsCutOffSpoilsNothingElse) {
    open(10);
    add_many(2);
    const size_t before = support::read_file(file()).size();
    add(CopyState::failed);
    const std::string whole = support::read_file(file());
    for (size_t size = before; size < whole.size(); size++) {
        support::write_file(file(), whole.substr(0, size));
        // The newline alone may be missing.
        const size_t kept = size + 1 < whole.size() ? 2 : 3;
        ASSERT_EQ(open(10).size(), kept) << size;
        add(CopyState::successful);
        ASSERT_EQ(open(10).size(), kept + 1) << size;
        EXPECT_EQ(entries.back().state, CopyState::successful);
    }
}

TEST_F(History, DamageInTheMiddleTakesOneEntry) {
    open(10);
    add_many(3);
    std::string text = support::read_file(file());
    text[text.find('\n') + 3] ^= 1;
    support::write_file(file(), text);
    EXPECT_EQ(open(10), (Numbers{1, 3}));
}

TEST_F(History, LongLineIsPassedOver) {
    open(10);
    add();
    const std::string text = support::read_file(file());
    support::write_file(file(), text + std::string(200000, 'x') + "\n");
    EXPECT_EQ(open(10), Numbers{1});
    add();
    EXPECT_EQ(open(10), (Numbers{1, 2}));
}

TEST_F(History, SomebodyElsesLinkIsNotFollowed) {
    open(10);
    std::filesystem::remove(file());
    std::filesystem::create_symlink(support::directory() + "/elsewhere",
                                    file());
    EXPECT_FALSE(log.open(open_private_directory(path), 10, entries));
    EXPECT_EQ(errno, ELOOP);
    EXPECT_FALSE(support::exists(support::directory() + "/elsewhere"));
}

// What only the old file has would be given another number.
TEST_F(History, OldFileThatCannotBeReadIsNotLeftOut) {
    open(2);
    add_many(3);
    std::filesystem::rename(old(), path + "/aside");
    std::filesystem::create_symlink("aside", old());
    EXPECT_FALSE(log.open(open_private_directory(path), 2, entries));
    EXPECT_EQ(errno, ELOOP);
    std::filesystem::rename(path + "/aside", old());
    EXPECT_EQ(open(2), (Numbers{2, 3}));
}

TEST_F(History, FileThatCannotBeOpenedIsNotSynced) {
    open(10);
    add();
    EXPECT_TRUE(sync_history(log.directory())); // there is no old file
    pid_t child = fork();
    if (child == 0) {
        const int lowest_free = dup(log.directory());
        close(lowest_free);
        struct rlimit limit;
        getrlimit(RLIMIT_NOFILE, &limit);
        limit.rlim_cur = static_cast<rlim_t>(lowest_free);
        setrlimit(RLIMIT_NOFILE, &limit);
        _exit(!sync_history(log.directory()) && errno == EMFILE ? 0 : 1);
    }
    int status = 1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

// A disk that is full for a moment, as a limit on the size of a file.
TEST_F(History, FullDiskLosesOneEntry) {
    open(10);
    add();
    pid_t child = fork();
    if (child == 0) {
        signal(SIGXFSZ, SIG_IGN);
        const auto size = std::filesystem::file_size(file());
        struct rlimit limit = {size + 10, RLIM_INFINITY};
        setrlimit(RLIMIT_FSIZE, &limit);
        HistoryEntry entry;
        entry.number = log.next_number();
        bool lost = !log.append(entry);
        limit.rlim_cur = RLIM_INFINITY;
        setrlimit(RLIMIT_FSIZE, &limit);
        entry.number = log.next_number();
        _exit(lost && log.append(entry) ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(open(10), (Numbers{1, 3}));
}

TEST_F(History, KilledWriterLeavesWholeEntries) {
    for (int round = 0; round < 20; round++) {
        open(5);
        const uint64_t first = log.next_number();
        pid_t child = fork();
        if (child == 0)
            for (;;)
                add();
        usleep(static_cast<useconds_t>(500 + round * 137));
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
        const Numbers kept = open(5);
        for (size_t i = 1; i < kept.size(); i++)
            ASSERT_EQ(kept[i], kept[i - 1] + 1);
        ASSERT_GE(log.next_number(), first);
    }
    EXPECT_EQ(entries.size(), 5u);
}

TEST_F(History, MillionEntriesGoThrough) {
    open(1000);
    const int64_t start = monotonic_ms();
    HistoryEntry entry = full_entry();
    for (int i = 0; i < 1000000; i++) {
        entry.number = log.next_number();
        ASSERT_TRUE(log.append(entry));
    }
    RecordProperty("milliseconds", static_cast<int>(monotonic_ms() - start));
    const Numbers kept = open(1000);
    ASSERT_EQ(kept.size(), 1000u);
    EXPECT_EQ(kept.front(), 999001u);
    EXPECT_EQ(kept.back(), 1000000u);
    const size_t line = print_entry(entry).size() + 1;
    EXPECT_LE(std::filesystem::file_size(file()), 1000 * line);
    EXPECT_LE(std::filesystem::file_size(old()), 1000 * line);
}

void wait_until_idle(const Syncer &syncer) {
    for (int i = 0; i < 1000 && !syncer.idle(); i++)
        usleep(10000);
    EXPECT_TRUE(syncer.idle());
}

TEST_F(History, IsSyncedBehindTheBackOfTheWriter) {
    static Syncer syncer;
    open(10);
    for (int i = 0; i < 100; i++) {
        add();
        EXPECT_TRUE(syncer.ask(log.directory()));
    }
    wait_until_idle(syncer);
    EXPECT_EQ(syncer.take_error(), 0);
}

TEST_F(History, SyncThatFailsIsTold) {
    static Syncer syncer;
    EXPECT_TRUE(syncer.ask(-1));
    wait_until_idle(syncer);
    EXPECT_EQ(syncer.take_error(), EBADF);
    EXPECT_EQ(syncer.take_error(), 0);
}

// A copy process is forked whenever the disk is busy.
TEST_F(History, ForksWhileItIsSynced) {
    static Syncer syncer;
    open(1000);
    for (int i = 0; i < 100; i++) {
        add();
        syncer.ask(log.directory());
        pid_t child = fork();
        if (child == 0) {
            std::string text(100000, 'x'); // memory, too
            _exit(setenv(report_variable, text.c_str(), 1));
        }
        int status = 1;
        waitpid(child, &status, 0);
        ASSERT_EQ(status, 0);
    }
    wait_until_idle(syncer);
}

} // namespace
