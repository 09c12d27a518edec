// snmp.ftp.expect SERVER LOCAL REMOTE USER PASSWORD put [VRF-ID]
// snmp.ftp.expect SERVER REMOTE LOCAL USER PASSWORD get [VRF-ID]
// The name is the one that the module calls.
#include "host/transfer/ftp_client.h"

using namespace xfhost;

namespace {

Copy parse(const std::vector<std::string> &words) {
    return copy_of({words[0], words[3], words[4], {}}, words[5], words[1],
                   words[2]);
}

} // namespace

int main(int argc, char **argv) {
    return run_copy(
        argc, argv,
        {"FTP", &Settings::ftp_port, 6, 4,
         "usage: snmp.ftp.expect SERVER LOCAL REMOTE USER PASSWORD put |"
         " SERVER REMOTE LOCAL USER PASSWORD get [VRF-ID]",
         parse, copy_over_ftp});
}
