// FTP, on libcurl.
#ifndef HOST_TRANSFER_FTP_CLIENT_H
#define HOST_TRANSFER_FTP_CLIENT_H

#include "host/transfer/transfer.h"

namespace xfhost {

// Moves a file. Throws Failed unless it has come or got there whole. For a
// program that does nothing else: the process goes into the network namespace
// of the VRF, SIGTERM, SIGINT and SIGHUP end it, and so does SIGALRM.
void copy_over_ftp(const Settings &settings, const Copy &copy);

} // namespace xfhost

#endif
