// sftp.expect SERVER USER PASSWORD put LOCAL REMOTE [VRF-ID]
// sftp.expect SERVER USER PASSWORD get REMOTE LOCAL [VRF-ID]
// The name is the one that the module calls.
#include "host/transfer/ssh_client.h"

using namespace xfhost;

namespace {

Copy parse(const std::vector<std::string> &words) {
    return copy_of({words[0], words[1], words[2], {}}, words[3], words[4],
                   words[5]);
}

} // namespace

int main(int argc, char **argv) {
    return run_copy(
        argc, argv,
        {"SFTP", &Settings::ssh_port, 6, 2,
         "usage: sftp.expect SERVER USER PASSWORD put LOCAL REMOTE |"
         " get REMOTE LOCAL [VRF-ID]",
         parse, copy_over_ssh});
}
