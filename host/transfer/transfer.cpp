#include "host/transfer/transfer.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <optional>

#include <arpa/inet.h>

#include "host/base/vrf.h"
#include "host/transfer/local_file.h"
#include "host/transfer/sftp.h"
#include "host/transfer/ssh_client.h"

namespace xfhost {
namespace {

// In the argument lists of both programs.
constexpr int password_place = 3;

bool is_address(const std::string &text) {
    unsigned char octets[16];
    return inet_pton(AF_INET, text.c_str(), octets) == 1 ||
           inet_pton(AF_INET6, text.c_str(), octets) == 1;
}

bool has_controls(std::string_view text) {
    return std::any_of(text.begin(), text.end(),
                       [](unsigned char c) { return c < ' ' || c == 0x7f; });
}

void check_name(const std::string &name) {
    if (name.empty() || has_controls(name))
        throw Failed(Outcome::bad_name, "a file name that cannot be sent");
}

void check(const Copy &copy) {
    if (!is_address(copy.login.server))
        throw Failed(Outcome::usage, "the server is no IPv4 or IPv6 address");
    if (copy.login.user.empty() || has_controls(copy.login.user))
        throw Failed(Outcome::login, "a user name that cannot be sent");
    if (has_controls(copy.login.password))
        throw Failed(Outcome::login, "a password that cannot be sent");
    check_name(copy.local);
    check_name(copy.remote);
}

void move_file(const Settings &settings, const Copy &copy) {
    if (copy.upload) {
        Fd source = open_source(copy.local);
        SshClient client(settings, copy.login);
        sftp_put(client, copy.remote, source.get());
        return;
    }
    Destination destination(copy.local);
    {
        SshClient client(settings, copy.login);
        sftp_get(client, copy.remote, destination.fd(),
                 settings.download_octets);
    }
    destination.keep();
}

int32_t vrf_of(std::string_view text) {
    int32_t id = 0;
    const char *end = text.data() + text.size();
    auto [stop, error] = std::from_chars(text.data(), end, id);
    if (error != std::errc() || stop != end || id < 1)
        throw Failed(Outcome::usage, "the VRF is no id");
    return id;
}

void run(std::vector<std::string> arguments, size_t count, const char *usage,
         ParseCopy parse) {
    int32_t vrf = own_network_id;
    if (arguments.size() == count + 1) {
        vrf = vrf_of(arguments.back());
        arguments.pop_back();
    }
    if (arguments.size() != count)
        throw Failed(Outcome::usage, usage);
    Copy copy = parse(arguments);
    copy.login.vrf = vrf;
    check(copy);
    const Settings *s = settings();
    if (s == nullptr)
        throw Failed(Outcome::usage, "the settings cannot be read");
    move_file(*s, copy);
}

// The parts of a target whose address begins at `at`, if one does.
std::optional<Target> target_at(std::string_view text, size_t at) {
    std::string_view rest = text.substr(at + 1);
    for (size_t colon = rest.rfind(':'); colon != rest.npos;
         colon = colon == 0 ? rest.npos : rest.rfind(':', colon - 1)) {
        std::string address(rest.substr(0, colon));
        if (address.size() >= 2 && address.front() == '[' &&
            address.back() == ']')
            address = address.substr(1, address.size() - 2);
        if (is_address(address))
            return Target{std::string(text.substr(0, at)), address,
                          std::string(rest.substr(colon + 1))};
    }
    return {};
}

} // namespace

Target split_target(std::string_view text) {
    for (size_t at = text.find('@'); at != text.npos;
         at = text.find('@', at + 1))
        if (std::optional<Target> found = target_at(text, at))
            return *found;
    throw Failed(Outcome::usage, "the target is not user@address:name");
}

std::string known_hosts_file(const Settings &settings, int32_t vrf) {
    std::string file = settings.known_hosts.empty()
                           ? settings.state_directory + "/known_hosts"
                           : settings.known_hosts;
    return vrf == own_network_id ? file : file + "." + std::to_string(vrf);
}

int run_copy(int argc, char **argv, size_t count, const char *usage,
             ParseCopy parse) {
    const char *slash = strrchr(argv[0], '/');
    const char *name = slash != nullptr ? slash + 1 : argv[0];
    try {
        std::vector<std::string> arguments(argv + 1, argv + argc);
        // The list of processes shows it until here.
        if (argc > password_place)
            explicit_bzero(argv[password_place], strlen(argv[password_place]));
        run(std::move(arguments), count, usage, parse);
        return static_cast<int>(Outcome::done);
    } catch (const Failed &failed) {
        fprintf(stderr, "%s: %s\n", name, failed.what());
        return static_cast<int>(failed.outcome());
    } catch (const std::exception &) {
        fprintf(stderr, "%s: no memory\n", name);
        return static_cast<int>(Outcome::other);
    }
}

} // namespace xfhost
