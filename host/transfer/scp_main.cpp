// scp.expect LOCAL USER@SERVER:REMOTE PASSWORD [VRF-ID]
// scp.expect USER@SERVER:REMOTE LOCAL PASSWORD [VRF-ID]
// The name is the one that the module calls. SCP is over SFTP, as OpenSSH's is:
// the name reaches no shell of the server.
#include "host/transfer/transfer.h"

using namespace xfhost;

namespace {

// Which of the two is the target is told by a local path's slash, or else by
// the target's own form.
bool is_target(const std::string &text) {
    if (text.starts_with('/'))
        return false;
    for (size_t at = text.find('@'); at != text.npos;
         at = text.find('@', at + 1)) {
        size_t end =
            text.find_first_not_of("0123456789abcdefABCDEF.:[]", at + 1);
        size_t colon = text.substr(0, end).rfind(':');
        if (colon != text.npos && colon > at + 1)
            return true;
    }
    return false;
}

Copy parse(const std::vector<std::string> &words) {
    Copy copy;
    copy.upload = !is_target(words[0]);
    Target target = split_target(words[copy.upload ? 1 : 0]);
    copy.login.user = target.user;
    copy.login.server = target.server;
    copy.login.password = words[2];
    copy.local = words[copy.upload ? 0 : 1];
    copy.remote = target.name;
    return copy;
}

} // namespace

int main(int argc, char **argv) {
    return run_copy(argc, argv, 3,
                    "usage: scp.expect LOCAL USER@SERVER:REMOTE PASSWORD |"
                    " USER@SERVER:REMOTE LOCAL PASSWORD [VRF-ID]",
                    parse);
}
