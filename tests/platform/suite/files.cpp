#include "files.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <sys/stat.h>

#include <gtest/gtest.h>

namespace support {

const std::string &directory() {
    static const std::string made = [] {
        std::string path =
            (std::filesystem::temp_directory_path() / "xftest.XXXXXX").string();
        if (mkdtemp(path.data()) == nullptr)
            abort();
        return path;
    }();
    return made;
}

void write_file(const std::string &path, const std::string &data) {
    std::ofstream out(path, std::ios::binary);
    out << data;
    out.close();
    ASSERT_TRUE(out) << path;
}

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return "(missing)";
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

bool exists(const std::string &path) {
    struct stat st;
    return lstat(path.c_str(), &st) == 0;
}

} // namespace support
