// xfsettings: prints what xfenrol needs of the settings, a key and its value a
// line, so that one reader of the configuration serves all.
#include <cstdio>

#include "host/transfer/ssh_client.h"

using namespace xfhost;

int main() {
    const Settings *s = settings();
    if (s == nullptr)
        return 1;
    const std::string known_hosts = known_hosts_file(*s, own_network_id);
    printf("ssh_port %d\nknown_hosts %s\n", s->ssh_port, known_hosts.c_str());
    return fflush(stdout) == 0 ? 0 : 1;
}
