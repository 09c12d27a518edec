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
#include "host/qsh/text_config.h"

using namespace xfhost;

namespace {

constexpr const char *usage =
    "usage: qsh -c \"show running-config\" | \"show startup-config\"\n"
    "       qsh -c \"copy running-config startup-config\"\n"
    "       qsh --apply FILE RESULTS\n"
    "The third form merges the lines of FILE into the running configuration;\n"
    "RESULTS receives one line for each line that was refused.\n";

int fail(const char *what) {
    fprintf(stderr, "qsh: %s: %s\n", what, strerror(errno));
    return exit_failed;
}

// Prints a file of a directory. A configuration that was never made is empty
// if `missing_is_empty`.
int show(const Fd &directory, const char *name, bool missing_is_empty) {
    if (!directory)
        return fail("state directory");
    Fd file = open_private_file(directory.get(), name, O_RDONLY);
    std::string text;
    if (!file && errno == ENOENT && missing_is_empty)
        return 0;
    if (!file || !read_whole(file.get(), largest_config, text))
        return fail(name);
    return write_whole(STDOUT_FILENO, text) ? 0 : fail("standard output");
}

int show_startup() {
    Fd directory = open_startup_directory();
    if (!directory)
        return fail("state directory");
    return show(directory, "system.cfg", false);
}

int save() {
    std::string text;
    if (!read_running(text))
        return fail("running configuration");
    return keep_startup(text) ? 0 : fail("startup configuration");
}

int run_command(const std::string &command) {
    if (command == "show running-config")
        return show(open_state_directory(), "running-config", true);
    if (command == "show startup-config")
        return show_startup();
    if (command == "copy running-config startup-config")
        return save();
    fprintf(stderr, "qsh: unknown command %s\n", quoted(command).c_str());
    return exit_usage;
}

bool read_named(const char *path, std::string &text) {
    Fd file(open(path, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    return file && read_whole(file.get(), largest_config, text);
}

bool load_running(int state, TextConfig &config) {
    Fd file = open_private_file(state, "running-config", O_RDONLY);
    if (!file)
        return errno == ENOENT;
    std::string text;
    if (!read_whole(file.get(), largest_config, text))
        return false;
    config.load(text);
    return true;
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
    Fd lock = lock_file(state.get(), "running-config.lock", true);
    TextConfig config;
    if (!lock || !load_running(state.get(), config))
        return fail("running-config");

    std::string results;
    ApplyResult result = config.apply(
        text, [&](size_t number, std::string_view line, const char *why) {
            results += result_line(number, line, why);
        });
    if (result.stopped)
        results += "stopped after " + std::to_string(result.refused) +
                   " refused lines; the rest was not looked at\n";
    if (result.refused < result.lines &&
        !replace_durably(state.get(), "running-config", config.print()))
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
