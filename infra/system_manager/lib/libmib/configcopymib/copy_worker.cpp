/*
 * The copy child: how it is launched and how a save is aborted, its work from
 * file type to file type, the network transfers, and the report of its result.
 */
#include "config_copy_mib_private.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/accounting.h"
#include "platform/errlog.h"
#include "platform/hwinfo.h"
#include "platform/messages.h"
#include "platform/procd.h"
#include "platform/program_runner.h"
#include "platform/qsh.h"
#include "platform/tftp.h"
#include "platform/vrfmgr.h"

/* ---- Launch and abort ---------------------------------------------------- */

int32_t start_copy(struct xfCopyEntry *entry) {
    if (module_state.copyChildRunning == 1) {
        TRACE_INFO("%s: child process is still running\n", __func__);
        return XF_ERR_FAILED;
    }
    const pid_t pid = fork();
    module_state.copy_child_pid = static_cast<int32_t>(pid);
    if (pid == 0) {
        copy_function(entry);
        TRACE_INFO("%s : exit = child_id %d\n", __func__,
                   static_cast<int>(getpid()));
        _exit(0);
    }
    /*
     * KEPT: a fork that failed counts as one that ran, and the row as running,
     * until a status message comes; the platform sends one for it.
     */
    module_state.copyChildRunning = 1;
    TRACE_INFO("%s : Created the process to copy with pid = %d\n", __func__,
               module_state.copy_child_pid);
    return 0;
}

int32_t handle_abort(const struct xfCopyEntry *entry) {
    static const struct ipcbus_address procd = {IPCBUS_NODE_LOCAL,
                                                IPCBUS_SAP_PROCD};
    uint8_t payload[SAVE_ABORT_SIZE] = {};

    if (entry->xfCopyState != XF_STATE_RUNNING || !is_running_to_startup(entry))
        return 0;
    TRACE_INFO("Sending request to procd to abort the copy running to startup");
    put_be32(payload + SAVE_ABORT_TOKEN,
             ipcbus_rr_token_get(module_state.save_request));
    /* KEPT: the result is not looked at: the row goes in any case. */
    ipcbus_send(ipcbus_response_q, &procd, IPCBUS_OPC_PROCD_COPY_ABORT, payload,
                sizeof(payload), 0, 0, nullptr);
    ipcbus_drop(ipcbus_response_q, module_state.save_request);
    module_state.save_request = nullptr;
    return 0;
}

/* ---- Report to the agent ------------------------------------------------- */

int32_t send_status_2_parent(uint32_t status) {
    static const struct ipcbus_address agent = {IPCBUS_NODE_LOCAL,
                                                IPCBUS_SAP_SNMP_AGENT};
    ipcbus_handle handle = nullptr;
    uint8_t payload[COPY_STATUS_SIZE];
    int attempts = 0;

    /* KEPT: as an error, a success too: it is what is looked for first. */
    TRACE_ERROR("%s: status is %d\n", __func__, static_cast<int>(status));
    for (;;) {
        const int bound = ipcbus_bind(IPCBUS_KIND_DATAGRAM, IPCBUS_SAP_ANY,
                                      &handle, "config_copy_task");
        if (bound >= 0)
            break;
        const int error = errno;
        TRACE_ERROR("%s: ipcbus_bind failed. errno %d\n", __func__, error);
        sleep(2); /* KEPT: behind the last attempt, too */
        if (++attempts == 10) {
            TRACE_ERROR("%s: ipcbus_bind failed. errno %d\n", __func__, error);
            return bound;
        }
    }
    put_be32(payload + COPY_STATUS_STATUS, status);
    if (ipcbus_send(handle, &agent, IPCBUS_OPC_CONFIG_COPY_STATUS, payload,
                    sizeof(payload), 0, 0, nullptr) != 0) {
        const int error = errno;
        TRACE_ERROR("%s: ipcbus_send failed. errno %d\n", __func__, error);
    }
    return ipcbus_unbind(handle, 0);
}

/* ---- Copy worker --------------------------------------------------------- */

#define XF_PATH_SIZE 256

/* The steps below speak in the name of the function that the child runs. */
static const char worker_function[] = "copy_function";

/* Where the remote file name points: the file, and the directory it is in. */
struct file_place {
    char directory[XF_PATH_SIZE];
    char local_name[XF_PATH_SIZE];
};

static const char *after_last(const char *text, int separator) {
    const char *const found = strrchr(text, separator);

    return found == nullptr ? nullptr : found + 1;
}

static void split_file_name(const char *name, struct file_place *place) {
    const char *local = after_last(name, '/');

    /* KEPT: a backslash separates only where no slash does. */
    if (local == nullptr)
        local = after_last(name, '\\');
    if (local == nullptr)
        local = name;
    copy_text(place->local_name, sizeof(place->local_name), local);
    copy_text(place->directory, sizeof(place->directory), ".");
    if (name[0] != '/')
        return;
    /* KEPT: the directory is traced and handed on; no transfer uses it. */
    const size_t directory_length = strlen(name) - 1 - strlen(local);
    if (directory_length > 0)
        copy_text(place->directory, directory_length + 1, name);
    TRACE_INFO("%s : Retrieved the Directory name = %s\n", worker_function,
               place->directory);
}

/*
 * The directory that copies are staged in. "." serves where its name cannot be
 * had: an empty name would make paths below the root directory of it.
 */
