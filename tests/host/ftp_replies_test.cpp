#include "host/transfer/ftp_replies.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

using namespace xfhost;

namespace {

// Lines that a server says, and with '>' in front what is sent to it. False if
// the session could not go on.
bool play(FtpReplies &replies, const std::vector<std::string> &lines) {
    for (const std::string &line : lines) {
        if (line.front() == '>')
            replies.sent(line.substr(1) + "\r\n");
        else if (!replies.said(line + "\r\n"))
            return false;
    }
    return true;
}

FtpReplies after(const std::vector<std::string> &lines) {
    FtpReplies replies;
    EXPECT_TRUE(play(replies, lines));
    return replies;
}

void expect_refused(const std::vector<std::string> &lines) {
    FtpReplies replies;
    EXPECT_FALSE(play(replies, lines)) << lines.back();
    EXPECT_FALSE(replies.sensible());
    EXPECT_FALSE(replies.received(0));
    EXPECT_FALSE(replies.stored(0));
    // Nothing makes it good again.
    EXPECT_FALSE(replies.said("220 x\r\n"));
}

TEST(FtpReplies, ADownloadIsWholeIfItsSizeIs) {
    FtpReplies replies = after({"220 a", ">USER u", "331 b", ">PASS p", "230 c",
                                ">SIZE x", "213 21", ">RETR x", "150 d"});
    EXPECT_TRUE(replies.logged_in());
    EXPECT_TRUE(replies.waiting());
    EXPECT_FALSE(replies.received(21));
    EXPECT_TRUE(replies.said("226 e\r\n"));
    EXPECT_FALSE(replies.waiting());
    EXPECT_TRUE(replies.received(21));
    EXPECT_FALSE(replies.received(20));
    EXPECT_FALSE(replies.received(22));
}

TEST(FtpReplies, ADownloadWithoutASizeIsWhole) {
    for (const char *answer : {"500 a", "502 a", "550 a"})
        EXPECT_TRUE(after({">SIZE x", answer, ">RETR x", "125 b", "250 c"})
                        .received(21))
            << answer;
}

TEST(FtpReplies, OnlyAServerWithoutSizesNeedNotTellWhatItStored) {
    const std::vector<std::string> stored = {">STOR x", "150 a", "226 b",
                                             ">SIZE x"};
    for (const char *answer : {"213 21", "500 a", "502 a", "504 a"}) {
        FtpReplies replies = after(stored);
        EXPECT_FALSE(replies.stored(21));
        EXPECT_TRUE(play(replies, {answer}));
        EXPECT_TRUE(replies.stored(21)) << answer;
    }
    for (const char *answer : {"213 20", "213 0", "550 a", "421 a", "200 21"}) {
        FtpReplies replies = after(stored);
        EXPECT_TRUE(play(replies, {answer}));
        EXPECT_FALSE(replies.stored(21)) << answer;
    }
}

TEST(FtpReplies, SizesThatAreNone) {
    for (const char *size : {"", "-1", " 21", "+21", "21 ", "21 octets", "x"}) {
        FtpReplies replies = after({">SIZE x", std::string("213 ") + size});
        EXPECT_TRUE(replies.strange_size()) << size;
        EXPECT_TRUE(play(replies, {">RETR x", "150 a", "226 b"}));
        EXPECT_FALSE(replies.received(0)) << size;
        EXPECT_FALSE(replies.received(21)) << size;
    }
    EXPECT_EQ(after({">SIZE x", "213 18446744073709551616"}).size(),
              UINT64_MAX);
    EXPECT_EQ(after({">SIZE x", "213 18446744073709551615"}).size(),
              UINT64_MAX);
}

TEST(FtpReplies, RepliesOfSeveralLines) {
    FtpReplies replies =
        after({"220-a", " 226 b", "226", "226-c", "", "220 d", ">RETR x",
               "150-a", "426-b", "150 c", "226-done", "  451 not", "226 so"});
    EXPECT_TRUE(replies.received(1));
}

TEST(FtpReplies, LinesThatCouldBeTheEndOfAnotherReply) {
    expect_refused({"220-a", "226 b"});
    expect_refused({">RETR x", "150-a", "226 fake"});
    expect_refused({">RETR x", "150 a", "451-b", "226 c"});
    expect_refused({">RETR x", "150 a", "226-b", "000 c"});
}

TEST(FtpReplies, WhatIsNoReply) {
    for (const char *line :
         {"", "226", "22", "226_a", "2261 a", " 226 a", "HTTP/1.1 200 OK",
          "000 a", "099 a", "600 a", "999-a", "\xff\xf4 226 a"})
        expect_refused({">RETR x", "150 a", line});
    FtpReplies nul;
    EXPECT_FALSE(nul.said(std::string_view("22\0 6 a\r\n", 9)));
}

TEST(FtpReplies, WhatComesOutOfTurn) {
    expect_refused({"120 a"});
    expect_refused({">USER u", "150 a"});
    expect_refused({">STOR x", "226 a"});
    expect_refused({">RETR x", "350 a"});
    expect_refused({">RETR x", "150 a", "150 b"});
    expect_refused({">RETR x", "150 a", "226 b", "226 c"});
}

TEST(FtpReplies, NothingIsReadForEver) {
    FtpReplies replies;
    size_t lines = 0;
    const std::string line = "220-" + std::string(996, 'x');
    while (replies.said(line))
        lines++;
    EXPECT_EQ(lines, FtpReplies::most_octets / 1000);
}

TEST(FtpReplies, TheLastWordDoesNotCount) {
    FtpReplies replies =
        after({">RETR x", "150 a", "226 b", ">QUIT", "551 c", "nothing"});
    EXPECT_TRUE(replies.quitting());
    EXPECT_TRUE(replies.received(5));
}

TEST(FtpReplies, WhatAFailureMeans) {
    using End = Outcome;
    const struct {
        std::vector<std::string> lines;
        End end;
    } cases[] = {
        {{"421 a"}, End::connection},
        {{">USER u", "530 a"}, End::login},
        {{">PASS p", "500 a"}, End::login},
        {{">PASS p", "421 a"}, End::connection},
        {{">TYPE I", "504 a"}, End::other},
        {{">SIZE x", "550 a"}, End::other},
        {{">SIZE x", "550 a", ">RETR x"}, End::done},
        {{">RETR x", "550 a"}, End::bad_name},
        {{">STOR x", "553 a"}, End::bad_name},
        {{">STOR x", "501 a"}, End::bad_name},
        {{">STOR x", "425 a"}, End::connection},
        {{">RETR x", "150 a", "426 b"}, End::connection},
        {{">STOR x", "452 a"}, End::no_space},
        {{">STOR x", "150 a", "552 b"}, End::no_space},
        {{">STOR x", "150 a", "451-b", "451 error writing"}, End::no_space},
        {{">STOR x", "150 a", "451 b"}, End::other},
        {{">STOR x", "550 No space left on device"}, End::no_space},
        {{">STOR x", "530 a"}, End::login},
        {{">STOR x", "150 No space left"}, End::done},
    };
    for (const auto &each : cases)
        EXPECT_EQ(after(each.lines).failure(), each.end) << each.lines.back();
}

} // namespace
