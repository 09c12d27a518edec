#include "host/qsh/frr_reader.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "host/qsh/frr_apply.h"
#include "host/qsh/frr_backend.h"

namespace {

using namespace xfhost;

// The numbers of the refused lines.
std::vector<size_t> refused(std::string_view text, bool file_commands = false) {
    std::vector<size_t> numbers;
    for (const FrrLine &line : read_frr(text, file_commands))
        if (!line.refusal.empty())
            numbers.push_back(line.number);
    return numbers;
}

// What vtysh would be given.
std::string script(std::string_view text) {
    FrrLines lines = read_frr(text, false);
    FrrScript script;
    for (size_t i = 0; i < lines.size(); i++)
        if (lines[i].refusal.empty())
            script.add(lines, i);
    EXPECT_EQ(script.lines.size(),
              static_cast<size_t>(
                  std::count(script.text.begin(), script.text.end(), '\n')));
    return script.text;
}

using Numbers = std::vector<size_t>;

TEST(FrrReader, NothingIsNothing) {
    EXPECT_TRUE(read_frr("", false).empty());
    EXPECT_TRUE(read_frr("\n\n \t\r\n! x\n # y\nend\n!\n\n", false).empty());
    EXPECT_TRUE(read_frr("end", false).empty());
    EXPECT_TRUE(read_frr("\n", false).empty());
}

TEST(FrrReader, LinesStandInTheirBlocks) {
    FrrLines lines = read_frr("router bgp 1\n"
                              " neighbor  10.0.0.1\tremote-as 2\r\n"
                              " address-family ipv4 unicast\n"
                              "  network 10.0.0.0/8\n"
                              " exit-address-family\n"
                              " timers bgp 1 3\n"
                              "exit\n"
                              "ip route 10.0.0.0/8 Null0\n",
                              false);
    ASSERT_EQ(lines.size(), 6u);
    EXPECT_EQ(lines[1].text, "neighbor 10.0.0.1 remote-as 2");
    EXPECT_EQ(frr_path(lines, 3), "router bgp 1\naddress-family ipv4 unicast\n"
                                  "network 10.0.0.0/8");
    EXPECT_EQ(frr_path(lines, 4), "router bgp 1\ntimers bgp 1 3");
    EXPECT_EQ(frr_path(lines, 5), "ip route 10.0.0.0/8 Null0");
    EXPECT_EQ(lines[5].number, 8u);
}

TEST(FrrReader, RefusesWhatIsNoConfiguration) {
    for (const char *word : {"exit",
                             "quit",
                             "exit-vrf",
                             "end\nip",
                             "en",
                             "ex",
                             "qu",
                             "do",
                             "do show",
                             "write",
                             "wr",
                             "copy a b",
                             "show x",
                             "sh",
                             "clear x",
                             "configure",
                             "conf t",
                             "list",
                             "find x",
                             "output file /x",
                             "ou",
                             "terminal monitor",
                             "ping 1",
                             "no",
                             "no exit",
                             "no output file",
                             "start-shell",
                             "router bgp 1\n write memory",
                             "router bgp 1\nexit\nexit",
                             "vrf a\nend\n ip route 1.0.0.0/8 b"})
        EXPECT_NE(refused(std::string(word) + "\nagentx\n"), Numbers{}) << word;
}

TEST(FrrReader, RefusesWhatOpensFiles) {
    for (const char *line :
         {"log file /x", "log f /x", "log filtered-file /x", "log commands",
          "log", "dump bgp all /x", "banner motd file /x", "banner motd f /x",
          "nhrp event socket /x", "vrf a\n netns /x"}) {
        EXPECT_EQ(refused(line).size(), 1u) << line;
        EXPECT_EQ(refused(line, true), Numbers{}) << line;
    }
    EXPECT_EQ(refused("log syslog informational\nbanner motd default\n"
                      "no log file\nnhrp nflog-group 1\n"),
              Numbers{});
}

TEST(FrrReader, RefusesFilters) {
    for (const char *line :
         {"route-map | permit 1", "interface | x",
          "banner motd line a | include b", "banner motd line a|\tb"})
        EXPECT_EQ(refused(line), Numbers{1}) << line;
    EXPECT_EQ(refused("route-map | permit 1\n set metric 9\nagentx\n"),
              (Numbers{1, 2}));
    EXPECT_EQ(refused("interface a|b\n description a |b|\n"), Numbers{});
}

TEST(FrrReader, RefusesHeadersThatAreNotInFull) {
    for (const char *line : {"router b 1", "router os", "router isi a",
                             "key ch a", "line v", "mpls ld"})
        EXPECT_EQ(refused(line), Numbers{1}) << line;
    EXPECT_EQ(refused("router b 1\n bgp router-id 1.1.1.1\nagentx\n"),
              (Numbers{1, 2}));
    EXPECT_EQ(refused("no router b 1\nmpls label bind 1.0.0.0/8 5\n"),
              Numbers{});
}

TEST(FrrReader, RefusesOctetsThatVtyshMistakes) {
    EXPECT_EQ(refused(std::string("agentx\0\nagentx", 14)), Numbers{1});
    EXPECT_EQ(refused("agentx\n\x1b agentx\n"), Numbers{2});
    EXPECT_EQ(refused("\xef\xbb\xbf"
                      "agentx\n"),
              Numbers{1});
    EXPECT_EQ(refused("agentx\rwrite\n"), Numbers{1});
    std::string name = "interface a\n description ";
    EXPECT_EQ(refused(name + std::string(4000 - 13, 'x')), Numbers{});
    EXPECT_EQ(refused(name + std::string(4001 - 13, 'x')), Numbers{2});
    EXPECT_EQ(refused(name + "\xc3\xa4\xff\n"), Numbers{});
}

TEST(FrrReader, WhatIsUnderARefusedLineIsRefused) {
    EXPECT_EQ(refused("rpki\n rpki cache a 1\n exit-x\nexit\nagentx\n"),
              (Numbers{1, 2}));
    // The exit tells that it was a block, whatever the indentation.
    EXPECT_EQ(refused("wlan red\nip route 1.0.0.0/8 a\nexit\nagentx\n"),
              (Numbers{1, 2}));
    EXPECT_EQ(refused("router bgp 1\n vnc defaults\n  rd 1\n exit-vnc\n"
                      " timers bgp 1 3\nexit\nagentx\n"),
              (Numbers{2, 3}));
    // Not one that is only wrong.
    EXPECT_EQ(refused("nonsense\nagentx\nrouter bgp 1\nexit\n"), Numbers{1});
}

TEST(FrrReader, AnIndentedLineDoesNotLeaveItsBlock) {
    EXPECT_EQ(refused("router rip\n router-id 1.1.1.1\n"), Numbers{2});
    EXPECT_EQ(refused("router rip\nrouter-id 1.1.1.1\n"), Numbers{});
}

TEST(FrrReader, ARefusedHeaderTakesItsBlockWithIt) {
    FrrLines lines = read_frr("router bgp 1\n address-family ipv4 unicast\n"
                              "  network 10.0.0.0/8\nexit\nagentx\n",
                              false);
    refuse_frr(lines, 0, "why");
    EXPECT_EQ(lines[0].refusal, "why");
    EXPECT_NE(lines[1].refusal, "");
    EXPECT_NE(lines[2].refusal, "");
    EXPECT_EQ(lines[3].refusal, "");
}

TEST(FrrScript, LeavesBlocksWithoutExit) {
    EXPECT_EQ(script("vrf red\n ip route 1.0.0.0/8 a\nexit-vrf\n"
                     "ip route 2.0.0.0/8 a\nip route 3.0.0.0/8 a\n"),
              "vrf red\nip route 1.0.0.0/8 a\nline vty\n"
              "ip route 2.0.0.0/8 a\nip route 3.0.0.0/8 a\n");
    // Nothing in a route-map could be taken for the next one.
    EXPECT_EQ(script("route-map a permit 1\n set metric 1\nexit\n"
                     "route-map a permit 2\nexit\nagentx\n"),
              "route-map a permit 1\nset metric 1\nroute-map a permit 2\n"
              "agentx\n");
    EXPECT_EQ(script("router bgp 1\n address-family ipv4 unicast\n"
                     "  network 1.0.0.0/8\n exit-address-family\n"
                     " neighbor a activate\n"),
              "router bgp 1\naddress-family ipv4 unicast\nnetwork 1.0.0.0/8\n"
              "router bgp 1\nneighbor a activate\n");
    // A daemon that was not told of the route is in its block still.
    EXPECT_EQ(script("router bgp 1\nexit\nroute-map a permit 1\nexit\n"
                     "bgp suppress-fib-pending\n"),
              "router bgp 1\nroute-map a permit 1\nline vty\n"
              "bgp suppress-fib-pending\n");
}

TEST(FrrMasked, HostBits) {
    EXPECT_EQ(frr_masked("10.23.1.5/24"), "10.23.1.0/24");
    EXPECT_EQ(frr_masked("10.23.1.5/0"), "0.0.0.0/0");
    EXPECT_EQ(frr_masked("10.23.1.5/32"), "10.23.1.5/32");
    EXPECT_EQ(frr_masked("2001:db8::1/32"), "2001:db8::/32");
    for (const char *same : {"10.23.1.5", "10.23.1.5/33", "10.23.1.5/x", "a/b",
                             "/", "10.1/8", "::/129", "10.23.1.5/"})
        EXPECT_EQ(frr_masked(same), same);
}

TEST(FrrShow, IsTakenApart) {
    FrrPrinted printed;
    EXPECT_EQ(
        take_printed(" zebra bgpd\nfrr version 8\n!\nend\n zebra\n", printed),
        "");
    EXPECT_EQ(printed.before, " zebra bgpd\n");
    EXPECT_EQ(printed.text, "frr version 8\n!\nend\n");
    EXPECT_EQ(printed.after, " zebra\n");
}

TEST(FrrShow, CountsOnlyWhole) {
    using namespace std::string_literals;
    FrrPrinted printed;
    for (const std::string &text :
         {""s, "\n"s, " "s, " \n"s, " \n \n"s, " zebra"s, " zebra\n"s,
          " zebra\n zebra\n"s, " zebra\nend\n zebra\n"s,
          "frr version 8\n!\nend\n"s, " zebra\nfrr version 8\n!\nend\n"s,
          "frr version 8\n!\nend\n zebra\n"s,
          " zebra\nfrr version 8\n!\nend\n zebra"s,
          " zebra\nfrr version 8\n!\n zebra\n"s,
          " zebra\nnonsense\n!\nend\n zebra\n"s,
          " zebra\nfrr version 8\n\0\nend\n zebra\n"s,
          " zebra\nfrr version 8\nvtysh: error\nend\n zebra\n"s,
          "vtysh: error reading from bgpd\n zebra\nfrr version 8\nend\n z\n"s,
          " zebra\nfrr version 8\n% Unknown command\nend\n zebra\n"s})
        EXPECT_NE(take_printed(text, printed), "") << text;
}

TEST(FrrDaemons, ThatTheServiceStarts) {
    EXPECT_EQ(started_daemons("# bgpd=yes\nbgpd=yes\nospfd=no\nzebra=yes\n"
                              "vtysh_enable=yes\nbfdd=yes\n"),
              (std::vector<std::string>{"zebra", "staticd", "bgpd", "bfdd"}));
}

} // namespace