static void read_working_directory(char *directory, size_t size) {
    if (getcwd(directory, size) == nullptr)
        copy_text(directory, size, ".");
}

/* Result of applying a configuration as a fail cause. */
static uint32_t apply_fail_cause(int result) {
    switch (static_cast<uint32_t>(result)) {
    case QSH_ERR_CFG_EMPTY:
        return XF_FAIL_NO_CONFIG;
    case QSH_ERR_CFG_LINES_REFUSED:
    case QSH_ERR_CFG_LINES_SKIPPED:
        return XF_FAIL_SOME_CONFIG_APPLY_FAILED;
    default:
        return XF_FAIL_UNKNOWN;
    }
}

static int apply_configuration(const char *path) {
    struct qsh_cfg_file_request request;

    memset(&request, 0, sizeof(request));
    copy_text(request.cfg_file, sizeof(request.cfg_file), path);
    copy_text(request.out_file, sizeof(request.out_file),
              "/tmp/configcopy.txt");
    return qsh_execute_cfg_file2(&request);
}

static bool bind_requests(ipcbus_handle *handle) {
    if (ipcbus_bind(IPCBUS_KIND_REQ_RESP, IPCBUS_SAP_ANY, handle, "req-resp") >=
        0)
        return true;
    perror("Unable to run");
    return false;
}

/* -- From the network -- */

static uint32_t apply_downloaded(const char *path) {
    TRACE_INFO("%s : File to be executed  %s\n", worker_function, path);
    const int result = apply_configuration(path);
    TRACE_INFO("%s : Return from qsh_execute_cfg_file2 is %d\n",
               worker_function, result);
    fprintf(stderr, "%s : Return from qsh_execute_cfg_file2 is %d\n",
            worker_function, result);
    if (result == 0) {
        unlink(path);
        return 0;
    }
    TRACE_ERROR("%s : qsh_execute_cfg_file2 : Copy from n/w to running failed "
                "(ret_code = %d) : %s\n",
                worker_function, result,
                syserr_format(static_cast<uint32_t>(result)));
    unlink(path);
    return apply_fail_cause(result);
}

/*
 * KEPT: validation refuses a copy from the network to the startup
 * configuration; for rows that come here all the same. The file stays as
 * "system.cfg".
 */
static uint32_t save_downloaded(const char *local_name) {
    char directory[XF_PATH_SIZE];
    char path[XF_PATH_SIZE + sizeof("/system.cfg")];
    ipcbus_handle handle = nullptr;

    if (rename(local_name, "system.cfg") != 0) {
        perror("Could not rename the file");
        return XF_FAIL_UNKNOWN;
    }
    read_working_directory(directory, sizeof(directory));
    format_text(path, sizeof(path), "%s%s%s", directory, "/", "system.cfg");
    TRACE_INFO("%s : File to copy to startup is %s\n", worker_function, path);
    if (!bind_requests(&handle))
        return XF_FAIL_UNKNOWN;
    const int result = procd_cli_write_ascii_cfg(handle, path);
    if (result != 0)
        TRACE_ERROR("%s : Error copying file into startup (ret_code = %d: %s\n",
                    worker_function, result,
                    syserr_format(static_cast<uint32_t>(result)));
    ipcbus_unbind(handle, 0);
    return result == 0 ? 0 : XF_FAIL_UNKNOWN;
}

static uint32_t copy_from_network(struct xfCopyEntry *entry,
                                  struct file_place *place) {
    char path[2 * XF_PATH_SIZE];

    copy_text(entry->xfCopySrcFileName, sizeof(entry->xfCopySrcFileName),
              place->local_name);
    const int32_t cause =
        do_nw_upload_download(XF_DOWNLOAD, place->directory, entry);
    if (cause != 0) {
        TRACE_ERROR("%s : Download of file %s from n/w server failed. "
                    "(error = %d) \n",
                    worker_function, entry->xfCopyFileName, cause);
        return static_cast<uint32_t>(cause);
    }
    read_working_directory(place->directory, sizeof(place->directory));
    format_text(path, sizeof(path), "%s/%s", place->directory,
                place->local_name);
    fprintf(stderr, "%s : dir %s\n", worker_function, place->directory);
    fprintf(stderr, "%s : full filename %s\n", worker_function, path);
    switch (entry->xfCopyDestFileType) {
    case XF_FILE_RUNNING:
        return apply_downloaded(path);
    case XF_FILE_STARTUP:
        return save_downloaded(place->local_name);
    default: /* KEPT: a file type that is none is downloaded and left there */
        return 0;
    }
}

/* -- To the network -- */

/*
 * Names the stored startup configuration in the row and the trace.
 *
 * KEPT: what is sent is the one that the shell shows: stage_configuration names
 * that file instead. False if there is no handle to ask on.
 */
static bool locate_startup(struct xfCopyEntry *entry) {
    ipcbus_handle handle = nullptr;

    if (!bind_requests(&handle))
        return false;
    const char *const directory = procd_cli_dir_get(handle, 2);
    TRACE_INFO("%s : Copying startup (dir = %s) to network\n", worker_function,
               directory);
    format_text(entry->xfCopySrcFileName, sizeof(entry->xfCopySrcFileName),
                "%s/%s", directory, "system.cfg");
    ipcbus_unbind(handle, 0);
    return true;
}

