// The calls of the platform's qsh service: they run the shell.
#include "platform/qsh.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <new>
#include <string>
#include <vector>

#include <sys/wait.h>

#include "host/base/log.h"
#include "host/base/settings.h"
#include "host/base/spawn.h"
#include "host/errors.h"
#include "host/history/report.h"
#include "host/ipcbus/wire.h"
#include "host/procd/protocol.h"
#include "host/qsh/exit_codes.h"

using namespace xfhost;

namespace {

int as_result(uint32_t code) {
    return static_cast<int>(code);
}

std::string text_of(const char (&field)[128]) {
    return {field, strnlen(field, sizeof field)};
}

// The files that lie in the working directory; at least two if there are more.
std::vector<std::string> staged_files() {
    std::vector<std::string> names;
    std::error_code error;
    auto each = std::filesystem::directory_iterator(".", error);
    for (; !error && each != std::filesystem::directory_iterator() &&
           names.size() < 2;
         each.increment(error))
        if (each->symlink_status(error).type() ==
            std::filesystem::file_type::regular)
            names.push_back(each->path().filename().string());
    return names;
}

std::string working_directory() {
    std::error_code error;
    std::string path = std::filesystem::current_path(error).string();
    return error ? "" : path;
}

// A path that fills its field was cut there, or might have been. A copy from a
// server has one file in its own directory, and means that one; the other file
// that is ever meant is the startup configuration. Empty if the text is the
// beginning of neither.
std::string whole_path(const std::string &text, const Settings &settings) {
    if (text.size() < sizeof qsh_cfg_file_request().cfg_file - 1)
        return text;
    std::vector<std::string> names = staged_files();
    std::string here = working_directory();
    if (names.size() == 1)
        for (const std::string &path :
             {here + "/" + names.front(), "./" + names.front()})
            if (path.starts_with(text))
                return "./" + names.front();
    std::string startup = settings.state_directory + "/startup/system.cfg";
    bool staged = (here + "/").starts_with(text);
    return !staged && startup.starts_with(text) ? startup : "";
}

int result_of(int status) {
    if (!WIFEXITED(status))
        return as_result(err_apply_failed);
    switch (WEXITSTATUS(status)) {
    case 0:
        return 0;
    case exit_lines_refused:
        return QSH_ERR_CFG_LINES_REFUSED;
    case exit_no_configuration:
        return QSH_ERR_CFG_EMPTY;
    case exit_lines_skipped:
        return QSH_ERR_CFG_LINES_SKIPPED;
    default:
        return as_result(err_apply_failed);
    }
}

// For a shell that cannot say it itself.
void tell_failure(const std::string &what) {
    Report report;
    report.reason = "Applying the configuration: " + what;
    report.advice = "Look at the running configuration, whether it was applied "
                    "in part, and into the log of the agent.";
    tell(report);
}

// Gives the result.
int end_of(int error, int status, const Settings &settings) {
    if (error == ETIMEDOUT) {
        tell_failure("the shell had not ended after " +
                     std::to_string(settings.apply_seconds) +
                     " seconds (setting apply_seconds) and was stopped");
        return as_result(err_apply_time_limit);
    }
    if (error != 0)
        tell_failure(std::string("the shell is lost: ") + strerror(error));
    else if (WIFSIGNALED(status))
        tell_failure(std::string("the shell was ended by a signal: ") +
                     strsignal(WTERMSIG(status)));
    else if (WEXITSTATUS(status) != 0)
        tell_failure("the shell ended with status " +
                     std::to_string(WEXITSTATUS(status)));
    return error != 0 ? as_result(err_apply_failed) : result_of(status);
}

int run(const qsh_cfg_file_request &request, const Settings &settings) {
    std::string path = whole_path(text_of(request.cfg_file), settings);
    if (path.empty()) {
        log_message(LOG_ERR, "%s...: no telling which file this is",
                    text_of(request.cfg_file).c_str());
        tell_failure("no telling which file " + text_of(request.cfg_file) +
                     "... is");
        return as_result(err_apply_failed);
    }
    SpawnRequest shell;
    shell.path = "/brim/bin/qsh";
    shell.arguments = {"--apply", path, text_of(request.out_file)};
    pid_t pid;
    int error = spawn_program(shell, pid);
    if (error != 0) {
        log_message(LOG_ERR, "%s: %s", shell.path.c_str(), strerror(error));
        tell_failure(shell.path + " cannot be run: " + strerror(error));
        return as_result(err_shell_not_run);
    }
    int status = 0;
    error = wait_with_limit(pid, settings.apply_seconds, status);
    return end_of(error, status, settings);
}

} // namespace

int qsh_execute_cfg_file2(const struct qsh_cfg_file_request *request) {
    const Settings *s = settings();
    if (s == nullptr)
        return as_result(err_apply_failed);
    try {
        return run(*request, *s);
    } catch (const std::bad_alloc &) {
        return as_result(err_apply_failed);
    }
}

int qsh_notify_cfg_update(ipcbus_handle handle, int what, int from, int to) {
    uint8_t payload[12];
    put_be32(payload, static_cast<uint32_t>(what));
    put_be32(payload + 4, static_cast<uint32_t>(from));
    put_be32(payload + 8, static_cast<uint32_t>(to));
    const ipcbus_address procd = {IPCBUS_NODE_LOCAL, IPCBUS_SAP_PROCD};
    return ipcbus_send(handle, &procd, opcode_config_event, payload,
                       sizeof payload, 0, 0, nullptr);
}
