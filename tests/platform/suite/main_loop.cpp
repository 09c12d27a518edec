#include "main_loop.h"

#include <sys/select.h>

#include <net-snmp/library/fd_event_manager.h>

namespace suite {

void turn() {
    fd_set reading, writing, exceptions;
    FD_ZERO(&reading);
    FD_ZERO(&writing);
    FD_ZERO(&exceptions);
    int limit = 0;
    netsnmp_external_event_info(&limit, &reading, &writing, &exceptions);
    struct timeval at_most = {0, 100000};
    int count = select(limit, &reading, &writing, &exceptions, &at_most);
    if (count > 0)
        netsnmp_dispatch_external_events(&count, &reading, &writing,
                                         &exceptions);
    run_alarms();
}

} // namespace suite
