// xfsettings: prints what the transfer scripts need of the settings, a key and
// its value a line, so that one reader of the configuration serves all.
#include <cinttypes>
#include <cstdio>

#include "host/base/settings.h"
#include "host/base/vrf.h"
#include "host/transfer/transfer.h"

using namespace xfhost;

int main() {
    const Settings *s = settings();
    if (s == nullptr)
        return 1;
    std::string known_hosts = known_hosts_file(*s, own_network_id);
    printf("ftp_port %d\nssh_port %d\nlogin_seconds %d\n"
           "transfer_seconds %d\ndownload_octets %" PRId64 "\nknown_hosts %s\n",
           s->ftp_port, s->ssh_port, s->login_seconds, s->transfer_seconds,
           s->download_octets, known_hosts.c_str());
    return fflush(stdout) == 0 ? 0 : 1;
}
