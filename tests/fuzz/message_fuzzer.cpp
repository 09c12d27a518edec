// Messages of any opcode, length and content against rows in any state, the
// system manager's replies to a save, and what collects the fabric's errors.
// Octets: steps, each of which starts with what it is.
#include <cstring>

#include "platform/messages.h"
#include "tests/fuzz/check.h"
#include "tests/fuzz/platform.h"
#include "tests/fuzz/rows.h"

using namespace fuzz;

namespace {

constexpr size_t most_steps = 60;

constexpr uint32_t opcodes[] = {IPCBUS_OPC_PROCD_COPY_STARTED,
                                IPCBUS_OPC_PROCD_COPY_RUN2START_DONE,
                                IPCBUS_OPC_CONFIG_COPY_STATUS};

bool fetch(int32_t index, xfCopyEntry &row) {
    memset(&row, 0, sizeof row);
    row.xfCopyIndex = index;
    return getXfCopyEntry(&row) == 0;
}

int32_t index_of(Input &input) {
    return static_cast<int32_t>(1 + input.choice(8));
}

// A row in any state: a new one, or one that stands changed.
void put_row(Input &input) {
    const int32_t index = index_of(input);
    if (!row_exists(index)) {
        xfCopyEntry *created = createXfCopyEntry();
        FUZZ_CHECK(created != nullptr, "no row");
        created->xfCopyIndex = index;
        FUZZ_CHECK(addXfCopyEntry(created) == 0, "row %d not added", index);
    }
    xfCopyEntry row;
    FUZZ_CHECK(fetch(index, row), "no row %d", index);
    row.xfCopyEntryRowStatus = XF_ROW_ACTIVE;
    row.xfCopyState = static_cast<int32_t>(XF_STATE_WAITING + input.choice(4));
    row.xfCopySourceFileType = static_cast<int32_t>(input.choice(8));
    row.xfCopyDestFileType = static_cast<int32_t>(input.choice(8));
    row.xfCopyNotificationOnCompletion = static_cast<int32_t>(input.choice(3));
    row.xfCopyTimeStarted.seconds = static_cast<int32_t>(input.word());
    constexpr const char *addresses[] = {"", "192.0.2.1", "2001:db8::1"};
    strcpy(row.xfCopyServerAddressRev1, addresses[input.choice(3)]);
    std::string name = without_password(input.octets(input.choice(129)));
    memset(row.xfCopyFileName, 0, sizeof row.xfCopyFileName);
    memcpy(row.xfCopyFileName, name.data(), name.size());
    memcpy(row.xfCopyUserPassword, password_mark.data(), password_mark.size());
    FUZZ_CHECK(setXfCopyEntry(&row, 0) == 0, "row %d not stored", index);
}

// The rows that a message may change are the first of their state.
int32_t first_in_state(int32_t state) {
    xfCopyEntry row;
    return get_config_entry_with_status(state, &row) == 0 ? row.xfCopyIndex : 0;
}

void check_notification(const netsnmp_variable_list *varbinds, size_t length,
                        int notify) {
    FUZZ_CHECK(notify == 0 || notify == 1, "notification %d", notify);
    if (notify == 0)
        FUZZ_CHECK(varbinds == nullptr, "varbinds of no notification");
    else
        FUZZ_CHECK(length == XF_NOTIFICATION_OID_LENGTH,
                   "a notification of length %zu", length);
}

void check_status(int32_t ended, const std::string *octets) {
    xfCopyEntry row;
    std::string padded = octets != nullptr ? *octets : "";
    padded.resize(16);
    const uint32_t status =
        octets != nullptr ? get_be32(padded.data()) : uint32_t{XF_FAIL_UNKNOWN};

    FUZZ_CHECK(module_state.copyChildRunning == 0, "the child is still there");
    if (ended == 0)
        return;
    FUZZ_CHECK(fetch(ended, row), "row %d is gone", ended);
    FUZZ_CHECK(row.xfCopyState ==
                   (status == 0 ? XF_STATE_SUCCESSFUL : XF_STATE_FAILED),
               "row %d: state %d after status %u", ended, row.xfCopyState,
               status);
    FUZZ_CHECK(
        row.xfCopyFailCause == (status == 0 ? 1 : static_cast<int32_t>(status)),
        "row %d: cause %d after status %u", ended, row.xfCopyFailCause, status);
}

void check_save_end(int32_t running, bool was_save) {
    xfCopyEntry row;
    if (running == 0)
        return;
    FUZZ_CHECK(fetch(running, row), "row %d is gone", running);
    FUZZ_CHECK(!was_save || module_state.save_request == nullptr,
               "the request of a save that ended is kept");
    FUZZ_CHECK(was_save == (row.xfCopyState != XF_STATE_RUNNING),
               "row %d: state %d after the end of a save", running,
               row.xfCopyState);
}

void deliver(Input &input) {
    const unsigned which = input.choice(4);
    const uint32_t opcode = which < 3 ? opcodes[which] : input.word();
    const unsigned kind = input.choice(4);
    const size_t size = kind == 2 ? 4 : input.octet();
    const std::string octets = input.octets(size);
    const std::string *payload = kind == 3 ? nullptr : &octets;
    ipcbus_message *message = new_message(opcode, payload);
    // An agent gives an outcome with one opcode only; a handler that looked at
    // it for another one would show.
    size_t length = input.choice(2) == 0 ? 0 : input.word();
    oid name[MAX_OID_LEN];
    int notify = -1;
    xfCopyEntry row;

    const size_t count = rows().size();
    const int32_t running = first_in_state(XF_STATE_RUNNING);
    const int32_t waiting = first_in_state(XF_STATE_WAITING);
    const bool was_save = fetch(running, row) && is_running_to_startup(&row);
    const netsnmp_variable_list *varbinds =
        handle_notifications(message, name, &length, &notify);
    check_notification(varbinds, length, notify);
    ipcbus_drop(ipcbus_response_q, message);

    FUZZ_CHECK(rows().size() == count, "a message made or took a row");
    if (opcode == IPCBUS_OPC_CONFIG_COPY_STATUS)
        check_status(running, payload);
    else if (opcode == IPCBUS_OPC_PROCD_COPY_RUN2START_DONE)
        check_save_end(running, was_save);
    else if (opcode == IPCBUS_OPC_PROCD_COPY_STARTED)
        FUZZ_CHECK(waiting == 0 || (fetch(waiting, row) &&
                                    row.xfCopyState == XF_STATE_RUNNING),
                   "row %d does not run", waiting);
    else
        FUZZ_CHECK(first_in_state(XF_STATE_RUNNING) == running && notify == 0,
                   "a message of another opcode did something");
}

void save(Input &input) {
    xfCopyEntry row;
    if (!fetch(index_of(input), row))
        return;
    const xfCopyEntry before = row;
    const int32_t result = do_cp_runningtostartup(&row);
    FUZZ_CHECK(result == 0 || result == XF_ERR_REQUEST_NOT_SENT, "result %d",
               result);
    const bool ended = row.xfCopyState != before.xfCopyState ||
                       module_state.save_request == nullptr;
    FUZZ_CHECK(ended == (module_state.save_request == nullptr),
               "the request of a save that ended is kept");
    setXfCopyEntry(&row, 0);
}

void abort_save(Input &input) {
    xfCopyEntry row;
    if (!fetch(index_of(input), row))
        return;
    FUZZ_CHECK(handle_abort(&row) == 0, "an abort failed");
    if (row.xfCopyState == XF_STATE_RUNNING && is_running_to_startup(&row))
        FUZZ_CHECK(module_state.save_request == nullptr,
                   "the request of an aborted save is kept");
}

void launch(Input &input) {
    xfCopyEntry row;
    if (!fetch(index_of(input), row) || copy_inprogress() != 0)
        return;
    validate_n_start_copy(&row, input.choice(2) == 0 ? XF_ROW_ACTIVE
                                                     : XF_ROW_CREATE_AND_GO);
}

void collect(Input &input) {
    xfCopyEntry row;
    if (!fetch(index_of(input), row))
        return;
    collect_fabric_error_rows(&row);
}

void remove(Input &input) {
    xfCopyEntry row;
    if (fetch(index_of(input), row))
        FUZZ_CHECK(deleteXfCopyEntry(&row) == 0, "a row stays");
}

void step(Input &input) {
    switch (input.choice(8)) {
    case 0:
        return put_row(input);
    case 1:
        return save(input);
    case 2:
        return abort_save(input);
    case 3:
        return launch(input);
    case 4:
        return collect(input);
    case 5:
        return remove(input);
    default:
        return deliver(input);
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    start_platform();
    snmp_disable_log();
    start_module();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *octets, size_t size) {
    Input input(octets, size);
    begin_input(input);
    for (size_t steps = 0; !input.empty() && steps < most_steps; steps++) {
        step(input);
        check_tables();
    }
    end_input();
    return 0;
}
