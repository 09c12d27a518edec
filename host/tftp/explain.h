// What a person is told of a TFTP transfer that failed.
#ifndef HOST_TFTP_EXPLAIN_H
#define HOST_TFTP_EXPLAIN_H

#include <string>

#include "host/history/report.h"

namespace xfhost::tftp {

// How a transfer ended: a result of platform/tftp.h, and if it is none of
// success, what went wrong.
struct End {
    int result = 0;
    std::string why;
};

struct Attempt {
    bool send = false;
    std::string remote; // the file's name on the server
    std::string server; // its address
    int port = 0;       // of requests
};

// An error of the local file, or of this machine, as an end.
End local_end(int result, const std::string &what, int error);

Report explain(const Attempt &attempt, const End &end);

} // namespace xfhost::tftp

#endif
