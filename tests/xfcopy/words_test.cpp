#include "xfcopy/words.h"

#include <set>

#include <net-snmp/net-snmp-config.h>
// Before the other headers of the library.
#include <net-snmp/net-snmp-includes.h>

#include <gtest/gtest.h>

#include "xfcopy/table.h"

using namespace xfcopy;

namespace {

Location of(FileType type) {
    Location location;
    location.type = type;
    return location;
}

const Location running_one = of(FileType::running);
const Location startup_one = of(FileType::startup);
const Location file = of(FileType::network);

TEST(Words, EachCauseHasItsOwn) {
    std::set<std::string> texts;
    std::set<std::string> names;
    for (long cause = 1; cause <= 9; ++cause) {
        const Outcome outcome = failed_words(cause, running_one, file);
        EXPECT_EQ(outcome.status, Status::failed);
        EXPECT_EQ(outcome.cause, cause);
        EXPECT_FALSE(outcome.advice.empty());
        texts.insert(outcome.text);
        names.insert(cause_name(cause));
    }
    EXPECT_EQ(texts.size(), 9U);
    EXPECT_EQ(names.size(), 9U);
    EXPECT_STREQ(cause_name(7), "someConfigApplyFailed");
}

TEST(Words, DependOnWhatWasCopied) {
    EXPECT_NE(failed_words(1, running_one, file).text,
              failed_words(1, running_one, startup_one).text);
    EXPECT_NE(failed_words(5, startup_one, running_one).text,
              failed_words(5, file, running_one).text);
}

TEST(Words, ACauseOfTomorrow) {
    for (const long cause : {0L, 10L, -1L, 2147483647L}) {
        const Outcome outcome = failed_words(cause, running_one, file);
        EXPECT_EQ(outcome.status, Status::failed);
        EXPECT_FALSE(outcome.text.empty());
        EXPECT_STREQ(cause_name(cause), "unknown");
    }
}

TEST(Words, EachErrorStatusSaysWhatToDo) {
    for (long error = 1; error <= SNMP_ERR_INCONSISTENTNAME; ++error)
        for (long column = 0; column <= static_cast<long>(vrf_column);
             ++column) {
            const Outcome outcome = refused_words(error, column);
            EXPECT_TRUE(outcome.status == Status::refused ||
                        outcome.status == Status::access);
            EXPECT_FALSE(outcome.text.empty() || outcome.advice.empty());
        }
    EXPECT_EQ(refused_words(SNMP_ERR_NOACCESS, 3).status, Status::access);
    EXPECT_EQ(refused_words(SNMP_ERR_AUTHORIZATIONERROR, 3).status,
              Status::access);
    EXPECT_NE(refused_words(SNMP_ERR_WRONGLENGTH, user_column).text,
              refused_words(SNMP_ERR_WRONGLENGTH, file_name_column).text);
    EXPECT_EQ(refused_words(99999, 0).status, Status::refused);
}

TEST(Words, LostAnswers) {
    EXPECT_EQ(lost_words(SNMPERR_TIMEOUT, "").status, Status::no_answer);
    EXPECT_EQ(lost_words(SNMPERR_AUTHENTICATION_FAILURE, "").status,
              Status::access);
    EXPECT_EQ(lost_words(SNMPERR_BAD_SEC_NAME, "").status, Status::usage);
    const Outcome other = lost_words(SNMPERR_MALLOC, "no memory");
    EXPECT_EQ(other.status, Status::no_answer);
    EXPECT_NE(other.text.find("no memory"), std::string::npos);
}

TEST(Words, NamesOfTheExitStatus) {
    std::set<std::string> names;
    for (int status = 0; status <= static_cast<int>(Status::gone); ++status)
        names.insert(status_name(static_cast<Status>(status)));
    EXPECT_EQ(names.size(), 11U);
}

TEST(Row, Took) {
    Row row;
    row.state = successful;
    row.started = 0xfffffff0U;
    row.completed = 0x10U; // sysUpTime begins anew after 497 days
    EXPECT_EQ(row.took(), 0x20U);
    row.completed = 0;
    EXPECT_EQ(row.took(), std::nullopt);
    row.state = running;
    row.completed = 5;
    EXPECT_EQ(row.took(), std::nullopt);
}

TEST(Row, SidesAsLocations) {
    Row row;
    row.source = 4;
    row.destination = 1;
    row.protocol = 5;
    row.server = {1, std::string("\xc0\x00\x02\x01", 4)};
    row.user = "joe";
    row.file_name = "a";
    EXPECT_EQ(location_text(row.from()), "running");
    EXPECT_EQ(location_text(row.to()), "sftp://joe@192.0.2.1/~/a");
    row.destination = 5;
    EXPECT_EQ(location_text(row.to()), "file type 5");
}

} // namespace
