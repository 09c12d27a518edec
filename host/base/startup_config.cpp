#include "host/base/startup_config.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/base/log.h"
#include "host/base/settings.h"
#include "host/qsh/frr_reader.h"

namespace xfhost {
namespace {

constexpr const char *kept_name = "system.cfg";
constexpr const char *frr_name = "frr.conf";
constexpr const char *frr_new_name = ".frr.conf.new";
constexpr const char *frr_user = "frr";
constexpr const char *before_name = "before-apply.cfg";

bool with_frr() {
    const Settings *s = settings();
    return s != nullptr && s->backend == "frr";
}

// FRR's own folder: it belongs to FRR's user, so nothing in it is trusted.
Fd open_frr_directory() {
    return Fd(open(settings()->frr_directory.c_str(),
                   O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

bool give_to_frr(int fd) {
    const struct passwd *user = getpwnam(frr_user);
    const struct group *group = getgrnam(frr_user);
    if (user == nullptr || group == nullptr) {
        errno = ENOENT;
        return false;
    }
    return fchmod(fd, 0640) == 0 &&
           (geteuid() != 0 || fchown(fd, user->pw_uid, group->gr_gid) == 0);
}

bool has_size(int fd, size_t size) {
    struct stat st;
    bool right = fstat(fd, &st) == 0 && static_cast<size_t>(st.st_size) == size;
    if (!right)
        errno = EIO;
    return right;
}

// A new frr.conf that is on the disk, but not in its place yet.
class NewFrrConf {
  public:
    ~NewFrrConf() {
        if (staged_)
            remove();
    }

    bool stage(const std::string &text) {
        directory_ = open_frr_directory();
        if (!directory_)
            return false;
        unlinkat(directory_.get(), frr_new_name, 0);
        Fd fd(openat(directory_.get(), frr_new_name,
                     O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                     0600));
        staged_ = static_cast<bool>(fd);
        return fd && give_to_frr(fd.get()) && write_whole(fd.get(), text) &&
               fsync(fd.get()) == 0 && has_size(fd.get(), text.size());
    }

    bool take_place() {
        if (renameat(directory_.get(), frr_new_name, directory_.get(),
                     frr_name) != 0)
            return false;
        staged_ = false;
        return fsync(directory_.get()) == 0;
    }

  private:
    void remove() {
        int saved = errno;
        unlinkat(directory_.get(), frr_new_name, 0);
        errno = saved;
    }

    Fd directory_;
    bool staged_ = false;
};

bool read_at(int directory, const char *name, std::string &text) {
    Fd fd(openat(directory, name,
                 O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    return fd && read_whole(fd.get(), largest_config, text);
}

// When FRR starts it runs what is in its file as it runs what is applied.
bool fit_to_start_with(const std::string &text) {
    for (const FrrLine &line : read_frr(text, settings()->frr_file_commands)) {
        if (line.refusal.empty())
            continue;
        log_message(LOG_ERR, "startup configuration, line %zu: %s", line.number,
                    line.refusal.c_str());
        errno = EBADMSG;
        return false;
    }
    return true;
}

} // namespace

Fd open_startup_directory() {
    Fd state = open_state_directory();
    return state ? open_private_directory_at(state.get(), "startup") : Fd();
}

bool keep_startup(const std::string &text,
                  const std::function<bool()> &proceed) {
    return (!with_frr() || fit_to_start_with(text)) &&
           keep_shown(text, proceed);
}

// Both new files are on the disk before one takes its place: a full disk leaves
// the old ones.
bool keep_shown(const std::string &text, const std::function<bool()> &proceed) {
    Fd directory = open_startup_directory();
    if (!directory)
        return false;
    Fd lock = lock_file(directory.get(), "system.cfg.lock", true);
    NewFrrConf frr_conf;
    if (!lock || (with_frr() && !frr_conf.stage(text)) ||
        !replace_durably(directory.get(), kept_name, text, proceed))
        return false;
    Fd kept = open_private_file(directory.get(), kept_name, O_RDONLY);
    std::string again;
    if (!kept || !read_whole(kept.get(), largest_config, again))
        return false;
    if (again != text) {
        errno = EIO;
        return false;
    }
    return !with_frr() || frr_conf.take_place();
}

std::string startup_difference() {
    if (!with_frr())
        return "";
    Fd ours = open_startup_directory(), theirs = open_frr_directory();
    std::string kept, frr_conf;
    if (!ours || !read_at(ours.get(), kept_name, kept))
        return errno == ENOENT
                   ? ""
                   : std::string(kept_name) + ": " + strerror(errno);
    std::string path = settings()->frr_directory + "/" + frr_name;
    if (!theirs || !read_at(theirs.get(), frr_name, frr_conf))
        return path + ": " + strerror(errno);
    return kept == frr_conf
               ? ""
               : path + " is not the startup configuration that was saved "
                        "last: FRR starts with another one";
}

bool keep_before(const std::string &text) {
    Fd state = open_state_directory();
    return state && replace_durably(state.get(), before_name, text);
}

void forget_before() {
    Fd state = open_state_directory();
    if (state && unlinkat(state.get(), before_name, 0) != 0 && errno != ENOENT)
        log_message(LOG_WARNING, "%s: %s", before_name, strerror(errno));
}

std::string left_by_apply() {
    Fd state = open_state_directory();
    if (!state || faccessat(state.get(), before_name, F_OK, 0) != 0)
        return "";
    return "a file was applied in part and not taken back; " +
           settings()->state_directory + "/" + before_name +
           " is the configuration of before";
}

} // namespace xfhost
