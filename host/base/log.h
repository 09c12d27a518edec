// Where the host side reports its own troubles: the agent's log inside an
// agent, standard error in a program.
#ifndef HOST_BASE_LOG_H
#define HOST_BASE_LOG_H

#include <syslog.h>

namespace xfhost {

using LogSink = void(int priority, const char *text);

// Sends messages to `sink` from now on; NULL goes back to standard error.
void set_log_sink(LogSink *sink);

// Logs one line, without its newline; `priority` is syslog's. Keeps errno.
void log_message(int priority, const char *format, ...)
    __attribute__((format(printf, 2, 3)));

} // namespace xfhost

#endif
