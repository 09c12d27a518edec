// Why an SSH client ended before a copy was done.
#ifndef HOST_TRANSFER_SSH_FAILURE_H
#define HOST_TRANSFER_SSH_FAILURE_H

#include <string_view>

#include "host/transfer/transfer.h"

namespace xfhost {

// `let_in`: the login was over. `log` is what the client wrote to its own log.
// Texts of the server can be in that, behind the client's words or, with a
// newline in them, on lines of their own: they decide which of timeout, login,
// host_key and connection it is, and so nothing that the server could not bring
// about by other means.
Failed ssh_failure(bool let_in, std::string_view log);

} // namespace xfhost

#endif
