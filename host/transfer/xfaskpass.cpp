// xfaskpass PROMPT: what the SSH client of a copy asks for the password. Prints
// it the first time, if that is what is asked for; ends with 1 otherwise. The
// password is in a pipe of the copy, which XF_PASSWORD_FROM names, and not
// there any more once it was read: whatever else a server asks for, it does not
// get it.
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <iterator>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <unistd.h>

#include "host/base/files.h"

using namespace xfhost;

namespace {

constexpr std::string_view words[] = {"password", "passcode", "passphrase"};

bool asks_for_password(std::string prompt) {
    for (char &c : prompt)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return std::any_of(std::begin(words), std::end(words), [&](auto word) {
        return prompt.find(word) != std::string::npos;
    });
}

} // namespace

int main(int argc, char **argv) {
    const char *path = getenv("XF_PASSWORD_FROM");
    if (argc != 2 || path == nullptr || !asks_for_password(argv[1]))
        return 1;
    Fd from(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    std::string password;
    if (!from || !read_whole(from.get(), 65536, password) || password.empty())
        return 1;
    return write_whole(STDOUT_FILENO, password + "\n") ? 0 : 1;
}
