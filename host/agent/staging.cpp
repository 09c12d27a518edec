// A directory is its process's for as long as that holds a lock on it: the
// kernel lets go of it however the process ends, and a restarted agent can tell
// which processes of the one before it still work. What such a process has
// started may outlive it, and then works on files that have no name any more.
#include "host/agent/staging.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <new>
#include <string>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/base/aside.h"
#include "host/base/files.h"
#include "host/base/log.h"

namespace xfhost {
namespace {

constexpr int directory_flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr int most_names = 100;

Fd own; // in a copy process: its directory, locked

Fd open_place() {
    Fd state = open_state_directory();
    return state ? open_private_directory_at(state.get(), "staging") : Fd();
}

bool take(int directory) {
    return flock(directory, LOCK_EX | LOCK_NB) == 0;
}

// A sweep that came between its making and its locking has removed it.
bool still_there(int directory) {
    struct stat st;
    return fstat(directory, &st) == 0 && st.st_nlink > 0;
}

bool make_and_enter(int place, const char *name) {
    if (mkdirat(place, name, 0700) != 0)
        return false;
    own = Fd(openat(place, name, directory_flags));
    if (!own || !take(own.get()))
        return false;
    errno = ENOENT;
    return still_there(own.get()) && fchdir(own.get()) == 0;
}

// Whether another try can be a better one.
bool name_is_lost(int error) {
    return error == EEXIST || error == ENOENT || error == EWOULDBLOCK;
}

// False if it has to be looked at again: its process lives, or there was no
// descriptor.
bool remove_one(int place, const char *name) {
    Fd directory(openat(place, name, directory_flags));
    bool lives = directory && !take(directory.get());
    if (lives || (!directory && errno == EMFILE))
        return false;
    std::error_code error;
    std::filesystem::remove_all(
        "/proc/self/fd/" + std::to_string(place) + "/" + name, error);
    if (error)
        log_message(LOG_WARNING, "staging directory %s: %s", name,
                    error.message().c_str());
    // What it took up is free once it is closed, for which a file system may
    // have to wait for the disk; a station that asks meanwhile must not.
    do_aside([held = std::move(directory)]() mutable { held.reset(); });
    return error != std::errc::too_many_files_open; // the next sweep has some
}

size_t sweep(int place) {
    DIR *listing = fdopendir(fcntl(place, F_DUPFD_CLOEXEC, 3));
    if (listing == nullptr)
        return 1;
    size_t left = 0;
    try {
        while (const struct dirent *entry = readdir(listing)) {
            std::string name = entry->d_name;
            if (name != "." && name != ".." &&
                !remove_one(place, entry->d_name))
                left++;
        }
    } catch (const std::bad_alloc &) {
        left++; // the next sweep finds it too
    }
    closedir(listing);
    return left;
}

} // namespace

bool staging_enter() {
    Fd place = open_place();
    if (!place)
        return false;
    for (int number = 0; number < most_names; number++) {
        // Short: the module cuts long paths.
        char name[32];
        snprintf(name, sizeof name, "%d.%d", getpid(), number);
        if (make_and_enter(place.get(), name))
            return true;
        if (!name_is_lost(errno))
            return false;
    }
    return false;
}

size_t staging_sweep() {
    try {
        Fd place = open_place();
        return place ? sweep(place.get()) : errno == EMFILE ? 1 : 0;
    } catch (const std::bad_alloc &) {
        return 1;
    }
}

} // namespace xfhost
