// A management station that sends as fast as it is answered. It reads loads
// from standard input, one a line, and answers each with one line:
//
//   TIMES FIRST STRIDE ROWS TOGETHER REQUEST [/ REQUEST]...
//   REQUEST: get|next|bulkN|set {COLUMN-OID TYPE VALUE}...
//
// TIMES is a count of rounds, or "until": until the next line, which is empty.
// A round sends each request for TOGETHER rows from row FIRST + round * STRIDE
// % ROWS on: the number of the row is put behind each OID. TYPE is snmpset's
// letter, "n" for no value. The answer: requests sent, those that were refused,
// and median, 99th percentile and longest time to the response in microseconds.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <poll.h>
#include <unistd.h>

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

namespace {

using Clock = std::chrono::steady_clock;

struct Varbind {
    oid name[MAX_OID_LEN];
    size_t length;
    char type;
    std::string value;
};

struct Request {
    int command;
    long repetitions;
    std::vector<Varbind> varbinds;
};

struct Load {
    std::string times;
    unsigned long first, stride, rows, together;
    std::vector<Request> requests;
};

struct Outcome {
    size_t refused = 0;
    std::vector<double> times;
};

[[noreturn]] void die(const std::string &what) {
    fprintf(stderr, "client: %s\n", what.c_str());
    exit(1);
}

Request new_request(const std::string &word) {
    if (word == "get")
        return {SNMP_MSG_GET, 0, {}};
    if (word == "next")
        return {SNMP_MSG_GETNEXT, 0, {}};
    if (word == "set")
        return {SNMP_MSG_SET, 0, {}};
    if (word.starts_with("bulk"))
        return {SNMP_MSG_GETBULK, std::stol(word.substr(4)), {}};
    die("no request: " + word);
}

Varbind new_varbind(const std::string &name, std::istream &words) {
    Varbind varbind = {};
    varbind.length = MAX_OID_LEN - 1;
    if (read_objid(name.c_str(), varbind.name, &varbind.length) == 0)
        die("no OID: " + name);
    words >> varbind.type >> varbind.value;
    return varbind;
}

Load parse(const std::string &line) {
    Load load;
    std::istringstream words(line);
    words >> load.times >> load.first >> load.stride >> load.rows >>
        load.together;
    bool begins = true;
    for (std::string word; words >> word; begins = word == "/") {
        if (begins)
            load.requests.push_back(new_request(word));
        else if (word != "/")
            load.requests.back().varbinds.push_back(new_varbind(word, words));
    }
    return load;
}

void add(netsnmp_pdu *pdu, const Varbind &varbind, unsigned long row) {
    oid name[MAX_OID_LEN];
    std::copy_n(varbind.name, varbind.length, name);
    name[varbind.length] = row;
    if (varbind.type == 'n')
        snmp_add_null_var(pdu, name, varbind.length + 1);
    else if (snmp_add_var(pdu, name, varbind.length + 1, varbind.type,
                          varbind.value == "-" ? "" : varbind.value.c_str()))
        die("no value: " + varbind.value);
}

netsnmp_pdu *make_pdu(const Load &load, const Request &request,
                      unsigned long row) {
    netsnmp_pdu *pdu = snmp_pdu_create(request.command);
    if (request.command == SNMP_MSG_GETBULK) {
        pdu->non_repeaters = 0;
        pdu->max_repetitions = request.repetitions;
    }
    for (unsigned long i = 0; i < load.together; i++)
        for (const Varbind &varbind : request.varbinds)
            add(pdu, varbind, row + i);
    return pdu;
}

// Sends one request and waits for its answer.
void ask(void *session, netsnmp_pdu *pdu, Outcome *outcome) {
    netsnmp_pdu *response = nullptr;
    auto began = Clock::now();
    if (snmp_sess_synch_response(session, pdu, &response) != STAT_SUCCESS)
        die("no answer");
    std::chrono::duration<double, std::micro> time = Clock::now() - began;
    outcome->times.push_back(time.count());
    if (response->errstat != SNMP_ERR_NOERROR)
        outcome->refused++;
    snmp_free_pdu(response);
}

void play_round(void *session, const Load &load, unsigned long round,
                Outcome *outcome) {
    unsigned long row = load.first + round * load.stride % load.rows;
    for (const Request &request : load.requests)
        ask(session, make_pdu(load, request, row), outcome);
}

bool line_waits() {
    struct pollfd input = {STDIN_FILENO, POLLIN, 0};
    return poll(&input, 1, 0) == 1;
}

Outcome play(void *session, const Load &load) {
    Outcome outcome;
    bool until = load.times == "until";
    unsigned long times = until ? 0 : std::stoul(load.times);
    for (unsigned long round = 0; until ? !line_waits() : round < times;
         round++)
        play_round(session, load, round, &outcome);
    return outcome;
}

void report(Outcome outcome) {
    std::vector<double> &times = outcome.times;
    std::sort(times.begin(), times.end());
    if (times.empty())
        die("nothing was asked");
    printf("%zu %zu %.1f %.1f %.1f\n", times.size(), outcome.refused,
           times[times.size() / 2], times[times.size() * 99 / 100],
           times.back());
    fflush(stdout);
}

void *connect_to(char *peer) {
    static char community[] = "private";
    netsnmp_session session;
    snmp_sess_init(&session);
    session.version = SNMP_VERSION_2c;
    session.peername = peer;
    session.community = reinterpret_cast<u_char *>(community);
    session.community_len = sizeof community - 1;
    session.timeout = 60'000'000;
    session.retries = 0;
    return snmp_sess_open(&session);
}

} // namespace

int main(int count, char **arguments) {
    init_snmp("bench");
    void *session = count == 2 ? connect_to(arguments[1]) : nullptr;
    if (session == nullptr)
        die("usage: bench_client udp:ADDRESS:PORT <LOADS");
    for (std::string line; std::getline(std::cin, line);)
        if (!line.empty())
            report(play(session, parse(line)));
    snmp_sess_close(session);
    return 0;
}
