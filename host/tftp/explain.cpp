#include "host/tftp/explain.h"

#include <cerrno>
#include <cstring>

#include "host/tftp/conversation.h"

namespace xfhost::tftp {
namespace {

constexpr size_t longest_name = 60;

const char *advice_for(const Attempt &attempt, int result) {
    switch (result) {
    case -1:
    case -2:
        return attempt.send
                   ? "Look at the file name; a TFTP server often takes "
                     "only files that exist already and that everybody "
                     "may write to."
                   : "Look at the file name, and whether everybody may "
                     "read the file on the server.";
    case no_room:
        return "Make room where the file goes: on the server, or on the "
               "switch, "
               "where download_octets is the limit for one file.";
    case system_error(ETIMEDOUT):
    case system_error(ECONNREFUSED):
        return "Look whether the TFTP server runs, and whether the switch "
               "reaches it; perhaps it is in another VRF.";
    case system_error(EINVAL):
        return "Look at the server's address and at the settings of the "
               "switch.";
    default:
        return "Look at the log of the server, and at that of the agent.";
    }
}

} // namespace

End local_end(int result, const std::string &what, int error) {
    return {result, what + ": " + strerror(error)};
}

Report explain(const Attempt &attempt, const End &end) {
    Report report;
    report.reason = (attempt.send ? "Sending \"" : "Fetching \"") +
                    printable(attempt.remote, longest_name) +
                    (attempt.send ? "\" to " : "\" from ") + attempt.server +
                    " port " + std::to_string(attempt.port) +
                    " (TFTP): " + end.why;
    report.advice = advice_for(attempt, end.result);
    return report;
}

} // namespace xfhost::tftp
