// The settings are read once in a process, so they are made before any test
// runs: everything lies in a directory of this process.
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/host/support.h"

namespace support {

unsigned mode_of(const std::string &path) {
    struct stat st = {};
    EXPECT_EQ(lstat(path.c_str(), &st), 0) << path;
    return st.st_mode & 07777;
}

} // namespace support

namespace {

// What the tests are told would be unknown settings.
void forget_test_variables() {
    std::vector<std::string> names;
    for (char **each = environ; *each != nullptr; each++)
        if (strncmp(*each, "XF_", 3) == 0)
            names.emplace_back(*each, strcspn(*each, "="));
    for (const std::string &name : names)
        unsetenv(name.c_str());
}

} // namespace

int main(int count, char **arguments) {
    testing::InitGoogleTest(&count, arguments);
    forget_test_variables();
    const std::string &directory = support::directory();
    // Longer than a socket address: the run directory may be.
    std::string run = directory + "/" + std::string(120, 'r');
    std::ofstream(directory + "/host.conf") << "chassis_type 40\n";
    setenv("XF_CONFIG", (directory + "/host.conf").c_str(), 1);
    setenv("XF_ROOT", XF_TEST_ROOT, 1);
    setenv("XF_RUN_DIRECTORY", run.c_str(), 1);
    setenv("XF_STATE_DIRECTORY", (directory + "/state").c_str(), 1);
    setenv("XF_TFTP_PACKET_SECONDS", "2", 1);
    setenv("XF_TFTP_TOTAL_SECONDS", "100", 1);
    setenv("XF_APPLY_SECONDS", "20", 1);
    setenv("XF_SWITCH_WWN", "10:00:00:05:1E:34:01:ff", 1);
    setenv("XF_MANAGER_RESTART_SECONDS", "1", 1);
    setenv("XF_MANAGEMENT_INTERFACE", "lo", 1);
    setenv("XF_TABLE_ROWS", "65536", 1);
    pid_t self = getpid();
    int result = RUN_ALL_TESTS();
    if (self == getpid())
        std::filesystem::remove_all(directory);
    return result;
}
