// Files of the tests.
#ifndef TESTS_PLATFORM_FILES_H
#define TESTS_PLATFORM_FILES_H

#include <string>

namespace support {

// A directory of this test process, removed at its end.
const std::string &directory();

void write_file(const std::string &path, const std::string &data);

// The content of a file; "(missing)" if there is none.
std::string read_file(const std::string &path);

bool exists(const std::string &path);

} // namespace support

#endif
