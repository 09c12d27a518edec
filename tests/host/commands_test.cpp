// What each command of the text configuration takes, up to its limits.
#include "host/qsh/commands.h"

#include <gtest/gtest.h>

using namespace xfhost;

namespace {

const std::string longest_name(64, 'n');
const std::string longer_name(65, 'n');

void expect_taken(Mode mode, const std::string &line) {
    EXPECT_EQ(parse_line(mode, line).error, nullptr) << line;
}

void expect_refused(Mode mode, const std::string &line, const char *why) {
    EXPECT_STREQ(parse_line(mode, line).error, why) << line;
}

// A word of 64 characters and no more of them.
void expect_name(Mode mode, const std::string &command) {
    expect_refused(mode, command, "too few arguments");
    expect_taken(mode, command + " n");
    expect_taken(mode, command + " " + longest_name);
    expect_refused(mode, command + " " + longer_name,
                   "name longer than 64 characters");
    expect_refused(mode, command + " a b", "too many arguments");
}

// Any number of words, as long as the line may be.
void expect_text(Mode mode, const std::string &command) {
    expect_refused(mode, command, "too few arguments");
    size_t room = longest_line - command.size() - 1;
    expect_taken(mode, command + " " + std::string(room, 't'));
    expect_refused(mode, command + " " + std::string(room + 1, 't'),
                   "line too long");
    std::string words = command;
    while (words.size() + 2 <= longest_line)
        words += " w";
    expect_taken(mode, words);
}

void expect_number(Mode mode, const std::string &command, int low, int high,
                   const char *why) {
    expect_refused(mode, command, "too few arguments");
    expect_refused(mode, command + " " + std::to_string(low - 1), why);
    expect_taken(mode, command + " " + std::to_string(low));
    expect_taken(mode, command + " " + std::to_string(high));
    expect_refused(mode, command + " " + std::to_string(high + 1), why);
    expect_refused(mode, command + " 99999999999999999999", why);
    expect_refused(mode, command + " " + std::to_string(low) + "x", why);
    expect_refused(mode, command + " 1 2", "too many arguments");
}

void expect_address(Mode mode, const std::string &command) {
    constexpr const char *why = "not an IPv4 or IPv6 address";
    expect_refused(mode, command, "too few arguments");
    expect_taken(mode, command + " 0.0.0.0");
    expect_taken(mode, command + " 255.255.255.255");
    expect_refused(mode, command + " 255.255.255.256", why);
    expect_taken(mode, command + " ::");
    expect_taken(mode, command + " ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff");
    expect_refused(mode, command + " 1:2:3:4:5:6:7:8:9", why);
    expect_refused(mode, command + " 192.0.2.1 192.0.2.2",
                   "too many arguments");
}

// `rest` is what follows the prefix.
void expect_prefix(Mode mode, const std::string &command,
                   const std::string &rest) {
    constexpr const char *why = "not an address and prefix length";
    expect_taken(mode, command + " 0.0.0.0/0" + rest);
    expect_taken(mode, command + " 192.0.2.1/32" + rest);
    expect_refused(mode, command + " 192.0.2.1/33" + rest, why);
    expect_refused(mode, command + " 192.0.2.1/-1" + rest, why);
    expect_taken(mode, command + " ::/0" + rest);
    expect_taken(mode, command + " 2001:db8::1/128" + rest);
    expect_refused(mode, command + " 2001:db8::1/129" + rest, why);
    expect_refused(mode, command + " 192.0.2.1" + rest, why);
    expect_refused(mode, command, "too few arguments");
    expect_refused(mode, command + " 192.0.2.1/32" + rest + " x",
                   "too many arguments");
}

void expect_route(Mode mode) {
    expect_prefix(mode, "route", " 192.0.2.254");
    expect_refused(mode, "route 192.0.2.0/24", "too few arguments");
    expect_refused(mode, "route 192.0.2.0/24 gateway",
                   "next hop is not an address");
}

TEST(Commands, OfTheTopMode) {
    for (const char *command : {"hostname", "feature"})
        expect_name(Mode::top, command);
    for (const char *command : {"banner", "contact", "location"})
        expect_text(Mode::top, command);
    for (const char *command : {"name-server", "ntp server", "log server"})
        expect_address(Mode::top, command);
    expect_route(Mode::top);
}

// One word, which the length of the line alone limits.
TEST(Commands, DomainName) {
    std::string room(longest_line - std::string("domain-name ").size(), 'd');
    expect_refused(Mode::top, "domain-name", "too few arguments");
    expect_taken(Mode::top, "domain-name " + room);
    expect_refused(Mode::top, "domain-name d" + room, "line too long");
    expect_refused(Mode::top, "domain-name a b", "too many arguments");
}

TEST(Commands, ThatOpenAMode) {
    expect_name(Mode::top, "vrf");
    expect_name(Mode::top, "interface");
    expect_number(Mode::top, "vlan", 1, 4094, "not a VLAN id from 1 to 4094");
}

TEST(Commands, OfAnInterface) {
    expect_text(Mode::interface, "description");
    expect_taken(Mode::interface, "shutdown");
    expect_refused(Mode::interface, "shutdown now", "too many arguments");
    expect_number(Mode::interface, "mtu", 576, 9216,
                  "not an MTU from 576 to 9216");
    expect_prefix(Mode::interface, "address", "");
    expect_number(Mode::interface, "vlan", 1, 4094,
                  "not a VLAN id from 1 to 4094");
    expect_name(Mode::interface, "vrf");
}

TEST(Commands, OfAVlanAndAVrf) {
    expect_name(Mode::vlan, "name");
    expect_text(Mode::vrf, "description");
    expect_route(Mode::vrf);
}

TEST(Commands, BelongToTheirModes) {
    expect_refused(Mode::top, "mtu 1500", "unknown command");
    expect_refused(Mode::interface, "hostname a", "unknown command");
    expect_refused(Mode::vlan, "route 192.0.2.0/24 192.0.2.1",
                   "unknown command");
    expect_refused(Mode::vrf, "name a", "unknown command");
}

} // namespace
