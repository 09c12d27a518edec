// sftp.expect SERVER USER PASSWORD put LOCAL REMOTE [VRF-ID]
// sftp.expect SERVER USER PASSWORD get REMOTE LOCAL [VRF-ID]
// The name is the one that the module calls.
#include "host/transfer/transfer.h"

using namespace xfhost;

namespace {

Copy parse(const std::vector<std::string> &words) {
    Copy copy;
    copy.login.server = words[0];
    copy.login.user = words[1];
    copy.login.password = words[2];
    copy.upload = words[3] == "put";
    if (!copy.upload && words[3] != "get")
        throw Failed(Outcome::usage, "neither put nor get");
    copy.local = words[copy.upload ? 4 : 5];
    copy.remote = words[copy.upload ? 5 : 4];
    return copy;
}

} // namespace

int main(int argc, char **argv) {
    return run_copy(argc, argv, 6,
                    "usage: sftp.expect SERVER USER PASSWORD put LOCAL REMOTE |"
                    " get REMOTE LOCAL [VRF-ID]",
                    parse);
}