/* Has the shell show a configuration into a new file; its wait status. */
static int show_into(FILE *file, const char *command) {
    void (*const action)(int) = signal(SIGCHLD, SIG_DFL);
    const int status = execute_program_and_wait_redirect(
        -1, fileno(file), -1, "/brim/bin/qsh", "-c", command,
        static_cast<char *>(nullptr));

    signal(SIGCHLD, action);
    TRACE_INFO("%s : ret val = 0x%x\n", worker_function,
               static_cast<unsigned>(status));
    fflush(file);
    fclose(file);
    return status;
}

/* What differs between the two configurations that can be shown. */
struct shown_configuration {
    const char *command;
    const char *failure_trace;
    const char *debug_text;
};

static const struct shown_configuration shown_startup = {
    "show startup-config",
    "%s : Show startup config failed, ret_val = 0x%x\n",
    "%s(%d):%s: xfCopySrcFileName %s from startup to network\n",
};
static const struct shown_configuration shown_running = {
    "show running-config",
    "%s : Show running config failed, ret_val = 0x%x\n",
    "%s(%d):%s: xfCopySrcFileName %s from running to network\n",
};

/*
 * Shows a configuration into the local file, which becomes the file to send;
 * place->directory becomes the directory that it is in.
 */
static bool stage_configuration(struct xfCopyEntry *entry,
                                struct file_place *place,
                                const struct shown_configuration *shown) {
    FILE *const file = fopen(place->local_name, "w");

    if (file == nullptr) {
        const int error = errno;
        static const char text[] = "%s : could not open %s, errno = 0x%x\n";

        fprintf(stderr, text, worker_function, place->local_name,
                static_cast<unsigned>(error));
        TRACE_INFO(text, worker_function, place->local_name,
                   static_cast<unsigned>(error));
        return false;
    }
    const int status = show_into(file, shown->command);
    if (status != 0) {
        TRACE_ERROR(shown->failure_trace, worker_function,
                    static_cast<unsigned>(status));
        return false;
    }
    read_working_directory(place->directory, sizeof(place->directory));
    format_text(entry->xfCopySrcFileName, sizeof(entry->xfCopySrcFileName),
                "%s/%s", place->directory, place->local_name);
    DEBUG_LOG_AS(worker_function, shown->debug_text, entry->xfCopySrcFileName);
    return true;
}

/*
 * Prepares the file to send; false if there is none.
 *
 * KEPT: where the shell failed, what it has shown so far stays in the file.
 */
static bool stage_upload(struct xfCopyEntry *entry, struct file_place *place,
                         ipcbus_handle handle) {
    switch (entry->xfCopySourceFileType) {
    case XF_FILE_STARTUP:
        return locate_startup(entry) &&
               stage_configuration(entry, place, &shown_startup);
    case XF_FILE_RUNNING:
        if (!stage_configuration(entry, place, &shown_running))
            return false;
        TRACE_INFO("%s : notifiy copy running <file> done\n", worker_function);
        qsh_notify_cfg_update(handle, 1, 2, 3);
        ipcbus_unbind(handle, 0);
        return true;
    default: /* KEPT: 6, 7 or a type that is none: its path is empty */
        return true;
    }
}

static uint32_t copy_to_network(struct xfCopyEntry *entry,
                                struct file_place *place) {
    const bool staged = entry->xfCopySourceFileType == XF_FILE_STARTUP ||
                        entry->xfCopySourceFileType == XF_FILE_RUNNING;
    ipcbus_handle handle = nullptr;

    /*
     * KEPT: bound for each upload and given back only by that of the running
     * configuration; the end of the child takes care of the others.
     */
    if (!bind_requests(&handle))
        return XF_FAIL_UNKNOWN;
    if (!stage_upload(entry, place, handle))
        return XF_FAIL_UNKNOWN;
    const int32_t cause =
        do_nw_upload_download(XF_UPLOAD, place->directory, entry);
    if (cause != 0)
        TRACE_ERROR("%s : Upload to n/w failed with code = %d \n",
                    worker_function, cause);
    else
        TRACE_INFO("%s : Copying done with SUCCESS\n", worker_function);
    if (staged)
        unlink(entry->xfCopySrcFileName);
    return static_cast<uint32_t>(cause);
}

/* -- Within the switch -- */

static uint32_t copy_startup_to_running(void) {
    char path[2 * XF_PATH_SIZE];
    ipcbus_handle handle = nullptr;

    if (!bind_requests(&handle))
        return XF_FAIL_UNKNOWN;
    format_text(path, sizeof(path), "%s/%s", procd_cli_dir_get(handle, 2),
                "system.cfg");
    TRACE_INFO("%s : Copying startup (file = %s) to running\n", worker_function,
               path);
    const int result = apply_configuration(path);
    TRACE_INFO("%s : Return from qsh_execute_cfg_file2 is %d\n",
               worker_function, result);
    if (result == 0) {
        TRACE_INFO("%s : Copying done with SUCCESS\n", worker_function);
        TRACE_INFO("%s : notifiy copy start running done\n", worker_function);
        qsh_notify_cfg_update(handle, 1, 1, 3);
    } else {
        TRACE_ERROR("%s : qsh_execute_cfg_file2 : Copy from startup (file = %s)"
                    " to running failed (ret_code = %d) : %s.\n",
                    worker_function, path, result,
                    syserr_format(static_cast<uint32_t>(result)));
    }
    ipcbus_unbind(handle, 0);
    return result == 0 ? 0 : apply_fail_cause(result);
}

