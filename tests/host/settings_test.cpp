#include "host/base/settings.h"

#include <map>

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "tests/host/support.h"

using namespace xfhost;

namespace {

Environment environment_of(std::map<std::string, std::string> variables) {
    return [variables](const char *name) -> const char * {
        auto found = variables.find(name);
        return found == variables.end() ? nullptr : found->second.c_str();
    };
}

std::string config_file(const std::string &text, mode_t mode = 0600) {
    std::string path = support::directory() + "/settings.conf";
    support::write_file(path, text);
    chmod(path.c_str(), mode);
    return path;
}

TEST(Settings, LinesCommentsAndBlanks) {
    Settings s;
    EXPECT_EQ(parse_settings(s, "# comment\n\n  tftp_port\t 1069 \r\n"
                                "state_directory /a b/c/\nroot /r"),
              "");
    EXPECT_EQ(s.tftp_port, 1069);
    EXPECT_EQ(s.state_directory, "/a b/c");
    EXPECT_EQ(s.root, "/r");
}

TEST(Settings, SwitchAndFabric) {
    Settings s;
    EXPECT_EQ(parse_settings(s, "switch_wwn 10:00:00:05:1E:34:01:00\n"
                                "fabric_file /etc/fabric\n"
                                "fabric_command save 'the configuration'\n"
                                "save_delay_seconds 30\n"
                                "manager_restart_seconds 0\n"),
              "");
    EXPECT_EQ(s.switch_wwn, "100000051e340100");
    EXPECT_EQ(s.fabric_file, "/etc/fabric");
    EXPECT_EQ(s.fabric_command, "save 'the configuration'");
    EXPECT_EQ(s.save_delay_seconds, 30);
    EXPECT_EQ(s.manager_restart_seconds, 0);
}

TEST(Settings, Limits) {
    Settings s;
    EXPECT_EQ(parse_settings(s, "download_octets 5000000000\n"
                                "table_rows 3\n"
                                "shell_names yes\n"),
              "");
    EXPECT_EQ(s.download_octets, 5000000000);
    EXPECT_EQ(s.table_rows, 3);
    EXPECT_TRUE(s.shell_names);
    EXPECT_NE(set_setting(s, "download_octets", "0"), "");
    EXPECT_NE(set_setting(s, "table_rows", "0"), "");
    EXPECT_NE(set_setting(s, "shell_names", "1"), "");
}

TEST(Settings, BackEnd) {
    Settings s;
    EXPECT_EQ(s.backend, "text");
    EXPECT_FALSE(s.frr_file_commands);
    EXPECT_FALSE(s.apply_atomic);
    EXPECT_EQ(parse_settings(s, "backend frr\nvtysh_seconds 5\n"
                                "frr_daemons zebra bgpd\napply_atomic yes\n"
                                "frr_directory /etc/x/\n"
                                "vtysh_program /x/vtysh\n"),
              "");
    EXPECT_EQ(s.backend, "frr");
    EXPECT_EQ(s.vtysh_seconds, 5);
    EXPECT_EQ(s.frr_daemons, "zebra bgpd");
    EXPECT_TRUE(s.apply_atomic);
    EXPECT_EQ(s.frr_directory, "/etc/x");
    EXPECT_EQ(s.vtysh_program, "/x/vtysh");
    EXPECT_NE(set_setting(s, "backend", "other"), "");
    EXPECT_NE(set_setting(s, "vtysh_program", "vtysh"), "");
    EXPECT_NE(set_setting(s, "vtysh_seconds", "0"), "");
}

TEST(Settings, ErrorsNameTheLine) {
    Settings s;
    EXPECT_EQ(parse_settings(s, "tftp_port 69\ncolour blue\n"),
              "line 2: unknown key \"colour\"");
    EXPECT_EQ(parse_settings(s, "tftp_port 70000"),
              "line 1: tftp_port: \"70000\" is not a number from 1 to 65535");
}

TEST(Settings, BadValuesAreRefused) {
    Settings s;
    EXPECT_NE(set_setting(s, "tftp_port", "69x"), "");
    EXPECT_NE(set_setting(s, "tftp_port", ""), "");
    EXPECT_NE(set_setting(s, "tftp_port", "-1"), "");
    EXPECT_NE(set_setting(s, "run_directory", "relative"), "");
    EXPECT_NE(set_setting(s, "run_directory", ""), "");
    EXPECT_NE(set_setting(s, "management_address", "host.example"), "");
    EXPECT_NE(set_setting(s, "management_address",
                          std::string_view("192.0.2.1\0x", 11)),
              "");
    EXPECT_NE(set_setting(s, "fabric_command", std::string_view("a\0b", 3)),
              "");
    EXPECT_NE(set_setting(s, "trace_history", "1"), "");
    EXPECT_NE(set_setting(s, "default_vrf", "two words"), "");
    EXPECT_NE(set_setting(s, "switch_wwn", "10:00"), "");
    EXPECT_NE(set_setting(s, "fabric_command", ""), "");
    EXPECT_NE(set_setting(s, "fabric_file", "relative"), "");
    EXPECT_NE(set_setting(s, "fabric_parallel", "0"), "");
    EXPECT_EQ(s.tftp_port, 69);
    EXPECT_EQ(s.management_address, "");
    EXPECT_EQ(s.run_directory, "/run/xfplatform");
}

TEST(Settings, AFabricOfTheSameInstallation) {
    EXPECT_EQ(Settings().fabric_command,
              Settings().root +
                  "/brim/bin/qsh -c 'copy running-config startup-config'");
}

TEST(Settings, TheEnvironmentWins) {
    std::string file = config_file("tftp_port 1000\nchassis_type 22\n");
    Settings s;
    EXPECT_EQ(load_settings(s, environment_of({{"XF_CONFIG", file},
                                               {"XF_TFTP_PORT", "2000"}})),
              "");
    EXPECT_EQ(s.tftp_port, 2000);
    EXPECT_EQ(s.chassis_type, 22);
}

TEST(Settings, ABadVariableIsAnError) {
    std::string file = config_file("");
    Settings s;
    EXPECT_EQ(load_settings(s, environment_of({{"XF_CONFIG", file},
                                               {"XF_TFTP_PORT", "tftp"}})),
              "XF_TFTP_PORT: \"tftp\" is not a number from 1 to 65535");
}

TEST(Settings, AnUnknownVariableIsAnError) {
    std::string file = config_file("");
    Environment environment = environment_of({{"XF_CONFIG", file}});
    Settings s;
    EXPECT_EQ(load_settings(s, environment,
                            {"HOME", "XF_CONFIG", "XF_ROOT", "XFCE", "xf_a"}),
              "");
    EXPECT_EQ(load_settings(s, environment, {"XF_ROOT", "XF_TFTP_PROT"}),
              "unknown variable XF_TFTP_PROT");
    EXPECT_EQ(load_settings(s, environment, {"XF_"}), "unknown variable XF_");
}

TEST(Settings, AFileThatWasNamedMustBeThere) {
    Settings s;
    std::string missing = support::directory() + "/nowhere.conf";
    EXPECT_NE(load_settings(s, environment_of({{"XF_CONFIG", missing}})), "");
}

TEST(Settings, AFileThatOthersCanWriteIsRefused) {
    Settings s;
    std::string file = config_file("tftp_port 1000\n", 0666);
    EXPECT_NE(load_settings(s, environment_of({{"XF_CONFIG", file}})), "");
    EXPECT_EQ(s.tftp_port, 69);
}

TEST(Settings, AnEndlessFileIsRefused) {
    Settings s;
    std::string file = config_file(std::string(70000, '#'));
    EXPECT_NE(load_settings(s, environment_of({{"XF_CONFIG", file}})), "");
}

} // namespace
