// What was told of a copy, and how it comes together.
#include "host/history/report.h"

#include <cerrno>
#include <cstdlib>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "host/base/settings.h"
#include "tests/host/support.h"

using namespace xfhost;

namespace {

const std::string digest(64, 'a');

Report because(const std::string &reason, const std::string &advice = "") {
    Report report;
    report.reason = reason;
    report.advice = advice;
    return report;
}

class Reports : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_TRUE(begin_report(path));
        setenv(report_variable, path.c_str(), 1);
    }
    void TearDown() override {
        unsetenv(report_variable);
    }

    const std::string path = support::directory() + "/reports/one.report";
};

TEST_F(Reports, EverythingThatWasToldComesBack) {
    Report told = because("The server said: no", "Ask again");
    told.octets = 5;
    told.sha256 = digest;
    told.refused = 3;
    told.first_refused = 17;
    told.refusal = "unknown command, a=b";
    tell(told);
    const Report read = read_report(path);
    EXPECT_EQ(read.reason, told.reason);
    EXPECT_EQ(read.advice, told.advice);
    EXPECT_EQ(read.octets, 5u);
    EXPECT_EQ(read.sha256, digest);
    EXPECT_EQ(read.refused, 3u);
    EXPECT_EQ(read.first_refused, 17u);
    EXPECT_EQ(read.refusal, told.refusal);
    EXPECT_EQ(support::mode_of(path), 0600u);
}

TEST_F(Reports, NothingToldIsNothingWritten) {
    tell({});
    EXPECT_EQ(support::read_file(path), "");
    EXPECT_FALSE(read_report(path).octets);
}

TEST_F(Reports, TheFirstReasonStaysWithItsOwnAdvice) {
    tell(because("the cause"));
    tell(because("what came of it", "advice for that"));
    EXPECT_EQ(read_report(path).reason, "the cause");
    EXPECT_EQ(read_report(path).advice, "");
}

TEST_F(Reports, LaterTellingsFillWhatIsMissing) {
    Report moved;
    moved.octets = 7;
    tell(moved);
    moved.octets = 9;
    moved.sha256 = digest;
    tell(moved);
    moved.octets = 8;
    moved.sha256 = std::string(64, 'b');
    moved.refused = 1;
    tell(moved);
    tell(because("no room"));
    const Report read = read_report(path);
    EXPECT_EQ(read.octets, 9u);
    EXPECT_EQ(read.sha256, digest);
    EXPECT_EQ(read.refused, 1u);
    EXPECT_EQ(read.reason, "no room");
}

TEST_F(Reports, NoOctetsAreNotTheSameAsNothing) {
    Report moved;
    moved.octets = 0;
    tell(moved);
    EXPECT_EQ(read_report(path).octets, 0u);
}

TEST_F(Reports, TextsCannotBecomeFieldsOrRecords) {
    tell(because("a\toctets=1\nrefused=2\x01\x7f\xc3\xa9 b  c ", "\n\n"));
    const Report read = read_report(path);
    EXPECT_EQ(read.reason, "a octets=1 refused=2 ?? b c");
    EXPECT_FALSE(read.octets);
    EXPECT_EQ(read.refused, 0u);
    EXPECT_EQ(read.advice, "");
}

TEST_F(Reports, ALongTextIsCut) {
    tell(because(std::string(10000, 'x')));
    const std::string reason = read_report(path).reason;
    EXPECT_EQ(reason.size(), longest_report_text);
    EXPECT_TRUE(reason.ends_with("xxx..."));
}

// As after a crash, at any octet; and what is told afterwards is whole.
TEST_F(Reports, ARecordThatWasCutOffIsIgnored) {
    Report first;
    first.octets = 3;
    tell(first);
    const size_t begin = support::read_file(path).size();
    tell(because("the second one"));
    const std::string whole = support::read_file(path);
    for (size_t left = begin; left + 1 < whole.size(); left++) {
        support::write_file(path, whole.substr(0, left));
        EXPECT_EQ(read_report(path).reason, "") << left;
        tell(because("the third one"));
        EXPECT_EQ(read_report(path).reason, "the third one") << left;
        EXPECT_EQ(read_report(path).octets, 3u) << left;
    }
}