static uint32_t copy_by_file_types(struct xfCopyEntry *entry,
                                   struct file_place *place) {
    const int32_t source = entry->xfCopySourceFileType;
    const int32_t dest = entry->xfCopyDestFileType;

    if (source == XF_FILE_NETWORK)
        return copy_from_network(entry, place);
    if (dest == XF_FILE_NETWORK)
        return copy_to_network(entry, place);
    if (source == XF_FILE_STARTUP && dest == XF_FILE_RUNNING)
        return copy_startup_to_running();
    return 0; /* KEPT: the launch forks no child for other pairs */
}

void copy_function(struct xfCopyEntry *entry) {
    struct file_place place;

    DEBUG_LOG("%s(%d):%s: Copy started with : xfCopyServerAddressRev1 = %s,"
              "xfCopyFileName= %s, xfCopyUserName=%s,xfCopyTimeStarted=%d "
              "xfCopyProtocol = %d xfCopySourceFileType = %d, "
              "xfCopyDestFileType= %d, xfCopyServerAddressType= %d,"
              "xfCopyVRFName= %s\n",
              entry->xfCopyServerAddressRev1, entry->xfCopyFileName,
              entry->xfCopyUserName,
              static_cast<int32_t>(timestamp_uptime(&entry->xfCopyTimeStarted)),
              entry->xfCopyProtocol, entry->xfCopySourceFileType,
              entry->xfCopyDestFileType, entry->xfCopyServerAddressType,
              entry->xfCopyVRFName);
    split_file_name(entry->xfCopyFileName, &place);
    send_status_2_parent(copy_by_file_types(entry, &place));
}

/* ---- Network transfer ---------------------------------------------------- */

/*
 * One engine serves three settings: plain, inside a VRF, and on the storage
 * pod. A setting names the function that its texts carry, the argument that it
 * gives the programs beyond the plain ones, and its own texts.
 */

#define COMMAND_TEXT_SIZE 512
#define OUTCOME_SIZE sizeof(" (SUCCESS)")
#define SERVER_TEXT_SIZE 64
#define TFTP_PORT 69

enum { PROGRAM_FTP, PROGRAM_SFTP, PROGRAM_SCP, PROGRAM_COUNT };

/* Texts of one program in one setting. */
struct program_texts {
    const char *put_line; /* to standard error after an upload */
    const char *get_line; /* after a download */
    const char *exit_trace;
};

struct setting {
    const char *function;
    const char *extra_argument; /* NULL in the plain setting */
    const char *vrf_name;       /* NULL outside of VRFs */
    int32_t vrf_id;
    const struct program_texts *texts; /* by program */
};

static const struct program_texts plain_texts[PROGRAM_COUNT] = {
    {"%s: FTP_PUT  add %s xfCopySrcFileName %s xfCopyFileName %s "
     "xfCopyUserName %s xfCopyUserPassword %s ret_code 0x%x\n",
     "%s: FTP_GET  add %s xfCopySrcFileName %s xfCopyFileName %s "
     "xfCopyUserName %s xfCopyUserPassword %s ret_code 0x%x\n",
     "%s : Return code from ftp.expect is  %d\n"},
    {"%s: SFTP_PUT  add %s xfCopySrcFileName %s xfCopyFileName %s "
     "xfCopyUserName %s xfCopyUserPassword %s ret_code 0x%x\n",
     "%s: SFTP_GET  add %s xfCopySrcFileName %s xfCopyFileName %s "
     "xfCopyUserName %s xfCopyUserPassword %s ret_code 0x%x\n",
     "%s : Return code from sftp.expect is  %d\n"},
    {"%s: SCP_PUT xfCopySrcFileName %s tmp_buf %s passwd %s ret_code 0x%x\n",
     "%s: SCP_GET xfCopySrcFileName %s tmp_buf %s passwd %s ret_code 0x%x\n",
     "%s : Return code from scp.expect is  %d\n"},
};

static const struct program_texts vrf_texts[PROGRAM_COUNT] = {
    {"%s: FTP_PUT  add %s xfCopySrcFileName %s xfCopyFileName %s "
     "xfCopyUserName %s xfCopyUserPassword %s vrf_id %d ret_code 0x%x\n",
     "%s: FTP_GET  add %s xfCopySrcFileName %s xfCopyFileName %s "
     "xfCopyUserName %s xfCopyUserPassword %s vrf_id %d ret_code 0x%x\n",
     "%s : Return code from ftp.expect is  %d\n"},
    {"%s: SFTP_PUT  add %s xfCopySrcFileName %s xfCopyFileName %s "
     "xfCopyUserName %s xfCopyUserPassword %s vrf_id %d ret_code 0x%x\n",
     "%s: SFTP_GET  add %s xfCopySrcFileName %s xfCopyFileName %s "
     "xfCopyUserName %s xfCopyUserPassword %s vrf_id %d ret_code 0x%x\n",
     "%s : Return code from sftp.expect is  %d\n"},
    {"%s: SCP_PUT xfCopySrcFileName %s tmp_buf %s passwd %s vrf_id %d "
     "ret_code 0x%x\n",
     "%s: SCP_GET xfCopySrcFileName %s tmp_buf %s passwd %s vrf_id %d "
     "ret_code 0x%x\n",
     "%s : Return code from scp.expect is  %d\n"},
};

