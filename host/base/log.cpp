#include "host/base/log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>

namespace xfhost {
namespace {

LogSink *sink = nullptr;

} // namespace

void set_log_sink(LogSink *wanted) {
    sink = wanted;
}

void log_message(int priority, const char *format, ...) {
    int saved = errno;
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (sink != nullptr)
        sink(priority, text);
    else
        fprintf(stderr, "xfplatform: %s\n", text);
    errno = saved;
}

} // namespace xfhost
