#include "platform/accounting.h"
#include "platform/errlog.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "host/base/record.h"
#include "tests/host/support.h"

namespace {

std::string state_file(const char *name) {
    return support::directory() + "/state/" + name;
}

std::string last_line(const std::string &text) {
    size_t end = text.find_last_not_of('\n');
    size_t start = text.rfind('\n', end);
    return text.substr(start == std::string::npos ? 0 : start + 1);
}

TEST(Quoted, EscapesWhatCouldEndAFieldOrALine) {
    EXPECT_EQ(xfhost::quoted("plain text"), "\"plain text\"");
    EXPECT_EQ(xfhost::quoted("a\nb\r\t"), "\"a\\x0ab\\x0d\\x09\"");
    EXPECT_EQ(xfhost::quoted("say \"no\" \\"), "\"say \\\"no\\\" \\\\\"");
    EXPECT_EQ(xfhost::quoted("\x7f\xff\x1b[0m"), "\"\\x7f\\xff\\x1b[0m\"");
    EXPECT_EQ(xfhost::quoted(std::string_view("\0x", 2)), "\"\\x00x\"");
}

TEST(Accounting, OneLinePerRecord) {
    EXPECT_EQ(account_lib_interim_update(nullptr, "[192.0.2.1]:4711", "admin",
                                         "copy r s (SUCCESS)"),
              0);
    std::string line =
        last_line(support::read_file(state_file("accounting.log")));
    EXPECT_EQ(line.substr(line.find(' ') + 1),
              "session=\"[192.0.2.1]:4711\" user=\"admin\" "
              "text=\"copy r s (SUCCESS)\"\n");
    EXPECT_EQ(support::mode_of(state_file("accounting.log")), 0600u);
}

TEST(Accounting, ATextCannotForgeARecord) {
    account_lib_interim_update(nullptr, "s", "u", "first");
    std::string before = support::read_file(state_file("accounting.log"));
    account_lib_interim_update(nullptr, "s", "u\" text=\"x",
                               "x\n2024-01-01T00:00:00Z session=\"root\"");
    std::string after = support::read_file(state_file("accounting.log"));
    std::string added = after.substr(before.size());
    EXPECT_EQ(std::count(added.begin(), added.end(), '\n'), 1);
    EXPECT_NE(added.find("user=\"u\\\" text=\\\"x\" text=\"x\\x0a2024"),
              std::string::npos);
}

TEST(ErrorLog, RecordsComponentAndCode) {
    log_set_error(0x4049004A, 584);
    std::string line = last_line(support::read_file(state_file("errors.log")));
    EXPECT_EQ(line.substr(line.find(' ') + 1),
              "component=584 code=0x4049004A text=\"unknown error\"\n");
    EXPECT_EQ(support::mode_of(state_file("errors.log")), 0600u);
}

TEST(ErrorLog, TextsOfCodes) {
    EXPECT_STREQ(syserr2str(0), "success");
    EXPECT_STREQ(syserr_format(0x40540002),
                 "0x40540002: no configuration in the file");
    EXPECT_STREQ(syserr2str(0xFFFFFFFF), "unknown error");
}

} // namespace