/* KEPT: their blanks differ from those above: logs are searched for them. */
static const struct program_texts storage_pod_texts[PROGRAM_COUNT] = {
    {"%s: FTP_PUT add %s xfCopySrcFileName %s xfCopyFileName %s "
     "xfCopyUserName %s xfCopyUserPassword %s ret_code 0x%x\n",
     "%s: FTP_GET add %s xfCopySrcFileName %s xfCopyFileName %s "
     "xfCopyUserName %s xfCopyUserPassword %s ret_code 0x%x\n",
     "%s : Return code from ftp.expect is  %d\n"},
    {"%s:SFTP_PUT add %s xfCopySrcFileName %s xfCopyFileName %s"
     "xfCopyUserName %s xfCopyUserPassword %s ret_code 0x%x\n",
     "%s:SFTP_GET add %s xfCopySrcFileName %s xfCopyFileName %s"
     "xfCopyUserName %s xfCopyUserPassword %s ret_code 0x%x\n",
     "%s: Return code from sftp.expect is %d\n"},
    {"%s: SCP_PUT xfCopySrcFileName %s tmp_buf %s passwd %s ret_code 0x%x\n",
     "%s: SCP_GET xfCopySrcFileName %s tmp_buf %s passwd %s  ret_code 0x%x\n",
     "%s : Return code from scp.expect is  %d\n"},
};

/* One transfer: the request, its server, and its accounting text. */
struct transfer {
    const struct setting *setting;
    const struct xfCopyEntry *entry;
    uint32_t direction;
    char server[SERVER_TEXT_SIZE];
    char command[COMMAND_TEXT_SIZE + OUTCOME_SIZE];
};

/*
 * Protocol error or errno as a fail cause.
 *
 * KEPT: one table for both, so that errno 3 counts as a full disk and ENOSPC as
 * unknown.
 */
static int32_t fail_cause(uint32_t error) {
    static_assert(ENETUNREACH == 101 && ETIMEDOUT == 110,
                  "the library's results have Linux's numbers");

    switch (error) {
    case TFTP_CODE_DISK_FULL:
        return XF_FAIL_NO_MEMORY;
    case TFTP_CODE_NOT_FOUND:
    case TFTP_CODE_ACCESS_VIOLATION:
        return XF_FAIL_BAD_FILE_NAME;
    case ENETUNREACH:
    case ETIMEDOUT:
        return XF_FAIL_TIMEOUT;
    default:
        return XF_FAIL_UNKNOWN;
    }
}

int32_t tftperr2miberr(int32_t err) {
    const uint32_t positive = 0u - static_cast<uint32_t>(err);

    return fail_cause(err >= -TFTP_LARGEST_CODE ? positive
                                                : positive - TFTP_LARGEST_CODE);
}

/* What the accounting calls the side of the copy that is not the server. */
static const char *configuration_word(int32_t file_type,
                                      const char *otherwise) {
    switch (file_type) {
    case XF_FILE_STARTUP:
        return "startup-config";
    case XF_FILE_RUNNING:
        return "running-config";
    default:
        return otherwise;
    }
}

static void account_transfer(struct transfer *transfer, bool success) {
    /* The text was cut to leave room for it. */
    copy_text(transfer->command + strlen(transfer->command), OUTCOME_SIZE,
              success ? " (SUCCESS)" : " (FAILURE)");
    const char *const session = get_snmp_sessionid(0);
    const char *const user = get_snmp_username(0);
    account_lib_interim_update(ipcbus_response_q, session, user,
                               transfer->command);
}

/* "vrf" and its name behind the accounting text, inside of VRFs. */
static void append_vrf(struct transfer *transfer) {
    const size_t length = strlen(transfer->command);

    if (transfer->setting->vrf_name != nullptr)
        format_text(transfer->command + length, COMMAND_TEXT_SIZE - length,
                    " %s %s", "vrf", transfer->setting->vrf_name);
}

/*
 * The accounting text: "copy", source, destination.
 *
 * KEPT: no separator stands between the server (with its port, for TFTP) and
 * the name, and a download names the local path there: accounting is parsed so.
 */
static void describe(struct transfer *transfer, const char *scheme,
                     const char *user, const char *at, const char *port) {
    const struct xfCopyEntry *const entry = transfer->entry;

    if (transfer->direction == XF_UPLOAD)
        format_text(
            transfer->command, COMMAND_TEXT_SIZE, "%s %s %s%s%s%s%s%s", "copy",
            configuration_word(entry->xfCopySourceFileType,
                               entry->xfCopySrcFileName),
            scheme, user, at, transfer->server, port, entry->xfCopyFileName);
    else
        format_text(transfer->command, COMMAND_TEXT_SIZE, "%s %s%s%s%s%s%s %s",
                    "copy", scheme, user, at, transfer->server, port,
                    entry->xfCopySrcFileName,
                    configuration_word(entry->xfCopyDestFileType,
                                       entry->xfCopyFileName));
    append_vrf(transfer);
}

static void describe_tftp(struct transfer *transfer) {
    describe(transfer, "tftp://", "", "", ":69");
}

static void trace_announcement(const struct transfer *transfer) {
    const char *const function = transfer->setting->function;
    const struct xfCopyEntry *const entry = transfer->entry;

    if (transfer->direction == XF_UPLOAD)
        TRACE_INFO("%s : Putting the file (%s)to the server (%s)\n", function,
                   entry->xfCopySrcFileName, entry->xfCopyFileName);
    else
        TRACE_INFO("%s : Getting file %s to local file %s \n", function,
                   entry->xfCopyFileName, entry->xfCopySrcFileName);
}

