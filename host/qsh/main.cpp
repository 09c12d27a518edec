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
#include "host/base/startup_config.h"
#include "host/qsh/exit_codes.h"
#include "host/qsh/running_config.h"
#include "host/qsh/text_config.h"

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

int show_running() {
    Fd state = open_state_directory();
    if (!state)
        return fail("state directory");
    std::string text, why;
    if (!RunningConfig(std::move(state)).read(text, why))
        return refuse(why);
    return print(text);
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

int save() {
    Fd state = open_state_directory();
    if (!state)
        return fail("state directory");
    RunningConfig running(std::move(state));
    std::string text, why;
    if (!running.lock())
        return fail("running-config.lock");
    if (!running.read(text, why))
        return refuse(why);
    return keep_startup(text) ? 0 : fail("startup configuration");
}

// What somebody does who has looked at it.
int accept_running() {
    Fd state = open_state_directory();
    if (!state)
        return fail("state directory");
    RunningConfig running(std::move(state));
    return running.lock() && running.accept() ? 0 : fail("running-config");
}

int run_command(const std::string &command) {
    if (command == "show running-config")
        return show_running();
    if (command == "show startup-config")
        return show_startup();
    if (command == "copy running-config startup-config")
        return save();
    if (command == "accept running-config")
        return accept_running();
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

std::string result_line(size_t number, std::string_view line, const char *why) {
    return "line " + std::to_string(number) + ": " + why + ": " +
           quoted(line.substr(0, longest_line)) + "\n";
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

int apply(const char *path, const char *results_path) {
    std::string text;
    if (!read_named(path, text))
        return fail(path);
    Fd state = open_state_directory();
    if (!state)
        return fail("state directory");
    RunningConfig running(std::move(state));
    std::string before, why;
    if (!running.lock())
        return fail("running-config.lock");
    if (!running.read(before, why))
        return refuse(why);
    TextConfig config;
    config.load(before);

    std::string results;
    ApplyResult result = config.apply(
        text, [&](size_t number, std::string_view line, const char *reason) {
            results += result_line(number, line, reason);
        });
    if (result.stopped)
        results += "stopped after " + std::to_string(result.refused) +
                   " refused lines; the rest was not looked at\n";
    if (result.refused < result.lines && !running.write(config.print()))
        return fail("running-config");
    write_results(results_path, results);
    return exit_code(result);
}

} // namespace

int main(int count, char **arguments) {
    if (count == 3 && strcmp(arguments[1], "-c") == 0)
        return run_command(arguments[2]);
    if (count == 4 && strcmp(arguments[1], "--apply") == 0)
        return apply(arguments[2], arguments[3]);
    fputs(usage, stderr);
    return exit_usage;
}
