#include "host/transfer/transfer.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <utility>

#include "host/base/address.h"

namespace xfhost {
namespace {

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
    check_name(copy.local);
    check_name(copy.remote);
    if (copy.login.user.empty() || has_controls(copy.login.user))
        throw Failed(Outcome::login, "a user name that cannot be sent");
    if (has_controls(copy.login.password))
        throw Failed(Outcome::login, "a password that cannot be sent");
}

int32_t parse_vrf(std::string_view text) {
    int32_t id = 0;
    const char *end = text.data() + text.size();
    auto [stop, error] = std::from_chars(text.data(), end, id);
    if (error != std::errc() || stop != end || id < 1 || text.front() == '0')
        throw Failed(Outcome::usage, "the VRF is no id");
    return id;
}

// An agent that gave up root has programs that may not enter a namespace. What
// is wrong with the VRF is told later.
void start_again_if_needed(std::string_view id, char **argv) {
    Vrf vrf;
    if (find_vrf(parse_vrf(id), vrf) && vrf.kind == Vrf::Kind::name_space &&
        enter_vrf(vrf) == EPERM)
        start_again_in_vrf(vrf, argv);
}

void run(std::vector<std::string> arguments, const Program &program,
         Attempt &attempt) {
    int32_t vrf = own_network_id;
    if (arguments.size() == program.arguments + 1) {
        vrf = parse_vrf(arguments.back());
        arguments.pop_back();
    }
    if (arguments.size() != program.arguments)
        throw Failed(Outcome::usage, program.usage);
    Copy copy = program.parse(arguments);
    check(copy);
    const Settings *s = settings();
    if (s == nullptr)
        throw Failed(Outcome::usage, "the settings cannot be read");
    attempt = {program.protocol, s->*program.port, copy};
    if (!find_vrf(vrf, copy.login.vrf))
        throw Failed(Outcome::other, "there is no VRF with that id")
            .at(Step::vrf)
            .because("there is no VRF with the id " + std::to_string(vrf));
    attempt.copy.login.vrf = copy.login.vrf;
    program.move(*s, copy);
}

} // namespace

Failed failure_of(Outcome outcome) {
    switch (outcome) {
    case Outcome::timeout:
        return {outcome, "the server did not answer in time"};
    case Outcome::bad_name:
        return {outcome, "the server has no such file, or does not take it"};
    case Outcome::no_space:
        return {outcome, "no space for the file"};
    case Outcome::login:
        return {outcome, "the server refused the login"};
    case Outcome::host_key:
        return {outcome, "the server's host key is not known, or another one"};
    case Outcome::connection:
        return {outcome, "the connection failed or was lost"};
    default:
        return {outcome, "the transfer failed"};
    }
}

Failed file_failure(int error, Outcome usual, const char *text) {
    Failed failed =
        is_no_room(error) ? failure_of(Outcome::no_space) : Failed(usual, text);
    return failed.at(Step::storing)
        .because(std::string(failed.what()) + ": " + strerror(error));
}

Failed vrf_failure(const std::string &name, int error) {
    return Failed(Outcome::other, "the VRF cannot be entered")
        .at(Step::vrf)
        .because(name + ": " + strerror(error));
}

Failed source_failure(Outcome outcome) {
    constexpr const char *text = "the local file cannot be read";
    return Failed(outcome, text)
        .at(Step::source)
        .because(std::string(text) + ": " + strerror(errno));
}

Fd source_of(const std::string &path) {
    Fd file = open_source(path);
    if (!file)
        throw source_failure(Outcome::bad_name);
    return file;
}

Destination::Destination(const Settings &settings, const std::string &path)
    : fetched_(path) {
    const int error =
        fetched_.open(static_cast<uint64_t>(settings.download_octets));
    if (error != 0)
        throw file_failure(error, Outcome::bad_name,
                           "the local file cannot be written");
}

void Destination::keep() {
    const int error = fetched_.keep();
    if (error != 0)
        throw file_failure(error, Outcome::other, "the file could not be kept");
    tell(fetched_.file().moved());
}

Copy copy_of(Login login, const std::string &direction, const std::string &from,
             const std::string &to) {
    if (direction == "put")
        return {std::move(login), true, from, to};
    if (direction == "get")
        return {std::move(login), false, to, from};
    throw Failed(Outcome::usage, "neither put nor get");
}

int run_copy(int argc, char **argv, const Program &program) {
    Attempt attempt;
    return run_program(argv[0], attempt, [&] {
        std::vector<std::string> arguments(argv + 1, argv + argc);
        if (arguments.size() == program.arguments + 1)
            start_again_if_needed(arguments.back(), argv);
        // The list of processes shows it until here.
        if (program.password < arguments.size())
            explicit_bzero(argv[1 + program.password],
                           arguments[program.password].size());
        run(std::move(arguments), program, attempt);
    });
}

int run_program(const char *self, const Attempt &attempt,
                const std::function<void()> &what) {
    const char *slash = strrchr(self, '/');
    const char *name = slash != nullptr ? slash + 1 : self;
    try {
        what();
        return static_cast<int>(Outcome::done);
    } catch (const Failed &failed) {
        fprintf(stderr, "%s: %s\n", name, failed.what());
        tell(failed.report(attempt));
        return static_cast<int>(failed.outcome());
    } catch (const std::exception &) {
        fprintf(stderr, "%s: no memory\n", name);
        return static_cast<int>(Outcome::other);
    }
}

} // namespace xfhost
