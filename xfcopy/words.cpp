#include "xfcopy/words.h"

#include <array>
#include <cctype>

#include <net-snmp/net-snmp-config.h>
// Before the other headers of the library.
#include <net-snmp/net-snmp-includes.h>

#include "xfcopy/table.h"
#include "xfcopy/text.h"

namespace xfcopy {

namespace {

constexpr std::array<const char *, 11> status_names = {
    "done", "internal", "usage",     "no-answer", "access", "refused",
    "busy", "failed",   "cancelled", "timed-out", "gone"};

enum class Kind { any, network, save, apply };

// The first that fits is said.
struct Cause {
    long number;
    const char *name;
    Kind kind;
    const char *text;
    const char *advice;
};
constexpr Cause causes[] = {
    {2, "badFileName", Kind::any,
     "the server has no such file, or does not give access to it",
     "look at the name and the permissions on the server; a TFTP server often "
     "takes only files that exist already"},
    {3, "timeout", Kind::any,
     "the server could not be reached, or did not answer in time",
     "look whether the switch can reach the server, whether its service runs, "
     "and whether another VRF is the right one (--vrf)"},
    {4, "noMemory", Kind::any, "there is no room for the file",
     "make room on the server, or on the switch"},
    {5, "noConfig", Kind::apply, "there is no startup configuration",
     "copy running to startup first"},
    {5, "noConfig", Kind::any,
     "the file holds no configuration, or the switch has no such VRF",
     "look into the file, and at the name of the VRF (--vrf)"},
    {6, "unsupportedProtocol", Kind::any,
     "the switch does not know that protocol",
     "use another one of tftp, ftp, scp and sftp"},
    {7, "someConfigApplyFailed", Kind::any,
     "some lines of the configuration were refused; the others are applied",
     "compare the running configuration with the file; the switch lists the "
     "lines in /tmp/configcopy.txt"},
    {8, "saveRefused", Kind::any, "the switch refused to save",
     "another save may be running; if not, look at the log of the system "
     "manager on the switch"},
    {9, "saveFailed", Kind::any,
     "the configuration was not saved everywhere it was to be",
     "mend what the switches tell, and copy again"},
    {1, "unknown", Kind::network, "the transfer failed",
     "look at user name, password and path, and whether the switch knows the "
     "server's host key; the log of the agent on the switch says more"},
    {1, "unknown", Kind::save, "the switch could not ask for the save",
     "look whether the system manager runs on the switch"},
    {1, "unknown", Kind::any, "the copy failed",
     "look into the log of the agent on the switch"},
};

Kind kind_of(const Location &source, const Location &destination) {
    if (source.type == FileType::network ||
        destination.type == FileType::network)
        return Kind::network;
    return source.type == FileType::running ? Kind::save : Kind::apply;
}

const Cause &cause_of(long number, Kind kind) {
    for (const Cause &each : causes)
        if (each.number == number &&
            (each.kind == Kind::any || each.kind == kind))
            return each;
    return causes[std::size(causes) - 1];
}

constexpr const char *other_view =
    "look at the agent's access control, or copy as another user "
    "(-v, -u, -l, -c, or snmp.conf)";

// `column` 0: any other.
struct Refusal {
    long error;
    long column;
    Status status;
    const char *text;
    const char *advice;
};
constexpr Refusal refusals[] = {
    {SNMP_ERR_NOACCESS, 0, Status::access,
     "the agent does not let this user write the copy table", other_view},
    {SNMP_ERR_AUTHORIZATIONERROR, 0, Status::access,
     "the agent does not let this user copy", other_view},
    {SNMP_ERR_READONLY, 0, Status::access, "the agent lets this user read only",
     other_view},
    {SNMP_ERR_NOSUCHNAME, 0, Status::access,
     "the agent has no copy table that this user may write", other_view},
    {SNMP_ERR_NOTWRITABLE, 0, Status::refused,
     "the agent has no copy table that can be written",
     "look whether its module is loaded, and at its root (--root)"},
    {SNMP_ERR_NOCREATION, 0, Status::refused,
     "the agent makes no rows in its copy table",
     "look whether its module is loaded, and at its root (--root)"},
    {SNMP_ERR_WRONGVALUE, protocol_column, Status::refused,
     "the agent does not know that protocol",
     "use another one of tftp, ftp, scp and sftp"},
    {SNMP_ERR_WRONGVALUE, status_column, Status::refused,
     "the agent does not copy to or from this address",
     "name the server by an address that is not the switch's own: 127.0.0.1 "
     "and 0.0.0.0 are refused"},
    {SNMP_ERR_BADVALUE, status_column, Status::refused,
     "the agent does not copy this",
     "look at the server's address: 127.0.0.1 and 0.0.0.0 are refused"},
    {SNMP_ERR_WRONGLENGTH, file_name_column, Status::refused,
     "the file name is too long for the agent", "choose a shorter one"},
    {SNMP_ERR_WRONGLENGTH, user_column, Status::refused,
     "the user name is too long for the agent", "use another user"},
    {SNMP_ERR_WRONGLENGTH, password_column, Status::refused,
     "the password is too long for the agent", "use another user"},
    {SNMP_ERR_WRONGLENGTH, vrf_column, Status::refused,
     "the name of the VRF is too long for the agent", "look at --vrf"},
    {SNMP_ERR_INCONSISTENTVALUE, status_column, Status::refused,
     "the row is somebody else's, or lacks something",
     "try again, with another --index if there is one"},
    {SNMP_ERR_TOOBIG, 0, Status::refused,
     "the request is too large for the agent", "use a shorter file name"},
    {SNMP_ERR_RESOURCEUNAVAILABLE, 0, Status::refused,
     "the agent has no room for it", "try again later"},
    {SNMP_ERR_GENERR, 0, Status::refused, "the agent could not do it",
     "look into its log, and at `xfcopy list`"},
};

const Refusal *refusal_of(long error, long column) {
    for (const Refusal &each : refusals)
        if (each.error == error && (each.column == 0 || each.column == column))
            return &each;
    return nullptr;
}

struct Loss {
    int error;
    Status status;
    const char *text;
    const char *advice;
};
constexpr Loss losses[] = {
    {SNMPERR_TIMEOUT, Status::no_answer, "the agent does not answer",
     "look at its address and port, at the community, or user and passphrases, "
     "and at -n; -t and -r give it more time"},
    {SNMPERR_UNKNOWN_USER_NAME, Status::access,
     "the agent does not know this user", "look at -u"},
    {SNMPERR_USM_UNKNOWNSECURITYNAME, Status::access,
     "the agent does not know this user", "look at -u"},
    {SNMPERR_UNSUPPORTED_SEC_LEVEL, Status::access,
     "the agent knows this user, but not with that level of security",
     "look at -l"},
    {SNMPERR_USM_UNSUPPORTEDSECURITYLEVEL, Status::access,
     "the agent knows this user, but not with that level of security",
     "look at -l"},
    {SNMPERR_AUTHENTICATION_FAILURE, Status::access,
     "the agent and this machine do not authenticate each other",
     "look at -a and -A"},
    {SNMPERR_USM_AUTHENTICATIONFAILURE, Status::access,
     "the agent and this machine do not authenticate each other",
     "look at -a and -A"},
    {SNMPERR_DECRYPTION_ERR, Status::access,
     "the agent cannot decrypt what this machine sends", "look at -x and -X"},
    {SNMPERR_USM_DECRYPTIONERROR, Status::access,
     "the agent cannot decrypt what this machine sends", "look at -x and -X"},
    {SNMPERR_NOT_IN_TIME_WINDOW, Status::no_answer,
     "the agent's clock does not agree with what it said before", "try again"},
    {SNMPERR_BAD_SEC_NAME, Status::usage, "SNMPv3 needs a user",
     "use -u, or defSecurityName in snmp.conf"},
    {SNMPERR_BAD_SEC_LEVEL, Status::usage,
     "that level of security does not exist", "look at -l"},
    {SNMPERR_USM_GENERICERROR, Status::usage,
     "the options of SNMPv3 do not fit together",
     "look at -l, -a, -A, -x and -X"},
    {SNMPERR_BAD_ADDRESS, Status::no_answer, "the agent has no such address",
     "look at its name"},
    {SNMPERR_BAD_SENDTO, Status::no_answer, "the agent cannot be reached",
     "look at its address, and at this machine's network"},
};

} // namespace

const char *status_name(Status status) {
    return status_names.at(static_cast<size_t>(status));
}

const char *cause_name(long cause) {
    return cause_of(cause, Kind::any).name;
}

Outcome failed_words(long cause, const Location &source,
                     const Location &destination) {
    const Cause &found = cause_of(cause, kind_of(source, destination));
    return {Status::failed, found.text, found.advice, cause};
}

std::string sentence_part(std::string text) {
    const auto letter = [&](size_t place) {
        return static_cast<unsigned char>(text[place]);
    };
    if (text.ends_with('.') && !text.ends_with(".."))
        text.pop_back();
    if (text.size() > 1 && islower(letter(1)) != 0)
        text[0] = static_cast<char>(tolower(letter(0)));
    return shown(text);
}

Outcome refused_words(long error, long column) {
    const Refusal *const found = refusal_of(error, column);
    if (found != nullptr)
        return {found->status, found->text, found->advice};
    return {Status::refused,
            std::string("the agent refused the request: ") +
                snmp_errstring(static_cast<int>(error)),
            "look into its log"};
}

Outcome lost_words(int library_error, const std::string &text) {
    for (const Loss &each : losses)
        if (each.error == library_error)
            return {each.status, each.text, each.advice};
    return {Status::no_answer, "the agent cannot be asked: " + text,
            "look at its address and at Net-SNMP's options"};
}

} // namespace xfcopy
