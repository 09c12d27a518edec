#include "host/qsh/running_config.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include <fcntl.h>

#include "host/base/files.h"
#include "host/base/log.h"
#include "host/base/startup_config.h"

namespace xfhost {
namespace {

constexpr const char *config_name = "running-config";
constexpr const char *sum_name = "running-config.sum";
constexpr size_t largest_sum = 4096;
constexpr const char *no_file = "none\n";

struct Stored {
    bool there = false;
    std::string text;
};

// FNV-1a over 64 bits: it finds accidents, nobody is meant to be kept out.
std::string sum_of(const Stored &file) {
    if (!file.there)
        return no_file;
    uint64_t hash = 14695981039346656037u;
    for (char c : file.text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211u;
    char line[64];
    snprintf(line, sizeof line, "%zu %016" PRIx64 "\n", file.text.size(), hash);
    return line;
}

bool read_stored(int state, const char *name, size_t limit, Stored &file) {
    file = {};
    Fd fd = open_private_file(state, name, O_RDONLY);
    if (!fd)
        return errno == ENOENT;
    file.there = true;
    return read_whole(fd.get(), limit, file.text);
}

// Whether one of the lines of the sum file is this one.
bool has_line(const std::string &sums, const std::string &line) {
    return ("\n" + sums).find("\n" + line) != std::string::npos;
}

// 1 if the file is whole, 0 if not, -1 with errno set.
int read_checked(int state, Stored &config) {
    Stored sum;
    if (!read_stored(state, config_name, largest_config, config) ||
        !read_stored(state, sum_name, largest_sum, sum))
        return -1;
    return !sum.there || has_line(sum.text, sum_of(config)) ? 1 : 0;
}

Fd lock_running(int state) {
    return lock_file(state, "running-config.lock", true);
}

} // namespace

bool RunningConfig::lock() {
    lock_ = lock_running(state_.get());
    return static_cast<bool>(lock_);
}

bool RunningConfig::read(std::string &text, std::string &why) {
    Stored config;
    int whole = read_checked(state_.get(), config);
    if (whole == 0 && !lock_) {
        // A writer may have come between the two files.
        Fd lock = lock_running(state_.get());
        whole = lock ? read_checked(state_.get(), config) : -1;
    }
    if (whole < 0)
        why = std::string(config_name) + ": " + strerror(errno);
    if (whole == 0)
        why = "running-config is damaged: it is not what was written last. "
              "qsh -c \"accept running-config\" takes it as it is";
    text = std::move(config.text);
    return whole > 0;
}

bool RunningConfig::write(const std::string &text) {
    int state = state_.get();
    Stored now, sum;
    if (!read_stored(state, config_name, largest_config, now) ||
        !read_stored(state, sum_name, largest_sum, sum))
        return false;
    if (now.there && !sum.there)
        log_message(LOG_NOTICE, "running-config had no sum, now it gets one");
    const std::string new_sum = sum_of({true, text});
    // Both count until the new one is there.
    if (!replace_durably(state, sum_name, sum_of(now) + new_sum) ||
        !replace_durably(state, config_name, text))
        return false;
    if (!replace_durably(state, sum_name, new_sum))
        log_message(LOG_WARNING, "%s: %s", sum_name, strerror(errno));
    return true;
}

bool RunningConfig::accept() {
    Stored now;
    return read_stored(state_.get(), config_name, largest_config, now) &&
           replace_durably(state_.get(), sum_name, sum_of(now));
}

} // namespace xfhost
