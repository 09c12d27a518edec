// A whole agent in this process: requests go in as octets through a transport
// of its own and answers come out the same way, so that Net-SNMP's own code
// reads them, picks the handlers and goes through the phases of a SET.
#ifndef TESTS_FUZZ_AGENT_H
#define TESTS_FUZZ_AGENT_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "config_copy_mib_private.h"

namespace fuzz {

using Oid = std::vector<uint32_t>;

struct Varbind {
    Oid name;
    uint8_t type = ASN_NULL;
    std::string value; // encoded octets
};

struct Request {
    uint8_t command; // SNMP_MSG_*
    // Of a GETBULK; 0 for the others.
    int32_t non_repeaters = 0, repetitions = 0;
    std::vector<Varbind> varbinds;
};

struct Response {
    int32_t error_status, error_index;
    std::vector<Varbind> varbinds;
    std::string octets; // all of it
};

// An integer as it is encoded.
std::string integer_octets(int64_t value);

// A write of the row status that the agent got as far as RESERVE1 with.
struct RowStatusWrite {
    int32_t index; // last sub-identifier of the name
    bool exact;    // the name is that of an instance
    int32_t value;
};

// What the agent did in its last SET.
struct Phases {
    bool commit = false, free = false, undo = false;
    std::vector<RowStatusWrite> row_status;
};

// Once for the process.
void start_agent();

// Has the agent answer a request, exactly once.
Response ask(const Request &request);
// The same for one whose values need not be what their type says: what Net-SNMP
// cannot read it does not answer.
std::optional<Response> ask_anything(const Request &request);
const Phases &phases();

// The module's root and what is below it.
Oid root();
Oid below_root(const std::vector<uint32_t> &rest);

} // namespace fuzz

#endif
