// A platform for the fuzzers of the module. What it answers is taken from the
// fuzzer's input; no process is made, no program runs, nothing is sent. The
// ordered container is the host platform's own.
//
// Whatever the module puts out (traces, standard output and error, messages,
// notifications, accounting) is searched for passwords on its way.
#ifndef TESTS_FUZZ_PLATFORM_H
#define TESTS_FUZZ_PLATFORM_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include <sys/types.h>

#include "config_copy_mib_private.h"
#include "tests/fuzz/input.h"

namespace fuzz {

// Every password that must not be seen begins with this. Nothing else may
// contain it, see without_password.
inline constexpr std::string_view password_mark = "\xf3pW\x9c\xe7";
std::string without_password(std::string octets);
void search_for_password(std::string_view octets, const char *where);

struct Counters {
    unsigned forks, saves, notifications;
};

struct Platform {
    Input *input = nullptr; // what the answers are taken from
    Counters done = {};
    bool sends_may_fail = true;
    unsigned malloc_fails_in = 0; // 1: the next one; 0: none
    unsigned allowed_leaks = 0;   // blocks that the module may lose
};
Platform &platform();

// Once for the process, before the first input.
void start_platform();

// A message as it comes in from the transport: at least 16 octets of payload
// can be read, zeroes behind a shorter one. Without a payload if octets is
// NULL.
ipcbus_message *new_message(uint32_t opcode, const std::string *octets);

// What the agent was given to send goes, as if it had been sent.
void release_notifications();

// Blocks of memory that the module holds; requests that it has not dropped.
size_t module_blocks();
size_t kept_requests();

// Around each input. The end fails if the module lost memory, or a message
// that it had received, and frees what is left.
void begin_input(Input &input);
void end_input();

} // namespace fuzz

// What the module is compiled with in the place of the C library's.
extern "C" {
pid_t fuzz_fork(void);
void *fuzz_malloc(size_t size);
void fuzz_free(void *block);
}

#endif
