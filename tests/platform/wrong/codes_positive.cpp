// A TFTP client that gives the protocol's error codes as they are, which to the
// module is success.
#include "platform/tftp.h"

#include "right.h"

namespace {

int without_sign(int result) {
    return result < 0 && result >= -TFTP_LARGEST_CODE ? -result : result;
}

} // namespace

int tftp_put2(const char *local, const char *remote, int flags) {
    return without_sign(RIGHT(tftp_put2)(local, remote, flags));
}

int tftp_get2(const char *remote, const char *local, int flags) {
    return without_sign(RIGHT(tftp_get2)(remote, local, flags));
}