/* -- TFTP by the library, in the plain setting -- */

static int32_t tftp_upload(struct transfer *transfer) {
    const char *const function = transfer->setting->function;
    const struct xfCopyEntry *const entry = transfer->entry;

    trace_announcement(transfer);
    describe_tftp(transfer);
    void (*const action)(int) = signal(SIGCHLD, SIG_DFL);
    const int result =
        tftp_put2(entry->xfCopySrcFileName, entry->xfCopyFileName, 0);
    signal(SIGCHLD, action);
    account_transfer(transfer, result >= 0);
    if (result >= 0) {
        TRACE_INFO("%s : File %s is uploaded\n", function,
                   entry->xfCopyFileName);
        return 0;
    }
    TRACE_ERROR("%s : Putting to  the tftp server failed : %s (errno: %d)\n",
                function, tftp_strerror(result), result);
    return tftperr2miberr(result);
}

static int32_t tftp_download(struct transfer *transfer) {
    const char *const function = transfer->setting->function;
    const struct xfCopyEntry *const entry = transfer->entry;

    trace_announcement(transfer);
    describe_tftp(transfer);
    void (*const action)(int) = signal(SIGCHLD, SIG_DFL);
    const int result =
        tftp_get2(entry->xfCopyFileName, entry->xfCopySrcFileName, 0);
    signal(SIGCHLD, action);
    account_transfer(transfer, result >= 0);
    if (result >= 0) {
        TRACE_INFO("%s :  File %s is downloaded\n", function,
                   entry->xfCopyFileName);
        return 0;
    }
    TRACE_ERROR("%s : Getting from tftp server failed :(%d) %s\n", function,
                result, tftp_strerror(result));
    return tftperr2miberr(result);
}

static int32_t transfer_by_tftp_library(struct transfer *transfer,
                                        int chassis_result) {
    const char *const function = transfer->setting->function;

    TRACE_INFO("%s : get chassis type return %d\n", function, chassis_result);
    int result = tftp_timeout_set(20);
    if (result < 0) {
        TRACE_ERROR("%s : Setting timeout failed : %s\n", function,
                    tftp_strerror(result));
        return XF_FAIL_UNKNOWN;
    }
    result = tftp_connect(transfer->server, -1);
    if (result < 0) {
        TRACE_ERROR("%s : Connecting to the tftp server failed : %s\n",
                    function, tftp_strerror(result));
        return tftperr2miberr(result);
    }
    switch (transfer->direction) {
    case XF_UPLOAD:
        return tftp_upload(transfer);
    case XF_DOWNLOAD:
        return tftp_download(transfer);
    default:
        return 0;
    }
}

/* Exit code in a wait status. */
static int exit_code_of(int status) {
    return static_cast<int>(static_cast<unsigned>(status) >> 8 & 0xFF);
}

/* -- TFTP by the program, in the other two -- */

/*
 * KEPT: the names stand between double quotes without escapes: what they do to
 * the shell is for the platform to know.
 */
static int32_t transfer_by_tftp_program(struct transfer *transfer) {
    const struct setting *const setting = transfer->setting;
    const struct xfCopyEntry *const entry = transfer->entry;
    char program[COMMAND_TEXT_SIZE];

    if (transfer->direction != XF_UPLOAD && transfer->direction != XF_DOWNLOAD)
        return 0;
    format_text(program, sizeof(program),
                "/brim/bin/ovan-tftp %d %s %d \"%s\" \"%s\" 1%s%s",
                transfer->direction == XF_UPLOAD ? 1 : 0, transfer->server,
                TFTP_PORT, entry->xfCopySrcFileName, entry->xfCopyFileName,
                setting->vrf_name != nullptr ? " " : "",
                setting->vrf_name != nullptr ? setting->vrf_name : "");
    describe_tftp(transfer);
    TRACE_INFO("%s : tftp_cmd %s\n", setting->function, program);
    void (*const action)(int) = signal(SIGCHLD, SIG_DFL);
    const int status = system(program);
    const int error = errno;
    signal(SIGCHLD, action);
    /* KEPT: accounting goes by the exit code, the result by all of status. */
    account_transfer(transfer, exit_code_of(status) == 0);
    if (status == -1)
        return fail_cause(static_cast<uint32_t>(error));
    return status == 0 ? 0 : XF_FAIL_UNKNOWN;
}

/* -- FTP, SFTP and SCP by expect scripts -- */

/* The longest list has six arguments and the setting's own. */
#define ARGUMENTS_SIZE 7

struct program_run {
    const char *path;
    const char *arguments[ARGUMENTS_SIZE]; /* NULL behind the last */
    char scp_target[256];
};

static void set_arguments(struct program_run *run, const char *const *arguments,
                          size_t count, const char *extra_argument) {
    memcpy(run->arguments, arguments, count * sizeof(arguments[0]));
    run->arguments[count] = extra_argument;
}

