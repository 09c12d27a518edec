#include "xfcopy/text.h"

#include <clocale>

#include <gtest/gtest.h>

using namespace xfcopy;

namespace {

class Text : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_NE(setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    }
    void TearDown() override {
        setlocale(LC_CTYPE, "C");
    }
};

TEST_F(Text, WhatCanBePrintedStays) {
    EXPECT_EQ(shown("plain text, 100%"), "plain text, 100%");
    EXPECT_EQ(shown("caf\xc3\xa9 \xe4\xb8\xad \xf0\x9f\x98\x80"),
              "caf\xc3\xa9 \xe4\xb8\xad \xf0\x9f\x98\x80");
    EXPECT_EQ(shown(""), "");
}

TEST_F(Text, NothingMovesTheTerminal) {
    EXPECT_EQ(shown("a\x1b[2J\r\n\t\x7f\x07"
                    "b"),
              "a\\x1b[2J\\x0d\\x0a\\x09\\x7f\\x07"
              "b");
    EXPECT_EQ(shown(std::string("a\0b", 3)), "a\\x00b");
    EXPECT_EQ(shown("\xc2\x9b"
                    "2J"), // a control sequence in one character
              "\\u{9b}2J");
    EXPECT_EQ(shown(std::string("\xe2\x80") + "\xae"
                                              "gfc"), // right to left
              "\\u{202e}gfc");
    EXPECT_EQ(shown("\xe2\x80\xa8\xef\xbb\xbf\xf3\xa0\x81\x81"),
              "\\u{2028}\\u{feff}\\u{e0041}");
    EXPECT_EQ(shown("a\\x1b"), "a\\\\x1b");
}

TEST_F(Text, OctetsThatAreNoUtf8) {
    EXPECT_EQ(shown("\xff\xc3(\xe4\xb8"), "\\xff\\xc3(\\xe4\\xb8");
    EXPECT_EQ(shown("\xc0\xaf"), "\\xc0\\xaf");                   // too long
    EXPECT_EQ(shown("\xe0\x80\xaf"), "\\xe0\\x80\\xaf");          // too long
    EXPECT_EQ(shown("\xed\xa0\x80"), "\\xed\\xa0\\x80");          // surrogate
    EXPECT_EQ(shown("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80"); // too large
}

TEST_F(Text, EveryOctetIsHarmless) {
    for (int octet = 0; octet < 256; ++octet)
        for (const char c : shown(std::string(1, static_cast<char>(octet))))
            EXPECT_TRUE(c >= 0x20 && c < 0x7f) << octet;
}

TEST_F(Text, ALocaleThatKnowsAsciiOnly) {
    setlocale(LC_CTYPE, "C");
    EXPECT_EQ(shown("caf\xc3\xa9"), "caf\\u{e9}");
}

TEST_F(Text, Width) {
    EXPECT_EQ(width(""), 0U);
    EXPECT_EQ(width("abc"), 3U);
    EXPECT_EQ(width("caf\xc3\xa9"), 4U);
    EXPECT_EQ(width("\xe4\xb8\xad\xe4\xb8\xad"), 4U);
    EXPECT_EQ(width("e\xcc\x81"), 1U); // an accent of its own
}

TEST_F(Text, FittedTextHasRoom) {
    const std::string text =
        "12.3 s  running  running to sftp://u@\xe4\xb8\xad\xe6\x96\x87/x.cfg";
    for (size_t columns = 0; columns < width(text); ++columns)
        EXPECT_LE(width(fitted(text, columns)), columns);
    EXPECT_EQ(fitted(text, width(text)), text);
    EXPECT_EQ(fitted(text, 39), "12.3 s  running  running to sftp://u...");
    EXPECT_EQ(fitted("\xe4\xb8\xad\xe4\xb8\xad\xe4\xb8\xad", 5),
              "\xe4\xb8\xad...");
    EXPECT_EQ(fitted("abcdef", 2), "..");
}

TEST_F(Text, ColumnsAreAligned) {
    EXPECT_EQ(aligned({{"A", "B"}, {"long", "x"}, {"\xe4\xb8\xad", "y"}}),
              "A     B\nlong  x\n\xe4\xb8\xad    y\n");
    EXPECT_EQ(aligned(TableLines{}), "");
    std::vector<size_t> widths;
    EXPECT_EQ(aligned({{"long", "B"}}, widths), "long  B\n");
    EXPECT_EQ(aligned({{"A", "B"}}, widths), "A     B\n");
    EXPECT_EQ(aligned({{"longer", "B"}}, widths), "longer  B\n");
}

TEST_F(Text, Seconds) {
    EXPECT_EQ(seconds_text(0), "0.0 s");
    EXPECT_EQ(seconds_text(523), "5.2 s");
    EXPECT_EQ(seconds_text(360099), "3600.9 s");
}

TEST(Json, Strings) {
    EXPECT_EQ(json_string("a\"b\\c/"), "\"a\\\"b\\\\c/\"");
    EXPECT_EQ(json_string(std::string("\0\n\x1b\x7f", 4)),
              "\"\\u0000\\u000a\\u001b\\u007f\"");
    EXPECT_EQ(json_string("caf\xc3\xa9 \xf0\x9f\x98\x80"),
              "\"caf\xc3\xa9 \xf0\x9f\x98\x80\"");
    EXPECT_EQ(json_string("\xff x \xed\xa0\x80"),
              "\"\\ufffd x \\ufffd\\ufffd\\ufffd\"");
    EXPECT_EQ(json_string("\xf3\xa0\x81\x81"), "\"\\udb40\\udc41\"");
}

TEST(Json, ObjectsKeepTheirOrder) {
    JsonObject object;
    object.text("z", "1").number("a", -5).null("n").boolean("b", true).seconds(
        "s", 205);
    EXPECT_EQ(object.line(),
              "{\"z\":\"1\",\"a\":-5,\"n\":null,\"b\":true,\"s\":2.05}\n");
    EXPECT_EQ(JsonObject().line(), "{}\n");
}

} // namespace
