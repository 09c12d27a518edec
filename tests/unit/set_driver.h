/*
 * The agent's side of reads and SETs: instances, values as a stock agent hands
 * them to write methods, and whole requests through their phases.
 */
#ifndef SET_DRIVER_H
#define SET_DRIVER_H

#include "scripted_platform.h"

namespace scripted {

/* ---- Instances -------------------------------------------------------------
 */

/* Root of the module followed by these. */
std::vector<oid> below_root(std::initializer_list<oid> tail);

/* Instance OID of a column of xfCopyTable, or of any longer or shorter one. */
std::vector<oid> copy_column(oid column, const std::vector<oid> &instance = {});
std::vector<oid> error_column(oid column,
                              const std::vector<oid> &instance = {});

/* The registered variable of a magic number, with its whole OID as the agent
 * hands it to a read handler; a bare one if there is none of that number. */
struct variable variable_of(int magic);

/* One read as the agent makes it. */
struct ReadResult {
    bool found;            /* a value was returned */
    std::vector<oid> name; /* the request's OID afterwards */
    std::string octets;    /* the value */
    size_t length;         /* var_len, untouched: SIZE_MAX */
    WriteMethod *write;    /* write method handed out; NULL if untouched */
    const void *address;   /* of the value */
};
ReadResult read_instance(int magic, const std::vector<oid> &name, bool exact);
ReadResult get(int magic, const std::vector<oid> &name);
ReadResult get_next(int magic, const std::vector<oid> &name);

/* Value of the 4 octets of an integer as the agent reads them. */
int32_t integer_of(const ReadResult &result);

/* ---- Values ----------------------------------------------------------------
 */

/*
 * A variable binding of a SET. The write method is given an allocation of
 * exactly the value's size, which nothing terminates.
 */
struct Binding {
    oid column;
    int32_t index;
    u_char type;
    std::string octets;
};

/* The value as this machine's agent hands an integer over: a `long`. */
Binding integer(oid column, int32_t index, long value);
/* The value in 4 octets, as on the target. */
Binding integer4(oid column, int32_t index, int32_t value);
Binding octets(oid column, int32_t index, std::string_view value);
Binding ip_address(oid column, int32_t index, std::string_view four_octets);

/* ---- Phases ----------------------------------------------------------------
 */

/* Write method of a column, NULL for a read-only one. */
WriteMethod *write_method_of(oid column);

/*
 * Calls one write method for one phase. statP is what the read handler finds
 * for RESERVE1 of the row status: `exists`, looked up if not given.
 */
int set_phase(const Binding &binding, int phase,
              std::optional<bool> exists = std::nullopt);

/* The read that the agent makes before RESERVE1, quietly: fills the read
 * handler's row. Returns whether the instance is there. */
bool read_before_set(const Binding &binding);

/*
 * A whole request: every binding through a phase before the next one, FREE
 * after a failure in RESERVE1 or RESERVE2, UNDO after one in ACTION or COMMIT.
 * Returns the first error.
 */
int set_request(const std::vector<Binding> &bindings);

/* The phases that set_request went through, for example "0 1 2 3". */
extern std::string phases_seen;

} // namespace scripted

#endif
