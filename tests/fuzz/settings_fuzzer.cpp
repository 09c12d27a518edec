// What the host reads from files and sockets. The first octet says which.
#include <cstring>
#include <string>
#include <vector>

#include "host/base/record.h"
#include "host/base/settings.h"
#include "host/fabric/fabric.h"
#include "host/fabric/results.h"
#include "host/ipcbus/wire.h"
#include "host/procd/protocol.h"
#include "host/procd/save_journal.h"
#include "host/trc/ring.h"
#include "tests/fuzz/check.h"
#include "tests/fuzz/directory.h"
#include "tests/fuzz/input.h"
#include <sys/stat.h>

using namespace xfhost;
using fuzz::directory;

namespace {

// An error text is one line and says something.
void check_error(const std::string &error) {
    FUZZ_CHECK(error.find('\n') == std::string::npos, "an error of two lines");
}

void settings_file(const std::string &text) {
    Settings from_text, from_file;
    const std::string error = parse_settings(from_text, text);
    check_error(error);
    FUZZ_CHECK(from_text.tftp_port >= 1 && from_text.tftp_port <= 65535 &&
                   from_text.fabric_parallel >= 1 &&
                   from_text.fabric_parallel <= 64 &&
                   from_text.apply_seconds >= 1,
               "a number out of its range");
    FUZZ_CHECK(from_text.root.empty() || from_text.root.front() == '/',
               "root is \"%s\"", from_text.root.c_str());
    FUZZ_CHECK(from_text.run_directory.front() == '/', "run directory \"%s\"",
               from_text.run_directory.c_str());
    FUZZ_CHECK(from_text.switch_wwn.empty() ||
                   from_text.switch_wwn.size() == 16,
               "world wide name \"%s\"", from_text.switch_wwn.c_str());

    // They are handed on as C strings.
    for (const std::string &each :
         {from_text.root, from_text.run_directory, from_text.state_directory,
          from_text.management_address, from_text.fabric_command})
        FUZZ_CHECK(each.find('\0') == std::string::npos,
                   "a setting goes on behind a NUL: \"%s\"", each.c_str());

    directory().write("settings", text);
    const std::string path = directory().path("settings");
    const std::string file_error =
        load_settings(from_file, [&](const char *name) -> const char * {
            return strcmp(name, "XF_CONFIG") == 0 ? path.c_str() : nullptr;
        });
    FUZZ_CHECK(file_error.empty() == error.empty(),
               "\"%s\", from a file \"%s\"", error.c_str(), file_error.c_str());
}

// As the environment gives it: a variable is the whole value.
void setting(const std::string &text) {
    Settings settings;
    const size_t end = std::min(text.find(' '), text.size());
    set_setting(settings, text.substr(0, end),
                text.substr(std::min(end + 1, text.size())));
    const std::string digits = wwn_digits(text);
    FUZZ_CHECK(digits.empty() || digits.size() == 16, "%zu digits",
               digits.size());
}

void fabric_file(const std::string &text) {
    std::vector<FabricSwitch> switches;
    const std::string error = parse_fabric(text, switches);
    check_error(error);
    if (!error.empty())
        return;
    int local = 0;
    for (const FabricSwitch &each : switches) {
        local += each.local ? 1 : 0;
        FUZZ_CHECK(each.wwn.size() == 16, "world wide name \"%s\"",
                   each.wwn.c_str());
        FUZZ_CHECK(each.port >= 1 && each.port <= 65535, "port %d", each.port);
        // They go into a command line.
        FUZZ_CHECK(!each.name.empty() && each.name.front() != '-' &&
                       each.user.find_first_of("-@ \t") != 0 &&
                       each.address.find_first_not_of(
                           "0123456789abcdefABCDEF.:") == std::string::npos,
                   "switch \"%s\", user \"%s\", address \"%s\"",
                   each.name.c_str(), each.user.c_str(), each.address.c_str());
    }
    FUZZ_CHECK(local == 1, "%d local switches", local);
}

void results_file(const std::string &text) {
    const std::vector<FabricResult> results = parse_results(text);
    const std::string printed = print_results(results);
    const std::vector<FabricResult> again = parse_results(printed);
    FUZZ_CHECK(again.size() == results.size(), "%zu results, read back %zu",
               results.size(), again.size());
    FUZZ_CHECK(print_results(again) == printed,
               "printed:\n%.200s\nthen:\n%.200s", printed.c_str(),
               print_results(again).c_str());
    for (size_t i = 0; i < results.size(); i++)
        FUZZ_CHECK(again[i].wwn == results[i].wwn &&
                       again[i].local == results[i].local &&
                       again[i].failed == results[i].failed,
                   "result %zu is another one", i);
    directory().write("fabric-results", text);
    std::vector<FabricResult> loaded;
    FUZZ_CHECK(load_results(loaded) && loaded.size() == results.size(),
               "%zu results from the file, %zu from its text", loaded.size(),
               results.size());
}

void journal_file(const std::string &text) {
    directory().write("save-in-progress", text);
    const uint32_t token = noted_save();
    if (token == 0)
        return;
    directory().write("save-in-progress", std::to_string(token) + "\n");
    FUZZ_CHECK(noted_save() == token, "token %u was read back as %u", token,
               noted_save());
}

void datagram(const std::string &text) {
    auto octets = reinterpret_cast<const uint8_t *>(text.data());
    const std::optional<WireMessage> message = wire_decode(octets, text.size());
    if (!message)
        return;
    FUZZ_CHECK(wire_name_valid(message->sender) &&
                   message->sender.find('/') == std::string::npos,
               "sender \"%s\"", message->sender.c_str());
    FUZZ_CHECK(message->payload.size() <= wire_largest_payload,
               "%zu octets of payload", message->payload.size());
    const std::vector<uint8_t> encoded = wire_encode(*message);
    const auto again = wire_decode(encoded.data(), encoded.size());
    FUZZ_CHECK(again && again->opcode == message->opcode &&
                   again->token == message->token &&
                   again->kind == message->kind &&
                   again->sender == message->sender &&
                   again->payload == message->payload,
               "a message that is not what it was");
    parse_save_request(message->payload);
}

void save_request(const std::string &text) {
    const auto request = parse_save_request({text.begin(), text.end()});
    if (request)
        FUZZ_CHECK(request->user.size() <= 32 && request->session.size() <= 32,
                   "texts of %zu and %zu", request->user.size(),
                   request->session.size());
    const std::string line = xfhost::quoted(text);
    FUZZ_CHECK(line.size() >= 2 && line.find('\n') == std::string::npos,
               "a record of two lines");
    for (char each : line)
        FUZZ_CHECK(each >= ' ' && each <= '~', "a record with octet %d", each);
}

void trace_file(const std::string &text) {
    directory().write("trace", text);
    const auto ring = Ring::open_to_read(directory().path("trace").c_str());
    if (ring == nullptr)
        return;
    uint64_t last = 0;
    for (const TraceEvent &each : ring->events()) {
        FUZZ_CHECK(each.sequence != 0 && each.sequence >= last &&
                       each.text.size() <= ring_text_size,
                   "event %llu behind %llu, %zu characters",
                   static_cast<unsigned long long>(each.sequence),
                   static_cast<unsigned long long>(last), each.text.size());
        last = each.sequence;
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    // Nothing of this machine is read.
    clearenv();
    directory().write("none", "");
    setenv("XF_CONFIG", directory().path("none").c_str(), 1);
    setenv("XF_STATE_DIRECTORY", directory().path(".").c_str(), 1);
    mkdir(directory().path("run").c_str(), 0700);
    setenv("XF_RUN_DIRECTORY", directory().path("run").c_str(), 1);
    FUZZ_CHECK(settings() != nullptr, "no settings");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *octets, size_t size) {
    fuzz::Input input(octets, size);
    constexpr void (*readers[])(const std::string &) = {
        settings_file, setting,  fabric_file,  results_file,
        journal_file,  datagram, save_request, trace_file};
    const uint8_t which = input.octet();
    // Letters, so that a text can be written by hand.
    readers[which % 8](input.rest());
    return 0;
}
