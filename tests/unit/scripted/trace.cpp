#include "scripted/note.h"

using namespace scripted;

extern "C" {

const char *const trc_dbg_modname = "scripted";

static bool level_is_known(uint32_t level) {
    return level == XF_TRACE_ERROR || level == XF_TRACE_INFO;
}

int trc_hist_event_subtype_check(uint32_t type, uint32_t level) {
    const int result = platform().hist_check.take();

    asked(__func__, print("%s(0x%x, %u)", __func__, type, level));
    EXPECT_EQ(0x730000u, type);
    EXPECT_TRUE(level_is_known(level)) << level;
    spoil_errno();
    return result;
}

void trc_hist_event(uint32_t type, uint32_t size, const void *record) {
    const auto *const octets = static_cast<const char *>(record);
    uint32_t level = 0;

    memcpy(&level, octets, sizeof(level));
    EXPECT_EQ(0x730000u, type);
    EXPECT_TRUE(level_is_known(level)) << level;
    EXPECT_LE(size, 516u);
    ASSERT_GE(size, 5u);
    EXPECT_EQ('\0', octets[size - 1]);
    const std::string text(octets + 4, strnlen(octets + 4, size - 4));
    EXPECT_EQ(text.size() + 5, size) << text;
    Event &event =
        platform().record(Kind::Trace, __func__,
                          level == XF_TRACE_ERROR ? error(text) : info(text));
    event.octets = text;
    event.level = level;
    event.size = size;
    spoil_errno();
}

int trc_chk_int(uint32_t level, int instance, int filter, int enabled) {
    const int result = platform().live_check.take();

    asked(__func__, print("%s(%u, %d, %d, %d)", __func__, level, instance,
                          filter, enabled));
    EXPECT_TRUE(level_is_known(level)) << level;
    EXPECT_EQ(0, instance);
    EXPECT_EQ(0, filter);
    EXPECT_EQ(1, enabled);
    spoil_errno();
    return result;
}

void dprint(int destination, const char *module, int flags, const char *format,
            ...) {
    va_list arguments;

    EXPECT_EQ(1, destination);
    EXPECT_EQ(trc_dbg_modname, module);
    EXPECT_EQ(0, flags);
    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    Event &event = platform().record(Kind::Live, __func__, live(text));
    event.octets = text;
    event.strings = {format};
    spoil_errno();
}

} // extern "C"
