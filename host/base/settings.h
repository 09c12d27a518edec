// What an operator can set. Each key of the configuration file can also be
// given as an environment variable, XF_ and the key in capitals, which wins.
#ifndef HOST_BASE_SETTINGS_H
#define HOST_BASE_SETTINGS_H

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace xfhost {

// Where the programs are once they are installed, and the user that the agent
// was installed for; empty if there is none.
extern const char *const installed_root;
extern const char *const installed_user;

struct Settings {
    std::string root{installed_root};                    // before /brim/...
    std::string run_directory = "/run/xfplatform";       // sockets
    std::string state_directory = "/var/lib/xfplatform"; // what must last
    std::string user{installed_user};                    // runs the agent
    std::string management_interface;
    std::string management_address;
    std::string default_vrf; // of a request without a context
    std::optional<int> chassis_type;
    int partition_type = 1;
    int tftp_port = 69;
    int tftp_packet_seconds = 0; // 0: as the caller asks; else an upper bound
    int tftp_total_seconds = 300;
    int tftp_block_octets = 65464; // at most, whatever the path carries
    int ftp_port = 21;
    int ssh_port = 22;
    int login_seconds = 30;     // until a server has let us in
    int transfer_seconds = 300; // from there to the end: FTP, SFTP, SCP
    std::string known_hosts;    // host keys; empty: in the state directory
    int64_t download_octets = int64_t{260} << 20; // of one file, at most
    int table_rows = 10000;   // rows of the copy table, at most
    int history_rows = 1000;  // of the copy history, at most; 0: there is none
    bool shell_names = false; // names that a shell acts on, where one sees them
    std::string management_vrf; // the VRF that "management" is
    int apply_seconds = 120;
    std::string backend = "text"; // what qsh shows and applies to: text or frr
    std::string vtysh_program = "/usr/bin/vtysh";
    int vtysh_seconds = 30;  // for everything but applying
    std::string frr_daemons; // that must answer, with blanks; empty: FRR's list
    std::string frr_directory = "/etc/frr"; // of frr.conf and daemons
    bool frr_file_commands = false; // lines that open files as FRR's user
    bool apply_atomic = false;      // all lines of a file or none (frr)
    bool trace_history = true;

    std::string switch_wwn; // 16 hexadecimal digits; empty: the fabric file's
    int save_delay_seconds = 0; // of every save, for demonstrations
    int manager_restart_seconds = 5;
    std::string fabric_file; // empty: there is no fabric
    std::string fabric_key_file;
    std::string fabric_known_hosts;
    // The others are taken for switches with the programs where they are here.
    std::string fabric_command{
        std::string(installed_root) +
        "/brim/bin/qsh -c 'copy running-config startup-config'"};
    std::string ssh_program = "/usr/bin/ssh";
    int fabric_connect_seconds = 5;
    int fabric_switch_seconds = 30;
    int fabric_parallel = 4;
};

// Where the settings come from. `environment` gives a variable's text or NULL.
using Environment = std::function<const char *(const char *)>;

// Sets one key. Returns an error text, empty if the value was taken.
std::string set_setting(Settings &settings, std::string_view key,
                        std::string_view value);

// Takes every line of a configuration file. Returns an error text that names
// the line, empty if all was taken.
std::string parse_settings(Settings &settings, std::string_view text);

// Reads the file and the environment. `names` are those of the variables that
// there are: one that begins with XF_ and sets no key is an error, as an
// unknown key is. Returns an error text or an empty one.
std::string load_settings(Settings &settings, const Environment &environment,
                          const std::vector<std::string> &names = {});

// Reads a configuration file that only root and this user can write to; a
// missing one is empty unless it must exist. Returns an error text or an empty
// one.
std::string read_trusted_file(const std::string &path, bool must_exist,
                              std::string &text);

// A world wide name, "10:00:00:05:1e:34:01:02", as 16 lower-case hexadecimal
// digits; empty if the text is none.
std::string wwn_digits(std::string_view text);

// The settings of this process, read once; NULL if they are bad, which was then
// logged: the caller fails with EINVAL rather than run with half of them.
const Settings *settings();

} // namespace xfhost

#endif
