// The calls of the platform's qsh service: they run the shell.
#include "platform/qsh.h"

#include <cerrno>
#include <cstring>
#include <new>

#include <sys/wait.h>

#include "host/base/log.h"
#include "host/base/settings.h"
#include "host/base/spawn.h"
#include "host/errors.h"
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

int run(const qsh_cfg_file_request &request, int limit) {
    SpawnRequest shell;
    shell.path = "/brim/bin/qsh";
    shell.arguments = {"--apply", text_of(request.cfg_file),
                       text_of(request.out_file)};
    pid_t pid;
    int error = spawn_program(shell, pid);
    if (error != 0) {
        log_message(LOG_ERR, "%s: %s", shell.path.c_str(), strerror(error));
        return as_result(err_shell_not_run);
    }
    int status = 0;
    error = wait_with_limit(pid, limit, status);
    if (error == ETIMEDOUT)
        return as_result(err_apply_time_limit);
    return error != 0 ? as_result(err_apply_failed) : result_of(status);
}

} // namespace

int qsh_execute_cfg_file2(const struct qsh_cfg_file_request *request) {
    const Settings *s = settings();
    if (s == nullptr)
        return as_result(err_apply_failed);
    try {
        return run(*request, s->apply_seconds);
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
