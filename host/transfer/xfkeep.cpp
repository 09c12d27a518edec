// xfkeep FILE OCTETS: makes standard input, which has to be that many octets,
// the file. Readers see the old one or the new one, whole; after a failure
// there is the old one.
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <unistd.h>

#include "host/base/files.h"

using namespace xfhost;

namespace {

constexpr size_t largest_file = size_t{16} << 20;

int failed(const char *path, const char *why) {
    fprintf(stderr, "xfkeep: %s cannot be written: %s\n", path, why);
    return 1;
}

} // namespace

int main(int argc, char **argv) {
    size_t octets = 0;
    const char *end = argc == 3 ? argv[2] + strlen(argv[2]) : nullptr;
    if (end == nullptr || std::from_chars(argv[2], end, octets).ptr != end) {
        fprintf(stderr, "usage: xfkeep FILE OCTETS\n");
        return 2;
    }
    std::string path = argv[1], data;
    if (!read_whole(STDIN_FILENO, largest_file, data))
        return failed(argv[1], strerror(errno));
    if (data.size() != octets)
        return failed(argv[1], "not all of it was given");
    size_t slash = path.rfind('/');
    std::string directory =
        slash == std::string::npos ? "." : path.substr(0, slash + 1);
    std::string name = path.substr(slash + 1);
    Fd at(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!at || !replace_durably(at.get(), name.c_str(), data))
        return failed(argv[1], strerror(errno));
    return 0;
}
