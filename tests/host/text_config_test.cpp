#include "host/qsh/text_config.h"

#include <gtest/gtest.h>

using namespace xfhost;

namespace {

struct Applied {
    ApplyResult result;
    std::string refusals; // "number: why;" for each
};

Applied merge(TextConfig &config, std::string_view text) {
    Applied applied;
    applied.result = config.apply(
        text, [&](size_t number, std::string_view, const char *why) {
            applied.refusals += std::to_string(number) + ": " + why + ";";
        });
    return applied;
}

constexpr const char *sample = "hostname alpha\n"
                               "ntp server 192.0.2.1\n"
                               "interface eth0\n"
                               "  description to the  core\n"
                               "  address 192.0.2.7/24\n"
                               "vlan 10\n"
                               "  name blue\n";

TEST(TextConfig, PrintsWhatWasApplied) {
    TextConfig config;
    Applied applied = merge(config, sample);
    EXPECT_EQ(applied.refusals, "");
    EXPECT_EQ(applied.result.lines, 7u);
    EXPECT_EQ(config.print(), "hostname alpha\n"
                              "ntp server 192.0.2.1\n"
                              "interface eth0\n"
                              "  description to the core\n"
                              "  address 192.0.2.7/24\n"
                              "vlan 10\n"
                              "  name blue\n");
}

TEST(TextConfig, ApplyingAgainChangesNothing) {
    TextConfig config;
    merge(config, sample);
    std::string once = config.print();
    merge(config, once);
    EXPECT_EQ(config.print(), once);
}

TEST(TextConfig, Merges) {
    TextConfig config;
    merge(config, sample);
    merge(config, "hostname beta\nntp server 192.0.2.2\n"
                  "interface eth0\n  description new\n"
                  "interface eth1\n  shutdown\n");
    EXPECT_EQ(config.print(), "hostname beta\n"
                              "ntp server 192.0.2.1\n"
                              "interface eth0\n"
                              "  description new\n"
                              "  address 192.0.2.7/24\n"
                              "vlan 10\n"
                              "  name blue\n"
                              "ntp server 192.0.2.2\n"
                              "interface eth1\n"
                              "  shutdown\n");
}

TEST(TextConfig, NoRemoves) {
    TextConfig config;
    merge(config, sample);
    Applied applied = merge(config, "no hostname\nno ntp server 192.0.2.1\n"
                                    "interface eth0\n  no description\n"
                                    "no vlan 10\nno vlan 11\n");
    EXPECT_EQ(applied.refusals, "");
    EXPECT_EQ(config.print(), "interface eth0\n  address 192.0.2.7/24\n");
}

TEST(TextConfig, NoOfAListNeedsTheWholeLine) {
    TextConfig config;
    merge(config, sample);
    Applied applied = merge(config, "no ntp server\n");
    EXPECT_EQ(applied.refusals, "1: too few arguments;");
}

TEST(TextConfig, CommentsAndBlankLinesAreNothing) {
    TextConfig config;
    Applied applied = merge(config, "! a comment\n\n   \n  ! another\r\n");
    EXPECT_EQ(applied.result.lines, 0u);
    EXPECT_EQ(config.print(), "");
}

TEST(TextConfig, CarriageReturnsAndAMissingLastNewline) {
    TextConfig config;
    EXPECT_EQ(merge(config, "hostname a\r\nvlan 3").refusals, "");
    EXPECT_EQ(config.print(), "hostname a\nvlan 3\n");
}

TEST(TextConfig, WhatIsRefused) {
    struct {
        const char *text;
        const char *refusals;
    } cases[] = {
        {"frobnicate\n", "1: unknown command;"},
        {"hostname\n", "1: too few arguments;"},
        {"hostname a b\n", "1: too many arguments;"},
        {"vlan 4095\n", "1: not a VLAN id from 1 to 4094;"},
        {"ntp server ntp.example\n", "1: not an IPv4 or IPv6 address;"},
        {"route 10.0.0.0/33 192.0.2.1\n",
         "1: not an address and prefix length;"},
        {"  hostname a\n", "1: indented, but not in a mode;"},
        {"hostname a\n  vlan 3\n", "2: indented, but not in a mode;"},
        {"interface e\n  mtu 9000\n    shutdown\n",
         "3: indentation differs in its block;"},
        {"hostname caf\xc3\xa9\n", "1: not printable ASCII;"},
        {"hostname a\x01\n", "1: not printable ASCII;"},
        {"mtu 9000\n", "1: unknown command;"},
        {"no\n", "1: unknown command;"},
    };
    for (const auto &each : cases) {
        TextConfig config;
        EXPECT_EQ(merge(config, each.text).refusals, each.refusals)
            << each.text;
    }
}

TEST(TextConfig, ALineHasALongestLength) {
    TextConfig config;
    std::string longest = "banner " + std::string(longest_line - 7, 'x');
    EXPECT_EQ(merge(config, longest).refusals, "");
    EXPECT_EQ(merge(config, longest + "x").refusals, "1: line too long;");
}

TEST(TextConfig, ANulIsRefused) {
    TextConfig config;
    EXPECT_EQ(merge(config, std::string_view("hostname a\0b\n", 13)).refusals,
              "1: not printable ASCII;");
}

TEST(TextConfig, LinesUnderARefusedOneGoWithIt) {
    TextConfig config;
    Applied applied = merge(config, "vlan 9999\n  name blue\nhostname a\n");
    EXPECT_EQ(applied.refusals, "1: not a VLAN id from 1 to 4094;"
                                "2: the line that it is under was refused;");
    EXPECT_EQ(config.print(), "hostname a\n");
}

TEST(TextConfig, StopsAfterTooManyRefusals) {
    TextConfig config;
    std::string text;
    for (size_t i = 0; i < most_refused; i++)
        text += "bad\n";
    EXPECT_FALSE(merge(config, text).result.stopped);
    Applied applied = merge(config, "hostname a\n" + text + "hostname b\n");
    EXPECT_TRUE(applied.result.stopped);
    EXPECT_EQ(applied.result.refused, most_refused);
    EXPECT_EQ(config.print(), "hostname a\n");
}

TEST(TextConfig, LoadKeepsWhatItDoesNotUnderstand) {
    const char *stored = "hostname a\n"
                         "future thing\n"
                         "  with a part\n"
                         "interface e\n"
                         "  strange\n"
                         "  shutdown\n";
    TextConfig config;
    config.load(stored);
    EXPECT_EQ(config.print(), stored);
    merge(config, "interface e\n  no shutdown\n");
    EXPECT_EQ(config.print(), "hostname a\nfuture thing\n  with a part\n"
                              "interface e\n  strange\n");
}

// Printed, it would be one of them: it counts from the first load on.
TEST(TextConfig, AStoredLineWithLessIndentationIsOneOfItsNeighbours) {
    TextConfig config;
    config.load("vrf blue\n    description a\n  description b\n"
                "    route 10.0.0.0/8 192.0.2.1\n");
    EXPECT_EQ(config.print(), "vrf blue\n  description b\n"
                              "  route 10.0.0.0/8 192.0.2.1\n");
    TextConfig again;
    again.load(config.print());
    EXPECT_EQ(again.print(), config.print());
}

} // namespace
