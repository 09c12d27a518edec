// The operator's list of switches.
#include "host/fabric/fabric.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "tests/host/support.h"

namespace {

using namespace xfhost;

constexpr const char *here =
    "switch here wwn 10:00:00:05:1e:34:01:00 address 192.0.2.1 local\n";

std::string refusal(const std::string &text) {
    std::vector<FabricSwitch> switches;
    return parse_fabric(text, switches);
}

TEST(Fabric, TakesEveryField) {
    std::vector<FabricSwitch> switches;
    EXPECT_EQ(parse_fabric("# the fabric\n\n" + std::string(here) +
                               "switch  far wwn 10:00:00:05:1E:34:01:AB\t"
                               "address 2001:db8::1 port 2222 user admin # x",
                           switches),
              "");
    ASSERT_EQ(switches.size(), 2u);
    EXPECT_EQ(switches[0].name, "here");
    EXPECT_EQ(switches[0].wwn, "100000051e340100");
    EXPECT_TRUE(switches[0].local);
    EXPECT_EQ(switches[0].port, 22);
    EXPECT_EQ(switches[1].wwn, "100000051e3401ab");
    EXPECT_EQ(switches[1].address, "2001:db8::1");
    EXPECT_FALSE(switches[1].local);
    EXPECT_EQ(switches[1].port, 2222);
    EXPECT_EQ(switches[1].user, "admin");
}

TEST(Fabric, NamesTheLineThatIsWrong) {
    const char *lines[] = {
        "switch",
        "Switch a wwn 10:00:00:05:1e:34:01:01 address 192.0.2.2",
        "switch -a wwn 10:00:00:05:1e:34:01:01 address 192.0.2.2",
        "switch a wwn 10:00:00:05:1e:34:01 address 192.0.2.2",
        "switch a wwn 00:00:00:00:00:00:00:00 address 192.0.2.2",
        "switch a wwn 10:00:00:05:1e:34:01:01 address far",
        "switch a wwn 10:00:00:05:1e:34:01:01 address",
        "switch a wwn 10:00:00:05:1e:34:01:01",
        "switch a address 192.0.2.2",
        "switch a wwn 10:00:00:05:1e:34:01:01 address 192.0.2.2 port 0",
        "switch a wwn 10:00:00:05:1e:34:01:01 address 192.0.2.2 port 65536",
        "switch a wwn 10:00:00:05:1e:34:01:01 address 192.0.2.2 user -oX",
        "switch a wwn 10:00:00:05:1e:34:01:01 address 192.0.2.2 user a;b",
        "switch a wwn 10:00:00:05:1e:34:01:01 address 192.0.2.2 color red",
    };
    for (const char *line : lines)
        EXPECT_EQ(refusal(std::string(here) + line + "\n").substr(0, 8),
                  "line 2: ")
            << line;
    std::string with_nul =
        "switch a wwn 10:00:00:05:1e:34:01:01 address 192.0.2.2?x\n";
    with_nul[with_nul.find('?')] = '\0';
    EXPECT_EQ(refusal(here + with_nul).substr(0, 8), "line 2: ");
}

TEST(Fabric, HasOneLocalSwitchAndNoNameTwice) {
    EXPECT_EQ(refusal(here), "");
    EXPECT_NE(refusal(""), "");
    EXPECT_NE(
        refusal("switch a wwn 10:00:00:05:1e:34:01:01 address 192.0.2.2\n"),
        "");
    EXPECT_NE(refusal(std::string(here) +
                      "switch b wwn 10:00:00:05:1e:34:01:01 address 192.0.2.2 "
                      "local\n"),
              "");
    EXPECT_NE(refusal(std::string(here) + here), "");
}

TEST(Fabric, FileIsTrustedOnlyIfNobodyElseWritesIt) {
    Settings settings;
    std::vector<FabricSwitch> switches;
    EXPECT_NE(load_fabric(settings, switches), "");
    settings.fabric_file = support::directory() + "/fabric";
    EXPECT_NE(load_fabric(settings, switches), "");
    support::write_file(settings.fabric_file, here);
    ASSERT_EQ(chmod(settings.fabric_file.c_str(), 0644), 0);
    EXPECT_EQ(load_fabric(settings, switches), "");
    EXPECT_EQ(local_wwn(settings), "100000051e340100");
    settings.switch_wwn = "100000051e340101";
    EXPECT_NE(load_fabric(settings, switches), "");
    EXPECT_EQ(local_wwn(settings), "100000051e340101");
    settings.switch_wwn.clear();
    ASSERT_EQ(chmod(settings.fabric_file.c_str(), 0666), 0);
    EXPECT_NE(load_fabric(settings, switches), "");
    EXPECT_EQ(local_wwn(settings), "");
}

TEST(Wwn, IsEightOctets) {
    EXPECT_EQ(wwn_digits("10:00:00:05:1e:34:01:0F"), "100000051e34010f");
    EXPECT_EQ(wwn_digits(""), "");
    EXPECT_EQ(wwn_digits("10:00:00:05:1e:34:01"), "");
    EXPECT_EQ(wwn_digits("10:00:00:05:1e:34:01:0"), "");
    EXPECT_EQ(wwn_digits("10:00:00:05:1e:34:01:0g"), "");
    EXPECT_EQ(wwn_digits("10-00-00-05-1e-34-01-0f"), "");
    EXPECT_EQ(wwn_digits("10:00:00:05:1e:34:01:0f:00"), "");
}

} // namespace
