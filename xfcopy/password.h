// The password for the server: where it comes from, and that it goes away.
#ifndef XFCOPY_PASSWORD_H
#define XFCOPY_PASSWORD_H

#include <cstddef>
#include <string>
#include <string_view>

namespace xfcopy {

constexpr size_t most_password_octets = 41;

// Octets that are overwritten in memory when they are not needed any more.
class Secret {
  public:
    Secret() = default;
    Secret(const Secret &) = delete;
    Secret &operator=(const Secret &) = delete;
    ~Secret() {
        clear();
    }
    // False if there is no room.
    bool append(char octet);
    void clear();
    std::string_view text() const {
        return {octets_, size_};
    }

  private:
    char octets_[most_password_octets] = {};
    size_t size_ = 0;
};

// Where to look: `fd` or `file` if given, else XFCOPY_PASSWORD, else the
// terminal that standard input is.
struct PasswordSource {
    int fd = -1;
    std::string file;
};

// The first line of the source. Returns what is wrong, empty if `secret` has
// it; `note` gets what the user should know besides. The environment's is
// overwritten. An interruption is an error, too; see interrupting_signal.
std::string read_password(const PasswordSource &source,
                          const std::string &whose, Secret &secret,
                          std::string &note);

} // namespace xfcopy

#endif
