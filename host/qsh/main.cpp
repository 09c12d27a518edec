// qsh, the command shell: shows the configurations and applies a file of
// configuration lines to the running one.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/base/files.h"
#include "host/base/record.h"
#include "host/base/settings.h"
#include "host/base/startup_config.h"
#include "host/qsh/backend.h"
#include "host/qsh/exit_codes.h"

using namespace xfhost;

namespace {

constexpr const char *usage =
    "usage: qsh -c \"show running-config\" | \"show startup-config\"\n"
    "       qsh -c \"copy running-config startup-config\"\n"
    "       qsh -c \"accept running-config\"\n"
    "       qsh --apply FILE RESULTS\n"
    "The third form takes a running configuration that was damaged as it is.\n"
    "The fourth form merges the lines of FILE into the running configuration;\n"
    "RESULTS receives one line for each line that was refused.\n";

int fail(const char *what) {
    fprintf(stderr, "qsh: %s: %s\n", what, strerror(errno));
    return exit_failed;
}

int refuse(const std::string &why) {
    fprintf(stderr, "qsh: %s\n", why.c_str());
    return exit_failed;
}

int print(const std::string &text) {
    return write_whole(STDOUT_FILENO, text) ? 0 : fail("standard output");
}

int show_running(Backend &backend) {
    std::string text, why;
    return backend.show(text, why) ? print(text) : refuse(why);
}

int show_startup() {
    Fd directory = open_startup_directory();
    if (!directory)
        return fail("state directory");
    Fd file = open_private_file(directory.get(), "system.cfg", O_RDONLY);
    std::string text;
    if (!file || !read_whole(file.get(), largest_config, text))
        return fail("startup configuration");
    return print(text);
}

int save(Backend &backend) {
    std::string text, why;
    if (!backend.show(text, why))
        return refuse(why);
    return keep_shown(text) ? 0 : fail("startup configuration");
}

int accept_running(Backend &backend) {
    std::string why;
    return backend.accept(why) ? 0 : refuse(why);
}

int run_command(Backend &backend, const std::string &command) {
    if (command == "show running-config")
        return show_running(backend);
    if (command == "show startup-config")
        return show_startup();
    if (command == "copy running-config startup-config")
        return save(backend);
    if (command == "accept running-config")
        return accept_running(backend);
    fprintf(stderr, "qsh: unknown command %s\n", quoted(command).c_str());
    return exit_usage;
}

bool read_named(const char *path, std::string &text) {
    Fd file(open(path, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    return file && read_whole(file.get(), largest_config, text);
}

int exit_code(const ApplyResult &result) {
    if (result.stopped)
        return exit_lines_skipped;
    if (result.refused > 0)
        return exit_lines_refused;
    return result.lines == 0 ? exit_no_configuration : 0;
}

// The results file stands in a directory that others can write to: a new file
// takes its place, so that no link there leads anywhere.
void write_results(const std::string &path, const std::string &results) {
    size_t slash = path.rfind('/');
    std::string folder =
        slash == std::string::npos ? "." : path.substr(0, slash + 1);
    std::string name = path.substr(slash == std::string::npos ? 0 : slash + 1);
    Fd directory(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory || name.empty() ||
        !replace_durably(directory.get(), name.c_str(), results))
        fprintf(stderr, "qsh: %s: %s\n", path.c_str(), strerror(errno));
}

int apply(Backend &backend, const char *path, const char *results_path) {
    std::string text, results, why;
    if (!read_named(path, text))
        return fail(path);
    ApplyResult result;
    if (!backend.apply(text, result, results, why))
        return refuse(why);
    if (result.stopped)
        results += "stopped after " + std::to_string(result.refused) +
                   " refused lines; the rest was not looked at\n";
    write_results(results_path, results);
    return exit_code(result);
}

} // namespace

int main(int count, char **arguments) {
    bool command = count == 3 && strcmp(arguments[1], "-c") == 0;
    bool file = count == 4 && strcmp(arguments[1], "--apply") == 0;
    if (!command && !file) {
        fputs(usage, stderr);
        return exit_usage;
    }
    const Settings *s = settings();
    if (s == nullptr)
        return exit_failed;
    auto backend = make_backend(*s);
    return command ? run_command(*backend, arguments[2])
                   : apply(*backend, arguments[2], arguments[3]);
}
