// Lives of rows in one process, one after the other and side by side: created
// by whole requests to an agent, copied from and to everywhere, failed, done,
// destroyed, aged out, under a clock that this program moves. After each the
// tables must be in order and hold exactly the memory of their rows; at the end
// memory and descriptors must be what they were after the first tenth.
//
//     soak [LIVES [SEED]]
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include <dirent.h>
#include <malloc.h>
#include <sys/time.h>
#include <unistd.h>

#include "platform/messages.h"
#include "tests/fuzz/agent.h"
#include "tests/fuzz/check.h"
#include "tests/fuzz/platform.h"
#include "tests/fuzz/rows.h"

using namespace fuzz;

// ---- The clock --------------------------------------------------------------

namespace {
constexpr time_t first_second = 1'700'000'000;
time_t now = first_second;
} // namespace

// In the place of the C library's, for the whole process.
extern "C" time_t time(time_t *to) noexcept {
    if (to != nullptr)
        *to = now;
    return now;
}
extern "C" int gettimeofday(struct timeval *to, void *) noexcept {
    *to = {now, 0};
    return 0;
}

namespace {

std::mt19937 dice;

unsigned one_of(unsigned count) {
    return static_cast<unsigned>(dice() % count);
}

// ---- What the platform is told to answer ------------------------------------

std::string answers;
Input input(nullptr, 0);

void platform_answers(const std::string &octets) {
    answers = octets;
    input = Input(reinterpret_cast<const uint8_t *>(answers.data()),
                  answers.size());
}

constexpr char sent = 0;       // a request; a fork, as well
constexpr char not_made = 7;   // that could not be sent; a fork that failed
constexpr char accepted = 0;   // answers to a save
constexpr char done = 1;       //
constexpr char any_answer = 2; // and its four octets
constexpr char silence = 7;
constexpr char broken = 8;
constexpr char added = 0; // a varbind

// ---- Requests ---------------------------------------------------------------

enum Column : uint32_t {
    protocol = 2,
    source = 3,
    destination = 4,
    server = 5,
    file_name = 6,
    user = 7,
    password = 8,
    notify = 9,
    row_status = 14,
    address_type = 15,
    typed_address = 16
};

Varbind of(int32_t index, Column column, int32_t value) {
    return {below_root({1, 1, 1, 1, column, static_cast<uint32_t>(index)}),
            ASN_INTEGER, integer_octets(value)};
}

Varbind of(int32_t index, Column column, const std::string &text) {
    return {below_root({1, 1, 1, 1, column, static_cast<uint32_t>(index)}),
            column == server ? uint8_t{ASN_IPADDRESS} : uint8_t{ASN_OCTET_STR},
            text};
}

int32_t set(std::vector<Varbind> varbinds) {
    return ask({SNMP_MSG_SET, 0, 0, std::move(varbinds)}).error_status;
}

void deliver(uint32_t opcode, uint32_t status, bool failed = false) {
    std::string octets(4, '\0');
    put_be32(octets.data(), status);
    ipcbus_message *message = new_message(opcode, &octets);
    oid name[MAX_OID_LEN];
    size_t length = failed ? 1 : 0;
    int notification = 0;
    handle_notifications(message, name, &length, &notification);
    ipcbus_drop(ipcbus_response_q, message);
    release_notifications();
}

xfCopyEntry row_of(int32_t index) {
    xfCopyEntry row;
    memset(&row, 0, sizeof row);
    row.xfCopyIndex = index;
    FUZZ_CHECK(getXfCopyEntry(&row) == 0, "row %d is not there", index);
    return row;
}

void expect(int32_t index, int32_t state, int32_t cause) {
    const xfCopyEntry row = row_of(index);
    FUZZ_CHECK(row.xfCopyState == state && row.xfCopyFailCause == cause,
               "row %d: state %d, fail cause %d", index, row.xfCopyState,
               row.xfCopyFailCause);
    FUZZ_CHECK(copy_inprogress() == 0, "row %d: a copy is in progress", index);
}

// ---- Lives ------------------------------------------------------------------

std::vector<Varbind> network_copy(int32_t index) {
    const bool upload = one_of(2) == 0;
    return {of(index, protocol, 1),
            of(index, source, upload ? XF_FILE_RUNNING : XF_FILE_NETWORK),
            of(index, destination, upload ? XF_FILE_NETWORK : XF_FILE_RUNNING),
            of(index, server, std::string("\xc0\0\2\1", 4)),
            of(index, file_name, std::string(1 + one_of(128), 'f')),
            of(index, user, "ann"),
            of(index, password, std::string(password_mark)),
            of(index, notify, one_of(2) == 0 ? XF_TRUE : XF_FALSE)};
}

void run(std::vector<Varbind> varbinds, int32_t index, bool wait) {
    if (wait) {
        FUZZ_CHECK(set({of(index, row_status, XF_ROW_CREATE_AND_WAIT)}) == 0,
                   "row %d cannot be created", index);
        for (const Varbind &each : varbinds)
            FUZZ_CHECK(set({each}) == 0, "a column of row %d", index);
        varbinds.clear();
    }
    varbinds.push_back(
        of(index, row_status, wait ? XF_ROW_ACTIVE : XF_ROW_CREATE_AND_GO));
    FUZZ_CHECK(set(varbinds) == 0, "row %d cannot be started", index);
}

void network_life(int32_t index) {
    const bool fork_fails = one_of(50) == 0;
    platform_answers({fork_fails ? not_made : sent});
    run(network_copy(index), index, one_of(2) == 0);
    FUZZ_CHECK(row_of(index).xfCopyState == XF_STATE_RUNNING, "not running");
    // A second one is refused, and leaves no row.
    FUZZ_CHECK(set({of(index + 1, source, XF_FILE_STARTUP),
                    of(index + 1, destination, XF_FILE_RUNNING),
                    of(index + 1, row_status, XF_ROW_CREATE_AND_GO)}) ==
                       SNMP_ERR_GENERR &&
                   !row_exists(index + 1),
               "a second copy");
    now += one_of(90);
    const uint32_t cause = fork_fails || one_of(2) == 0 ? 1 + one_of(7) : 0;
    platform_answers(std::string(8, added));
    deliver(IPCBUS_OPC_CONFIG_COPY_STATUS, cause);
    expect(index, cause != 0 ? XF_STATE_FAILED : XF_STATE_SUCCESSFUL,
           cause != 0 ? static_cast<int32_t>(cause) : XF_FAIL_UNKNOWN);
}

std::vector<Varbind> save(int32_t index, int32_t to) {
    return {of(index, source, XF_FILE_RUNNING), of(index, destination, to),
            of(index, notify, one_of(2) == 0 ? XF_TRUE : XF_FALSE)};
}

// Answers for one fabric-wide save that failed: this switch's name is known,
// three switches speak.
std::string fabric_answers() {
    std::string octets(1, '\0'); // the request for the name is answered
    for (int i = 0; i < 3; i++) {
        octets += '\1';                // a record
        octets += std::string(8, 'w'); // its name
        octets += '\0';                // not this switch
        octets += std::string("\1\xc0\x00\x02\x05", 5);
        octets += '\5'; // a text of ten
        octets += "unreached ";
    }
    return octets + std::string(16, '\0');
}

void save_life(int32_t index) {
    constexpr int32_t targets[] = {XF_FILE_STARTUP, XF_FILE_FABRIC_STARTUP,
                                   XF_FILE_ALL_STARTUP};
    const int32_t to = targets[one_of(3)];
    switch (one_of(5)) {
    case 0: // done at once
        platform_answers({sent, done});
        run(save(index, to), index, false);
        return expect(index, XF_STATE_SUCCESSFUL, XF_FAIL_UNKNOWN);
    case 1: // refused
        platform_answers({sent, any_answer, 0x40, 0x1e, 0, 1, 0, 0, 0, 0});
        run(save(index, to), index, false);
        release_notifications();
        return expect(index, XF_STATE_FAILED, XF_FAIL_SAVE_REFUSED);
    case 2: // cannot be sent
        platform_answers({not_made});
        run(save(index, to), index, false);
        return expect(index, XF_STATE_FAILED, XF_FAIL_UNKNOWN);
    case 3: // told later, after silence or a broken connection
        platform_answers(
            {sent, silence, silence, one_of(2) == 0 ? broken : accepted});
        break;
    default:
        platform_answers({sent, accepted});
    }
    run(save(index, to), index, one_of(2) == 0);
    FUZZ_CHECK(row_of(index).xfCopyState == XF_STATE_RUNNING, "not running");
    now += one_of(90);
    const bool failed = one_of(2) == 0;
    platform_answers(failed && to == XF_FILE_FABRIC_STARTUP
                         ? fabric_answers()
                         : std::string(8, added));
    deliver(IPCBUS_OPC_PROCD_COPY_RUN2START_DONE, 0, failed);
    expect(index, failed ? XF_STATE_FAILED : XF_STATE_SUCCESSFUL,
           failed ? XF_FAIL_SAVE_FAILED : XF_FAIL_UNKNOWN);
}

// Destroyed while the system manager works on it.
void aborted_life(int32_t index) {
    platform_answers({sent, accepted});
    run(save(index, XF_FILE_STARTUP), index, false);
    FUZZ_CHECK(set({of(index, row_status, XF_ROW_DESTROY)}) == 0, "destroy");
    FUZZ_CHECK(!row_exists(index) && copy_inprogress() == 0, "aborted");
}

void refused_life(int32_t index) {
    // Nothing to copy to itself; a value that is none; a row without a name.
    FUZZ_CHECK(set({of(index, source, XF_FILE_STARTUP),
                    of(index, destination, XF_FILE_STARTUP),
                    of(index, row_status, XF_ROW_CREATE_AND_GO)}) ==
                   SNMP_ERR_GENERR,
               "startup to startup");
    FUZZ_CHECK(set({of(index + 1, row_status, XF_ROW_CREATE_AND_WAIT),
                    of(index + 1, address_type, INET_ADDRESS_IPV4),
                    of(index + 1, typed_address, std::string("\x0a\0\0\1", 4)),
                    of(index + 1, notify, 1)}) == 0,
               "a row that waits");
    FUZZ_CHECK(set({of(index + 1, row_status, XF_ROW_ACTIVE)}) ==
                   SNMP_ERR_INCONSISTENTVALUE,
               "a row without a file name");
}

void life(int32_t index) {
    const unsigned kind = one_of(10);
    if (kind < 4)
        network_life(index);
    else if (kind < 8)
        save_life(index);
    else if (kind == 8)
        aborted_life(index);
    else
        refused_life(index);
}

// ---- What must hold ---------------------------------------------------------

void check_memory() {
    const size_t expected = ordset_size(module_state.copy_table) +
                            ordset_size(module_state.undo_list) +
                            ordset_size(module_state.error_table);
    FUZZ_CHECK(module_blocks() == expected,
               "%zu blocks of memory for %zu records", module_blocks(),
               expected);
    FUZZ_CHECK(ordset_size(module_state.undo_list) == 0, "undo records");
    FUZZ_CHECK(kept_requests() == 0, "%zu requests are kept", kept_requests());
}

size_t descriptors() {
    size_t count = 0;
    DIR *directory = opendir("/proc/self/fd");
    while (readdir(directory) != nullptr)
        count++;
    closedir(directory);
    return count;
}

struct Use {
    size_t heap, resident_pages, descriptors;
};

Use use() {
    unsigned long size = 0, resident = 0;
    FILE *file = fopen("/proc/self/statm", "r");
    FUZZ_CHECK(file != nullptr &&
                   fscanf(file, "%lu %lu", &size, &resident) == 2,
               "statm");
    fclose(file);
    return {mallinfo2().uordblks, resident, descriptors()};
}

// The alarm, as often as it is due.
void let_alarm_come(time_t &due) {
    if (module_state.copy_table == nullptr) {
        due = now + 101;
        return;
    }
    for (; due <= now; due += 101)
        cfgentry_age_timer_handler(ageouttimer, nullptr);
    for (const xfCopyEntry *row : rows())
        FUZZ_CHECK(now - row->entryCreateTime <= 305 + 101 + 90 ||
                       row->xfCopyState == XF_STATE_RUNNING,
                   "row %d is %ld seconds old", row->xfCopyIndex,
                   static_cast<long>(now - row->entryCreateTime));
}

void clear() {
    while (ordset_size(module_state.copy_table) != 0)
        FUZZ_CHECK(set({of(rows().front()->xfCopyIndex, row_status,
                           XF_ROW_DESTROY)}) == 0,
                   "destroy");
}

} // namespace

