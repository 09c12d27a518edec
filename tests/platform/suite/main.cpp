// Loads a platform library and, behind it, the suite: its calls are bound to
// that library, as the module's are in the agent.
#include <cstdio>
#include <cstring>
#include <string>

#include <dlfcn.h>
#include <unistd.h>

namespace {

constexpr const char *option = "--library=";

// The library to test; NULL if none was named.
const char *named(int count, char **arguments) {
    for (int i = 1; i < count; i++)
        if (strncmp(arguments[i], option, strlen(option)) == 0)
            return arguments[i] + strlen(option);
    return nullptr;
}

// The suite lies beside this program.
std::string suite_file() {
    char path[4096];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    const std::string program(path,
                              length > 0 ? static_cast<size_t>(length) : 0);
    return program.substr(0, program.rfind('/') + 1) + "platform_suite.so";
}

int refuse() {
    fprintf(stderr, "%s\n", dlerror());
    return 2;
}

} // namespace

int main(int count, char **arguments) {
    const char *name = named(count, arguments);
    void *library = dlopen(name == nullptr ? "libxfplatform.so.1" : name,
                           RTLD_NOW | RTLD_GLOBAL);
    if (library == nullptr)
        return refuse();
    // Lazily: a call that the library does not have fails its tests alone.
    void *suite = dlopen(suite_file().c_str(), RTLD_LAZY | RTLD_LOCAL);
    if (suite == nullptr)
        return refuse();
    using Run = int(int, char **, void *);
    auto run = reinterpret_cast<Run *>(dlsym(suite, "run_suite"));
    return run == nullptr ? refuse() : run(count, arguments, library);
}
