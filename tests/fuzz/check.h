// What ends a fuzzer: a property that does not hold.
#ifndef TESTS_FUZZ_CHECK_H
#define TESTS_FUZZ_CHECK_H

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

namespace fuzz {

// Standard error itself: the stream of that name may be somebody else's.
[[noreturn]] __attribute__((format(printf, 3, 4))) inline void
fail(const char *file, int line, const char *format, ...) {
    char text[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    dprintf(STDERR_FILENO, "%s:%d: %s\n", file, line, text);
    abort();
}

} // namespace fuzz

#define FUZZ_FAIL(...) ::fuzz::fail(__FILE__, __LINE__, __VA_ARGS__)

// Unless the condition holds, says so and aborts.
#define FUZZ_CHECK(condition, ...)                                             \
    do {                                                                       \
        if (!(condition))                                                      \
            FUZZ_FAIL(__VA_ARGS__);                                            \
    } while (0)

#endif