int main(int argc, char **argv) {
    const unsigned long lives =
        argc > 1 ? strtoul(argv[1], nullptr, 10) : 20000;
    const unsigned long seed = argc > 2 ? strtoul(argv[2], nullptr, 10) : 1;
    const int report = dup(STDOUT_FILENO);
    dice.seed(static_cast<uint32_t>(seed));
    start_platform();
    start_agent();
    begin_input(input);

    Use early = {};
    unsigned long destroyed = 0;
    time_t due = now + 101;
    size_t most_rows = 0;
    for (unsigned long done_lives = 0; done_lives < lives; done_lives++) {
        const auto index =
            static_cast<int32_t>(1 + done_lives % 0x7ffffff0 * 2);
        life(index);
        check_tables();
        check_memory();
        most_rows = std::max(most_rows, rows().size());
        if (one_of(4) == 0 && row_exists(index)) {
            FUZZ_CHECK(set({of(index, row_status, XF_ROW_DESTROY)}) == 0,
                       "row %d cannot be destroyed", index);
            destroyed++;
        }
        now += one_of(30);
        let_alarm_come(due);
        // The tables are empty now and then, and their containers go.
        if (one_of(1000) == 0)
            clear();
        if (done_lives == lives / 10) {
            clear();
            early = use();
        }
    }
    clear();
    const Use late = use();
    dprintf(report,
            "%lu lives, %lu destroyed, at most %zu rows, %ld days\n"
            "heap %zu -> %zu octets, resident %zu -> %zu pages, descriptors "
            "%zu -> %zu\n",
            lives, destroyed, most_rows,
            static_cast<long>(now - first_second) / 86400, early.heap,
            late.heap, early.resident_pages, late.resident_pages,
            early.descriptors, late.descriptors);
    FUZZ_CHECK(late.descriptors == early.descriptors, "descriptors");
    // Less than an octet for each life, also in the short run.
    FUZZ_CHECK(late.heap <= early.heap + 16384, "the heap has grown");
#ifndef __SANITIZE_ADDRESS__ // which holds freed memory back
    FUZZ_CHECK(late.resident_pages <= early.resident_pages + 64,
               "the process has grown");
#endif
    end_input();
    return 0;
}
