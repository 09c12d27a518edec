// A directory for the files that a fuzzer has the code read.
#ifndef TESTS_FUZZ_DIRECTORY_H
#define TESTS_FUZZ_DIRECTORY_H

#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

#include "tests/fuzz/check.h"

namespace fuzz {

// A directory of this process, gone with it.
class Directory {
  public:
    Directory() {
        char name[] = "/tmp/xf-fuzz.XXXXXX";
        FUZZ_CHECK(mkdtemp(name) != nullptr, "no directory");
        path_ = name;
    }
    ~Directory() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    Directory(const Directory &) = delete;
    Directory &operator=(const Directory &) = delete;

    std::string path(const char *name) const {
        return path_ + "/" + name;
    }
    void write(const char *name, std::string_view data) const {
        const int fd = open(path(name).c_str(),
                            O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        FUZZ_CHECK(fd >= 0 && ::write(fd, data.data(), data.size()) ==
                                  static_cast<ssize_t>(data.size()),
                   "%s is not written", name);
        close(fd);
    }

  private:
    std::string path_;
};

inline const Directory &directory() {
    static Directory instance;
    return instance;
}

} // namespace fuzz

#endif
