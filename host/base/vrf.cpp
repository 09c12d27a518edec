#include "host/base/vrf.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <linux/ethtool.h>
#include <linux/magic.h>
#include <linux/nsfs.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "host/base/files.h"
#include "host/base/settings.h"

namespace xfhost {
namespace {

constexpr const char *namespaces = "/run/netns";
constexpr int32_t first_namespace_id = 1 << 30;

// The file that `ip netns add` makes; empty for anything else, other kinds of
// namespaces and links too: a link leads where it leads later on.
Fd open_namespace(std::string_view name) {
    std::string path = std::string(namespaces) + "/" + std::string(name);
    Fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW));
    struct statfs fs;
    if (!fd || fstatfs(fd.get(), &fs) != 0 || fs.f_type != NSFS_MAGIC ||
        ioctl(fd.get(), NS_GET_NSTYPE) != CLONE_NEWNET)
        return Fd();
    return fd;
}

// FNV-1a: a namespace has no number of its own that outlives it.
int32_t namespace_id(std::string_view name) {
    uint32_t hash = 2166136261u;
    for (char c : name)
        hash = (hash ^ static_cast<unsigned char>(c)) * 16777619u;
    return first_namespace_id |
           static_cast<int32_t>(hash & (first_namespace_id - 1));
}

struct CloseDirectory {
    void operator()(DIR *directory) const {
        closedir(directory);
    }
};

std::vector<std::string> namespaces_with(int32_t id) {
    std::vector<std::string> found;
    std::unique_ptr<DIR, CloseDirectory> directory(opendir(namespaces));
    if (!directory)
        return found;
    while (const struct dirent *entry = readdir(directory.get()))
        if (valid_vrf_name(entry->d_name) &&
            namespace_id(entry->d_name) == id && open_namespace(entry->d_name))
            found.emplace_back(entry->d_name);
    return found;
}

// Whether this process is in the namespace already.
bool is_here(const Fd &name_space) {
    struct stat here, there;
    return stat("/proc/self/ns/net", &here) == 0 &&
           fstat(name_space.get(), &there) == 0 &&
           here.st_dev == there.st_dev && here.st_ino == there.st_ino;
}

bool is_vrf_device(std::string_view name) {
    struct ifreq request = {};
    struct ethtool_drvinfo info = {};
    if (name.size() >= sizeof request.ifr_name)
        return false;
    Fd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd)
        return false;
    std::copy(name.begin(), name.end(), request.ifr_name);
    info.cmd = ETHTOOL_GDRVINFO;
    request.ifr_data = reinterpret_cast<char *>(&info);
    return ioctl(fd.get(), SIOCETHTOOL, &request) == 0 &&
           strncmp(info.driver, "vrf", sizeof info.driver) == 0;
}

int32_t existing_vrf_id(std::string_view name) {
    if (!valid_vrf_name(name))
        return 0;
    if (open_namespace(name)) {
        int32_t id = namespace_id(name);
        // Two names with one number: no telling which of them is meant.
        return namespaces_with(id).size() == 1 ? id : 0;
    }
    if (!is_vrf_device(name))
        return 0;
    return static_cast<int32_t>(if_nametoindex(std::string(name).c_str()));
}

} // namespace

bool valid_vrf_name(std::string_view name) {
    auto word = [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
    };
    return !name.empty() && name.size() <= 32 && word(name.front()) &&
           std::all_of(name.begin(), name.end(), [&](char c) {
               return word(c) || c == '.' || c == ':' || c == '-';
           });
}

int32_t vrf_id(std::string_view name) {
    const Settings *s = settings();
    if (s == nullptr)
        return 0;
    if (name != "management")
        return existing_vrf_id(name);
    if (!s->management_vrf.empty())
        return existing_vrf_id(s->management_vrf);
    int32_t id = existing_vrf_id(name);
    return id != 0 ? id : own_network_id;
}

bool find_vrf(int32_t id, Vrf &vrf) {
    vrf = {};
    if (id == own_network_id)
        return true;
    if (id >= first_namespace_id) {
        std::vector<std::string> found = namespaces_with(id);
        if (found.size() != 1)
            return false;
        vrf = {Vrf::Kind::name_space, found.front(), id};
        return true;
    }
    char name[IF_NAMESIZE];
    if (id <= 0 || if_indextoname(static_cast<unsigned>(id), name) == nullptr ||
        !valid_vrf_name(name) || !is_vrf_device(name))
        return false;
    vrf = {Vrf::Kind::device, name, id};
    return true;
}

int enter_vrf(const Vrf &vrf) {
    if (vrf.kind == Vrf::Kind::own_network)
        return 0;
    if (vrf.kind == Vrf::Kind::device)
        return ENOTSUP;
    Fd fd = open_namespace(vrf.name);
    if (!fd)
        return ENOENT;
    if (is_here(fd))
        return 0;
    return setns(fd.get(), CLONE_NEWNET) == 0 ? 0 : errno;
}

int start_again_in_vrf(const Vrf &vrf, char *const *argv) {
    char self[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length < 0)
        return errno;
    self[length] = 0;
    std::string xfvrf = program_path("/brim/bin/xfvrf");
    std::string id = std::to_string(vrf.id);
    std::vector<char *> words = {xfvrf.data(), id.data(), self};
    while (*++argv != nullptr)
        words.push_back(*argv);
    words.push_back(nullptr);
    execv(words[0], words.data());
    return errno;
}

int run_in_vrf(const Vrf &vrf, char *const *arguments) {
    if (vrf.kind != Vrf::Kind::device) {
        int error = enter_vrf(vrf);
        if (error != 0)
            return error;
        execvp(arguments[0], arguments);
        return errno;
    }
    // The kernel puts new sockets into a VRF through a control group, which
    // iproute2 sets up.
    std::string name = vrf.name;
    std::vector<char *> command;
    std::string words[] = {"ip", "vrf", "exec"};
    for (std::string &word : words)
        command.push_back(word.data());
    command.push_back(name.data());
    for (; *arguments != nullptr; arguments++)
        command.push_back(*arguments);
    command.push_back(nullptr);
    execvp(command[0], command.data());
    return errno;
}

} // namespace xfhost
