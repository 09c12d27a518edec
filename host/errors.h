// Error codes that the host platform adds to those of the platform's headers.
#ifndef HOST_ERRORS_H
#define HOST_ERRORS_H

#include <cstdint>

#include "platform/procd.h"
#include "platform/qsh.h"

namespace xfhost {

// Applying a configuration, beside QSH_ERR_CFG_*.
constexpr uint32_t err_apply_failed = 0x40540010;
constexpr uint32_t err_apply_time_limit = 0x40540011;
constexpr uint32_t err_shell_not_run = 0x40540012;

// Keeping a startup configuration.
constexpr uint32_t err_startup_not_read = 0x401E0010;
constexpr uint32_t err_startup_not_kept = 0x401E0011;

// Saving the running configuration through the system manager.
constexpr uint32_t err_save_busy = 0x401E0012;
constexpr uint32_t err_save_request = 0x401E0013;
constexpr uint32_t err_save_aborted = 0x401E0014;
constexpr uint32_t err_save_interrupted = 0x401E0015;
constexpr uint32_t err_manager_gone = 0x401E0016;
constexpr uint32_t err_no_fabric = 0x401E0017;
constexpr uint32_t err_fabric_failed = 0x401E0018;

// Addresses and the switch itself.
constexpr uint32_t err_address_type = 0x40560001;
constexpr uint32_t err_address_text = 0x40560002;
constexpr uint32_t err_no_chassis_type = 0x40560003;
constexpr uint32_t err_no_management_port = 0x40560004;

} // namespace xfhost

#endif
