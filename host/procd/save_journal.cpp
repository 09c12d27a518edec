#include "host/procd/save_journal.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "host/base/files.h"
#include "host/base/log.h"

namespace xfhost {
namespace {

constexpr const char *file_name = "save-in-progress";

} // namespace

bool note_save(uint32_t token) {
    Fd state = open_state_directory();
    return state && replace_durably(state.get(), file_name,
                                    std::to_string(token) + "\n");
}

uint32_t noted_save() {
    Fd state = open_state_directory();
    if (!state)
        return 0;
    Fd file = open_private_file(state.get(), file_name, O_RDONLY);
    std::string text;
    if (!file || !read_whole(file.get(), 64, text))
        return 0;
    return static_cast<uint32_t>(strtoul(text.c_str(), nullptr, 10));
}

void forget_save() {
    Fd state = open_state_directory();
    if (state && (unlinkat(state.get(), file_name, 0) == 0 || errno == ENOENT))
        fsync(state.get());
    else
        log_message(LOG_ERR, "%s: %s", file_name, strerror(errno));
}

} // namespace xfhost
