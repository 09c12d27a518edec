#include "host/base/files.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/base/log.h"
#include "host/base/settings.h"

namespace xfhost {
namespace {

// The configured user of the agent; (uid_t)-1 if there is none.
const struct passwd *configured_user() {
    static struct passwd found;
    static const bool known = [] {
        const Settings *s = settings();
        if (s == nullptr || s->user.empty())
            return false;
        const struct passwd *entry = getpwnam(s->user.c_str());
        if (entry == nullptr)
            return false;
        found = *entry;
        return true;
    }();
    return known ? &found : nullptr;
}

bool acceptable(int fd, mode_t kind) {
    struct stat st;
    if (fstat(fd, &st) != 0)
        return false;
    bool ours = (st.st_mode & S_IFMT) == kind && trusted_owner(st.st_uid) &&
                (st.st_mode & 022) == 0;
    if (!ours)
        errno = EPERM;
    return ours;
}

Fd accept_directory(Fd fd) {
    if (fd && !acceptable(fd.get(), S_IFDIR))
        return Fd();
    return fd;
}

constexpr int directory_flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

// Makes one directory; it is no error that it is there.
bool make_directory(int parent, const char *name) {
    if (mkdirat(parent, name, 0700) != 0)
        return errno == EEXIST;
    adopt_at(parent, name);
    return true;
}

bool make_parents(const std::string &path) {
    for (size_t end = path.find('/', 1); end != std::string::npos;
         end = path.find('/', end + 1))
        if (!make_directory(AT_FDCWD, path.substr(0, end).c_str()))
            return false;
    return true;
}

bool write_new(int directory, const char *name, std::string_view data) {
    Fd fd = open_private_file(directory, name, O_WRONLY | O_CREAT | O_EXCL);
    return fd && write_whole(fd.get(), data) && fsync(fd.get()) == 0;
}

// How a new file came to its place: there was none before; the old one is now
// where the new one was; the old one is gone.
enum class Place { failed, free, exchanged, taken };

// Only a file of ours: what somebody else has put there is not to be kept.
bool can_be_kept(int directory, const char *name) {
    struct stat st;
    return fstatat(directory, name, &st, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISREG(st.st_mode) && st.st_uid == geteuid();
}

Place take_place(int directory, const char *temporary, const char *name) {
    // Some file systems cannot exchange two files.
    if (can_be_kept(directory, name) &&
        renameat2(directory, temporary, directory, name, RENAME_EXCHANGE) == 0)
        return Place::exchanged;
    bool none = faccessat(directory, name, F_OK, AT_SYMLINK_NOFOLLOW) != 0;
    if (renameat(directory, temporary, directory, name) != 0)
        return Place::failed;
    return none ? Place::free : Place::taken;
}

// Takes that back. False if the old file is gone.
bool give_place_back(int directory, const char *temporary, const char *name,
                     Place place) {
    if (place == Place::exchanged)
        return renameat(directory, temporary, directory, name) == 0;
    return place == Place::free && unlinkat(directory, name, 0) == 0;
}

// Makes sure that the new file is there after a power failure. What cannot be
// promised is taken back, as well as that can be done: false with errno set.
bool make_lasting(int directory, const char *temporary, const char *name,
                  Place place) {
    if (fsync(directory) == 0) {
        if (place == Place::exchanged)
            unlinkat(directory, temporary, 0);
        return true;
    }
    int saved = errno;
    bool back = give_place_back(directory, temporary, name, place);
    log_message(LOG_ERR, "%s: its directory cannot be synced: %s; %s", name,
                strerror(saved),
                back ? "what was there before is back, but perhaps not after a "
                       "power failure"
                     : "the new file is in its place nevertheless");
    errno = saved;
    return false;
}

bool may_proceed(const std::function<bool()> &proceed) {
    if (!proceed || proceed())
        return true;
    errno = ECANCELED;
    return false;
}

} // namespace

void Fd::reset() {
    if (fd_ < 0)
        return;
    int saved = errno;
    close(fd_);
    errno = saved;
    fd_ = -1;
}

bool trusted_owner(uid_t uid) {
    if (uid == geteuid() || uid == 0)
        return true;
    const struct passwd *user = configured_user();
    return user != nullptr && user->pw_uid == uid;
}

std::string program_path(std::string_view path) {
    const Settings *s = settings();
    if (s == nullptr || !path.starts_with("/brim/"))
        return std::string(path);
    return s->root + std::string(path);
}

Fd open_private_directory(const std::string &path) {
    Fd fd(open(path.c_str(), directory_flags));
    if (!fd && errno == ENOENT && make_parents(path))
        return open_private_directory_at(AT_FDCWD, path.c_str());
    return accept_directory(std::move(fd));
}

// It is made once, and opened often.
Fd open_private_directory_at(int directory, const char *name) {
    Fd fd(openat(directory, name, directory_flags));
    if (!fd && errno == ENOENT && make_directory(directory, name))
        fd = Fd(openat(directory, name, directory_flags));
    return accept_directory(std::move(fd));
}

Fd open_state_directory() {
    if (const Settings *s = settings())
        return open_private_directory(s->state_directory);
    errno = EINVAL;
    return Fd();
}

Fd open_run_directory() {
    if (const Settings *s = settings())
        return open_private_directory(s->run_directory);
    errno = EINVAL;
    return Fd();
}

Fd open_private_file(int directory, const char *name, int flags) {
    // O_NONBLOCK: a FIFO in the file's place must not stop the caller.
    Fd fd(openat(directory, name, flags | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK,
                 0600));
    if (!fd || !acceptable(fd.get(), S_IFREG))
        return Fd();
    if ((flags & O_CREAT) != 0)
        adopt(fd.get());
    return fd;
}

void adopt(int fd) {
    const struct passwd *user = configured_user();
    if (user == nullptr || geteuid() != 0)
        return;
    if (fchown(fd, user->pw_uid, user->pw_gid) != 0)
        return; // the later open by that user says what is wrong
}

void adopt_at(int directory, const char *name) {
    const struct passwd *user = configured_user();
    if (user == nullptr || geteuid() != 0)
        return;
    if (fchownat(directory, name, user->pw_uid, user->pw_gid,
                 AT_SYMLINK_NOFOLLOW) != 0)
        return;
}

Fd lock_file(int directory, const char *name, bool wait) {
    Fd fd = open_private_file(directory, name, O_RDWR | O_CREAT);
    if (!fd)
        return fd;
    int result;
    do
        result = flock(fd.get(), wait ? LOCK_EX : LOCK_EX | LOCK_NB);
    while (result != 0 && errno == EINTR);
    return result == 0 ? std::move(fd) : Fd();
}

bool read_whole(int fd, size_t limit, std::string &data) {
    data.clear();
    // All at once: a large text that grows is copied again and again.
    struct stat st;
    if (fstat(fd, &st) == 0 && st.st_size > 0)
        data.reserve(std::min(static_cast<size_t>(st.st_size), limit));
    char buffer[65536];
    for (;;) {
        ssize_t count = read(fd, buffer, sizeof buffer);
        if (count == 0)
            return true;
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        data.append(buffer, static_cast<size_t>(count));
        if (data.size() > limit) {
            errno = EFBIG;
            return false;
        }
    }
}

bool write_whole(int fd, std::string_view data) {
    while (!data.empty()) {
        ssize_t count = write(fd, data.data(), data.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        data.remove_prefix(static_cast<size_t>(count));
    }
    return true;
}

bool replace_durably(int directory, const char *name, std::string_view data,
                     const std::function<bool()> &proceed) {
    std::string temporary = std::string(".") + name + ".new";
    // Left by a writer that died; writers of one name exclude each other.
    unlinkat(directory, temporary.c_str(), 0);
    Place place = Place::failed;
    if (write_new(directory, temporary.c_str(), data) && may_proceed(proceed))
        place = take_place(directory, temporary.c_str(), name);
    if (place != Place::failed &&
        make_lasting(directory, temporary.c_str(), name, place))
        return true;
    int saved = errno;
    unlinkat(directory, temporary.c_str(), 0);
    errno = saved;
    return false;
}

} // namespace xfhost
