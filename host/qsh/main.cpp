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
#include "host/history/moved.h"
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

// What the shell was asked for, for a report.
const char *step = "";

int refuse(const std::string &why) {
    fprintf(stderr, "qsh: %s\n", why.c_str());
    Report report;
    report.reason = std::string(step) + ": " + why;
    report.advice = "Look at the switch: at its disk, at its state directory, "
                    "and at the log of its agent.";
    tell(report);
    return exit_failed;
}

int fail(const char *what) {
    return refuse(std::string(what) + ": " + strerror(errno));
}

int print(const std::string &text) {
    return write_whole(STDOUT_FILENO, text) ? 0 : fail("standard output");
}

int show_running(Backend &backend) {
    step = "Showing the running configuration";
    std::string text, why;
    return backend.show(text, why) ? print(text) : refuse(why);
}

int show_startup() {
    step = "Showing the startup configuration";
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
    step = "Saving the running configuration";
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

std::string lines_text(const ApplyResult &result) {
    if (result.lines == 0)
        return "there is no line of configuration in it";
    std::string text =
        std::to_string(result.refused) + " of " + std::to_string(result.lines) +
        " lines were refused, the first is line " +
        std::to_string(result.first_refused) + ": " + result.refusal;
    if (result.stopped)
        text += "; the lines behind the last of these were not looked at";
    return text;
}

void tell_applied(const ApplyResult &result, const std::string &text,
                  const char *results_path) {
    Report report = moved_report(text);
    report.refused = result.refused;
    report.first_refused = result.first_refused;
    report.refusal = result.refusal;
    if (exit_code(result) != 0)
        report.reason = std::string(step) + ": " + lines_text(result);
    if (result.lines == 0)
        report.advice = "Look whether the right file was copied.";
    else if (result.refused > 0)
        report.advice = std::string("Mend these lines; on the switch, ") +
                        results_path + " lists them.";
    tell(report);
}

int apply(Backend &backend, const char *path, const char *results_path) {
    step = "Applying the configuration";
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
    tell_applied(result, text, results_path);
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
