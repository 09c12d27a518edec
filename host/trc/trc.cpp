// trc: the history goes to a ring in the state directory, one per program, that
// the next run of the program goes on with; live output goes through the
// agent's debug tokens.
#include "platform/trc.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include "host/base/files.h"
#include "host/base/log.h"
#include "host/base/settings.h"
#include "host/trc/ring.h"

using namespace xfhost;

namespace {

constexpr uint32_t ring_slots = 4096;
constexpr size_t longest_name = 64;

std::unique_ptr<Ring> try_to_open() {
    const Settings *s = settings();
    if (s == nullptr || !s->trace_history)
        return nullptr;
    Fd state = open_state_directory();
    Fd directory;
    if (state)
        directory = open_private_directory_at(state.get(), "trace");
    std::string name =
        std::string(program_invocation_short_name).substr(0, longest_name);
    std::unique_ptr<Ring> ring;
    if (directory)
        ring = Ring::open(directory.get(), (name + ".trc").c_str(), ring_slots);
    if (ring == nullptr)
        log_message(LOG_WARNING, "no trace history: %s", strerror(errno));
    return ring;
}

std::unique_ptr<Ring> open_ring() {
    try {
        return try_to_open();
    } catch (const std::bad_alloc &) {
        log_message(LOG_WARNING, "no trace history: no memory");
        return nullptr;
    }
}

// The ring of this process and of its children; NULL if there is none.
Ring *ring() {
    // Left to the end of the process: other destructors may still trace.
    static Ring *opened = open_ring().release();
    return opened;
}

} // namespace

const char *const trc_dbg_modname = "xfcopy";

int trc_hist_event_subtype_check(uint32_t, uint32_t) {
    return ring() != nullptr ? 0 : 1;
}

void trc_hist_event(uint32_t type, uint32_t size, const void *record) {
    uint32_t level;
    if (ring() == nullptr || size < sizeof level)
        return;
    memcpy(&level, record, sizeof level);
    auto text = static_cast<const char *>(record) + sizeof level;
    ring()->add(type, level, text, strnlen(text, size - sizeof level));
}

int trc_chk_int(uint32_t, int, int, int) {
    return snmp_get_do_debugging() &&
           debug_is_token_registered(trc_dbg_modname) == SNMPERR_SUCCESS;
}

void dprint(int, const char *module, int, const char *format, ...) {
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    debugmsgtoken(module, "%s: ", module);
    debugmsg(module, "%s", text);
}
