/*
 * qsh: the command shell. As a program it is "/brim/bin/qsh"; "-c" and a
 * command such as "show running-config" prints the result on standard output.
 */
#ifndef PLATFORM_QSH_H
#define PLATFORM_QSH_H

#include <stdint.h>

#include "ipcbus.h"
#include "layout.h"
#include "visibility.h"

/* Results of qsh_execute_cfg_file2 beside 0. */
#define QSH_ERR_CFG_LINES_REFUSED 0x40540001 /* some lines failed */
#define QSH_ERR_CFG_EMPTY 0x40540002         /* no configuration in the file */
#define QSH_ERR_CFG_LINES_SKIPPED 0x40540003 /* not all lines were tried */

/* A request to apply a file of configuration; fields not named are zero. */
struct qsh_cfg_file_request {
    char cfg_file[128]; /* path of the configuration */
    char out_file[128]; /* path that receives a result for each line refused */
    uint32_t reserved[8];
};

PLATFORM_RECORD_SIZE(qsh_cfg_file_request, 288);
PLATFORM_FIELD_AT(qsh_cfg_file_request, out_file, 128);
PLATFORM_FIELD_AT(qsh_cfg_file_request, reserved, 256);

PLATFORM_BEGIN_DECLS

/*
 * Applies a configuration file to the running configuration, line by line.
 * Returns 0 or an error code for syserr_format.
 *
 * Context: child. Blocks until done.
 */
int qsh_execute_cfg_file2(const struct qsh_cfg_file_request *request);

/*
 * Tells the other processes of the switch that a configuration was read or
 * changed by a copy. The three numbers are the platform's: 1, 2, 3 after
 * reading the running configuration, 1, 1, 3 after applying the startup one.
 * Returns 0; failures are of no consequence to the copy.
 *
 * Context: child. Does not block.
 */
int qsh_notify_cfg_update(ipcbus_handle handle, int what, int from, int to);

PLATFORM_END_DECLS

#endif
