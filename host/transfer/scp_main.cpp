// scp.expect LOCAL USER@SERVER:REMOTE PASSWORD [VRF-ID]
// scp.expect USER@SERVER:REMOTE LOCAL PASSWORD [VRF-ID]
// The name is the one that the module calls. SCP is over SFTP, as OpenSSH's is:
// the name reaches no shell of the server.
#include "host/transfer/scp_target.h"
#include "host/transfer/ssh_client.h"

using namespace xfhost;

namespace {

Copy parse(const std::vector<std::string> &words) {
    const bool upload = !is_target(words[0]);
    const Target target = split_target(words[upload ? 1 : 0]);
    return {{target.server, target.user, words[2], {}},
            upload,
            words[upload ? 0 : 1],
            target.name};
}

} // namespace

int main(int argc, char **argv) {
    return run_copy(argc, argv,
                    {"SCP", &Settings::ssh_port, 3, 2,
                     "usage: scp.expect LOCAL USER@SERVER:REMOTE PASSWORD |"
                     " USER@SERVER:REMOTE LOCAL PASSWORD [VRF-ID]",
                     parse, copy_over_ssh});
}
