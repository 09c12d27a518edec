#include "scripted/note.h"

using namespace scripted;

extern "C" {

int account_lib_interim_update(ipcbus_handle queue, const char *session,
                               const char *user, const char *text) {
    called(__func__,
           print("%s(%s, %s, %s, %s)", __func__, name_of(queue),
                 text_or_null(session).c_str(), text_or_null(user).c_str(),
                 text_or_null(text).c_str()))
        .strings = {session, user, text};
    spoil_errno();
    return 0;
}

void log_set_error(uint32_t code, uint32_t component) {
    called(__func__, print("%s(0x%08x, %u)", __func__, code, component));
}

const char *syserr2str(uint32_t code) {
    static std::string place;

    asked(__func__, print("%s(0x%x)", __func__, code));
    return lasting(place, print("syserr2str 0x%x", code));
}

const char *syserr_format(uint32_t code) {
    static std::string place;

    asked(__func__, print("%s(0x%x)", __func__, code));
    return lasting(place, print("syserr_format 0x%x", code));
}

uint64_t timer_get_cycles(void) {
    asked(__func__, print("%s()", __func__));
    hook(__func__);
    return platform().cycles.take();
}

uint64_t timer_diff_cycle_in_msec(uint64_t later, uint64_t earlier) {
    asked(__func__, print("%s(%llu, %llu)", __func__,
                          static_cast<unsigned long long>(later),
                          static_cast<unsigned long long>(earlier)));
    return later - earlier;
}

} // extern "C"