static void ftp_arguments(const struct transfer *transfer,
                          struct program_run *run) {
    const struct xfCopyEntry *const entry = transfer->entry;
    const bool upload = transfer->direction == XF_UPLOAD;
    const char *const arguments[] = {
        transfer->server,
        upload ? entry->xfCopySrcFileName : entry->xfCopyFileName,
        upload ? entry->xfCopyFileName : entry->xfCopySrcFileName,
        entry->xfCopyUserName,
        entry->xfCopyUserPassword,
        upload ? "put" : "get"};

    run->path = "/brim/bin/snmp.ftp.expect";
    set_arguments(run, arguments, 6, transfer->setting->extra_argument);
}

static void sftp_arguments(const struct transfer *transfer,
                           struct program_run *run) {
    const struct xfCopyEntry *const entry = transfer->entry;
    const bool upload = transfer->direction == XF_UPLOAD;
    const char *const arguments[] = {
        transfer->server,
        entry->xfCopyUserName,
        entry->xfCopyUserPassword,
        upload ? "put" : "get",
        upload ? entry->xfCopySrcFileName : entry->xfCopyFileName,
        upload ? entry->xfCopyFileName : entry->xfCopySrcFileName};

    run->path = "/brim/bin/sftp.expect";
    set_arguments(run, arguments, 6, transfer->setting->extra_argument);
}

static void scp_arguments(const struct transfer *transfer,
                          struct program_run *run) {
    const struct xfCopyEntry *const entry = transfer->entry;
    const bool upload = transfer->direction == XF_UPLOAD;

    format_text(run->scp_target, sizeof(run->scp_target), "%s%s%s:%s",
                entry->xfCopyUserName, "@", transfer->server,
                entry->xfCopyFileName);
    const char *const arguments[] = {
        upload ? entry->xfCopySrcFileName : run->scp_target,
        upload ? run->scp_target : entry->xfCopySrcFileName,
        entry->xfCopyUserPassword};

    run->path = "/brim/bin/scp.expect";
    set_arguments(run, arguments, 3, transfer->setting->extra_argument);
}

/* What differs between the programs. */
struct program {
    const char *scheme;
    void (*set_arguments)(const struct transfer *transfer,
                          struct program_run *run);
};

static const struct program programs[PROGRAM_COUNT] = {
    {"ftp://", ftp_arguments},
    {"sftp://", sftp_arguments},
    {"scp://", scp_arguments},
};

static void announce_program(const struct transfer *transfer, int program,
                             const struct program_run *run) {
    if (program == PROGRAM_SCP)
        TRACE_INFO("%s: executing command: %s %s %s %s",
                   transfer->setting->function, run->path, run->arguments[0],
                   run->arguments[1], run->arguments[2]);
    else
        trace_announcement(transfer);
}

static int run_program(const struct program_run *run) {
    const char *const *const argument = run->arguments;
    void (*const action)(int) = signal(SIGCHLD, SIG_DFL);
    const int status = execute_program_and_wait_redirect(
        -1, -1, -1, run->path, argument[0], argument[1], argument[2],
        argument[3], argument[4], argument[5], argument[6],
        static_cast<char *>(nullptr));

    signal(SIGCHLD, action);
    return status;
}

/*
 * One line on standard error for each run.
 *
 * KEPT: the password in it: this is where an operator looks when a server
 * refuses a login.
 */
static void print_run(const struct transfer *transfer, int program,
                      const struct program_run *run, int status) {
    const struct setting *const setting = transfer->setting;
    const struct xfCopyEntry *const entry = transfer->entry;
    const char *const line = transfer->direction == XF_UPLOAD
                                 ? setting->texts[program].put_line
                                 : setting->texts[program].get_line;
    const unsigned shown = static_cast<unsigned>(status);
    const bool in_vrf = setting->vrf_name != nullptr;

    if (program == PROGRAM_SCP && in_vrf)
        fprintf(stderr, line, setting->function, entry->xfCopySrcFileName,
                run->scp_target, entry->xfCopyUserPassword, setting->vrf_id,
                shown);
    else if (program == PROGRAM_SCP)
        fprintf(stderr, line, setting->function, entry->xfCopySrcFileName,
                run->scp_target, entry->xfCopyUserPassword, shown);
    else if (in_vrf)
        fprintf(stderr, line, setting->function, transfer->server,
                entry->xfCopySrcFileName, entry->xfCopyFileName,
                entry->xfCopyUserName, entry->xfCopyUserPassword,
                setting->vrf_id, shown);
    else
        fprintf(stderr, line, setting->function, transfer->server,
                entry->xfCopySrcFileName, entry->xfCopyFileName,
                entry->xfCopyUserName, entry->xfCopyUserPassword, shown);
}

static int32_t exit_fail_cause(int exit_code) {
    switch (exit_code) {
    case 0:
        return 0;
    case 1:
        return XF_FAIL_TIMEOUT;
    case 2:
        return XF_FAIL_BAD_FILE_NAME;
    case 3:
        return XF_FAIL_NO_MEMORY;
    default:
        return XF_FAIL_UNKNOWN;
    }
}

static int32_t transfer_by_script(struct transfer *transfer, int program) {
    const struct setting *const setting = transfer->setting;
    struct program_run run = {};

    if (transfer->direction != XF_UPLOAD && transfer->direction != XF_DOWNLOAD)
        return XF_FAIL_UNKNOWN;
    programs[program].set_arguments(transfer, &run);
    announce_program(transfer, program, &run);
    describe(transfer, programs[program].scheme,
             transfer->entry->xfCopyUserName, "@", "");
    const int status = run_program(&run);
    print_run(transfer, program, &run, status);
    /* KEPT: only the exit code counts, no signal that may have ended it. */
    const int exit_code = exit_code_of(status);
    TRACE_INFO(setting->texts[program].exit_trace, setting->function,
               exit_code);
    account_transfer(transfer, exit_code == 0);
    return status < 0 ? XF_FAIL_UNKNOWN : exit_fail_cause(exit_code);
}

