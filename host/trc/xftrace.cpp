// xftrace: prints the trace history of a program, oldest event first.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "host/base/settings.h"
#include "host/trc/ring.h"

using namespace xfhost;

namespace {

constexpr const char *usage =
    "usage: xftrace [program | file]\n"
    "Prints the trace history that a program (default: snmpd) keeps in the\n"
    "state directory, or that of a file: time, process, type, level, text.\n";

std::string printable(const std::string &text) {
    std::string result;
    for (char c : text)
        if (c != '\n')
            result += static_cast<unsigned char>(c) < 0x20 ? '?' : c;
    return result;
}

void print(const TraceEvent &event) {
    auto seconds = static_cast<time_t>(event.seconds);
    struct tm utc;
    char when[32];
    gmtime_r(&seconds, &utc);
    strftime(when, sizeof when, "%Y-%m-%dT%H:%M:%S", &utc);
    printf("%s.%06dZ %d 0x%x %u %s\n", when, event.nanoseconds / 1000,
           event.pid, event.type, event.level, printable(event.text).c_str());
}

std::string file_of(const std::string &name) {
    if (name.find('/') != std::string::npos)
        return name;
    const Settings *s = settings();
    return s == nullptr ? "" : s->state_directory + "/trace/" + name + ".trc";
}

} // namespace

int main(int count, char **arguments) {
    if (count > 2 || (count == 2 && arguments[1][0] == '-')) {
        fputs(usage,
              count == 2 && !strcmp(arguments[1], "--help") ? stdout : stderr);
        return count == 2 && !strcmp(arguments[1], "--help") ? 0 : 64;
    }
    std::string file = file_of(count == 2 ? arguments[1] : "snmpd");
    if (file.empty())
        return 78;
    auto ring = Ring::open_to_read(file.c_str());
    if (ring == nullptr) {
        fprintf(stderr, "xftrace: %s: %s\n", file.c_str(),
                errno == EBADMSG ? "not a trace history" : strerror(errno));
        return 1;
    }
    for (const TraceEvent &event : ring->events())
        print(event);
    return 0;
}
