#include "xfcopy/history.h"

#include <gtest/gtest.h>

#include "xfcopy/words.h"

using namespace xfcopy;

namespace {

std::string octets(std::initializer_list<int> values) {
    return {values.begin(), values.end()};
}

TEST(History, TimesAreWritten) {
    EXPECT_EQ(time_text(octets({7, 234, 11, 22, 1, 15, 25, 8, '+', 0, 0})),
              "2026-11-22T01:15:25Z");
    EXPECT_EQ(time_text(octets({7, 234, 11, 22, 1, 15, 25, 8, '-', 3, 30})),
              "2026-11-22T01:15:25-03:30");
    EXPECT_EQ(time_text(octets({7, 234, 11, 22, 1, 15, 25, 8})),
              "2026-11-22T01:15:25");
}

TEST(History, WhatIsNoTimeIsEmpty) {
    EXPECT_EQ(time_text(""), "");
    EXPECT_EQ(time_text("2026"), "");
    EXPECT_EQ(time_text(std::string(8, '\0')), "");
}

TEST(History, SentencesBecomeParts) {
    EXPECT_EQ(sentence_part("It was slow."), "it was slow");
    EXPECT_EQ(sentence_part("It was cut..."), "it was cut...");
    EXPECT_EQ(sentence_part("FTP said \"no\"."), "FTP said \"no\"");
    EXPECT_EQ(sentence_part(""), "");
    EXPECT_EQ(sentence_part("A\x1b[0m"), "A\\x1b[0m");
}

} // namespace