/* -- By protocol -- */

static void prepare_transfer(struct transfer *transfer,
                             const struct setting *setting, uint32_t direction,
                             const struct xfCopyEntry *entry) {
    memset(transfer, 0, sizeof(*transfer));
    transfer->setting = setting;
    transfer->entry = entry;
    transfer->direction = direction;
    copy_text(transfer->server, sizeof(transfer->server),
              entry->xfCopyServerAddressRev1);
}

/* Every protocol but TFTP, which each setting does in a way of its own. */
static int32_t transfer_by_protocol(struct transfer *transfer) {
    switch (transfer->entry->xfCopyProtocol) {
    case XF_PROTO_FTP:
        return transfer_by_script(transfer, PROGRAM_FTP);
    case XF_PROTO_SFTP:
        return transfer_by_script(transfer, PROGRAM_SFTP);
    case XF_PROTO_RCP: /* KEPT: validation lets neither this through ... */
        return XF_FAIL_UNKNOWN;
    case XF_PROTO_SCP:
        return transfer_by_script(transfer, PROGRAM_SCP);
    default: /* KEPT: ... nor a protocol that is none */
        TRACE_ERROR("%s : Protocol not supported\n",
                    transfer->setting->function);
        return XF_FAIL_UNSUPPORTED_PROTOCOL;
    }
}

/*
 * Chassis models, as hwinfo_get_chassis_type numbers them, on which a server is
 * reached through a VRF.
 *
 * KEPT: neither 32 nor 34 is one, whatever its neighbours are.
 */
static const int32_t chassis_with_vrfs[] = {10, 11, 22, 28, 29, 30, 31, 33};

static bool chassis_needs_vrf(int32_t type) {
    for (const int32_t model : chassis_with_vrfs)
        if (model == type)
            return true;
    return false;
}

int32_t do_nw_upload_download(uint32_t direction, char *directory,
                              const struct xfCopyEntry *entry) {
    static const struct setting setting = {
        "do_nw_upload_download", /* extra_argument= */ nullptr,
        /* vrf_name= */ nullptr, /* vrf_id= */ 0, plain_texts};
    struct transfer transfer;
    int32_t chassis_type = -1;

    const int chassis_result = hwinfo_get_chassis_type(&chassis_type);
    if (chassis_result == 0 && chassis_needs_vrf(chassis_type))
        return do_nw_upload_download_on_vrf(direction, directory, entry);
    prepare_transfer(&transfer, &setting, direction, entry);
    if (entry->xfCopyProtocol == XF_PROTO_TFTP)
        return transfer_by_tftp_library(&transfer, chassis_result);
    return transfer_by_protocol(&transfer);
}

/* The VRF of a row, of the request, or the management one. */
static const char *choose_vrf(const struct xfCopyEntry *entry,
                              const char *function, const char *fallback) {
    int32_t error = 0;

    if (entry->xfCopyVRFName[0] != '\0')
        return entry->xfCopyVRFName;
    const char *const name = snmp_get_ctx_vrf_for_current_req(&error);
    if (error == 0)
        return name;
    TRACE_INFO("%s : get vrf failed with %d\n", function, error);
    return fallback;
}

int32_t do_nw_upload_download_on_vrf(uint32_t direction, char *directory,
                                     const struct xfCopyEntry *entry) {
    struct transfer transfer;
    char vrf_id[32];

    if (pod_get_type(0) == POD_TYPE_STORAGE)
        return do_nw_upload_download_on_storage_pod(direction, directory,
                                                    entry);
    const char *const vrf_name = choose_vrf(entry, __func__, "management");
    const int32_t context = vrfmgr_get_context_id(vrf_name);
    if (context == 0)
        return entry->xfCopyVRFName[0] != '\0' ? XF_FAIL_NO_CONFIG
                                               : XF_FAIL_UNKNOWN;
    snprintf(vrf_id, sizeof(vrf_id), "%d", context);
    TRACE_INFO("%s : vrf name %s vrf_id %d\n", __func__, vrf_name, context);

    const struct setting setting = {"do_nw_upload_download_on_vrf", vrf_id,
                                    vrf_name, context, vrf_texts};
    prepare_transfer(&transfer, &setting, direction, entry);
    if (entry->xfCopyProtocol == XF_PROTO_TFTP)
        return transfer_by_tftp_program(&transfer);
    return transfer_by_protocol(&transfer);
}

int32_t do_nw_upload_download_on_storage_pod(uint32_t direction,
                                             char *directory,
                                             const struct xfCopyEntry *entry) {
    static const struct setting setting = {
        "do_nw_upload_download_on_storage_pod", /* extra_argument= */ "1",
        /* vrf_name= */ nullptr, /* vrf_id= */ 0, storage_pod_texts};
    struct transfer transfer;

    (void)directory; /* KEPT: all three have the argument, none a use for it */
    prepare_transfer(&transfer, &setting, direction, entry);
    if (entry->xfCopyProtocol == XF_PROTO_TFTP)
        return transfer_by_tftp_program(&transfer);
    return transfer_by_protocol(&transfer);
}
