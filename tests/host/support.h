// What the tests of the host library share.
#ifndef TESTS_HOST_SUPPORT_H
#define TESTS_HOST_SUPPORT_H

#include <string>

#include "tests/platform/suite/files.h"

namespace support {

// Permission bits of a file, without following a link.
unsigned mode_of(const std::string &path);

} // namespace support

#endif