TEST_F(Reports, ADamagedRecordIsIgnored) {
    tell(because("good"));
    const std::string whole = support::read_file(path);
    for (size_t i = 1; i + 1 < whole.size(); i++) {
        std::string damaged = whole;
        damaged[i] = static_cast<char>(damaged[i] ^ 1);
        support::write_file(path, damaged);
        EXPECT_EQ(read_report(path).reason, "") << i;
    }
}

TEST_F(Reports, AFileIsNoLargerThanItMayBe) {
    for (int i = 0; i < 1000; i++)
        tell(because("the same", std::string(200, 'x')));
    EXPECT_LE(support::read_file(path).size(), largest_report);
    EXPECT_EQ(read_report(path).reason, "the same");
    support::write_file(path, std::string(largest_report + 1, '\n'));
    EXPECT_EQ(read_report(path).reason, "");
}

TEST_F(Reports, ManyAtATimeEachTellWhole) {
    std::vector<std::thread> tellers;
    for (int i = 0; i < 8; i++)
        tellers.emplace_back([] {
            for (uint64_t octets = 1; octets <= 50; octets++) {
                Report report;
                report.octets = octets;
                tell(report);
            }
        });
    for (std::thread &each : tellers)
        each.join();
    size_t records = 0;
    const std::string text = support::read_file(path);
    for (size_t at = 0; (at = text.find("octets=", at)) != text.npos; at++)
        records++;
    EXPECT_EQ(records, 400u);
    EXPECT_EQ(read_report(path).octets, 50u);
}

TEST_F(Reports, TellingKeepsErrno) {
    errno = 4711;
    tell(because("x"));
    tell_to("/nonexistent/report", because("x"));
    EXPECT_EQ(errno, 4711);
}

TEST_F(Reports, WithoutAVariableOrAFileNothingIsTold) {
    unsetenv(report_variable);
    tell(because("x"));
    EXPECT_EQ(support::read_file(path), "");
    unlink(path.c_str());
    tell_to(path, because("x"));
    EXPECT_FALSE(support::exists(path));
    EXPECT_EQ(read_report(path).reason, "");
}

TEST_F(Reports, LinksPipesAndWhatOthersCanWriteAreRefused) {
    const std::string target = support::directory() + "/target";
    support::write_file(target, "kept");
    unlink(path.c_str());
    ASSERT_EQ(symlink(target.c_str(), path.c_str()), 0);
    tell(because("x"));
    EXPECT_FALSE(begin_report(path));
    EXPECT_EQ(support::read_file(target), "kept");
    unlink(path.c_str());
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    tell(because("x"));
    EXPECT_FALSE(begin_report(path));
    EXPECT_EQ(read_report(path).reason, "");
    unlink(path.c_str());
    ASSERT_TRUE(begin_report(path));
    tell(because("x"));
    ASSERT_EQ(chmod(path.c_str(), 0666), 0);
    EXPECT_EQ(read_report(path).reason, "");
    EXPECT_FALSE(begin_report(path));
    unlink(path.c_str());
}

TEST_F(Reports, BeginningEmptiesIt) {
    tell(because("of the copy before"));
    ASSERT_TRUE(begin_report(path));
    EXPECT_EQ(read_report(path).reason, "");
    EXPECT_FALSE(begin_report("no directory"));
}

TEST(SaveReport, IsInTheRunDirectory) {
    EXPECT_EQ(save_report_path(), settings()->run_directory + "/save.report");
}

// Every program reads the settings, and refuses variables that it does not
// know.
TEST(ReportVariable, IsNoUnknownSetting) {
    Settings read;
    const auto nothing = [](const char *) -> const char * { return nullptr; };
    EXPECT_EQ(load_settings(read, nothing, {report_variable}), "");
}

} // namespace
