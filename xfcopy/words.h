// What the program says about the end of a command: its exit status, what
// happened, and what to do next.
#ifndef XFCOPY_WORDS_H
#define XFCOPY_WORDS_H

#include <optional>
#include <string>

#include "xfcopy/location.h"

namespace xfcopy {

// The exit status.
enum class Status {
    done = 0,
    internal = 1,  // of this program or machine
    usage = 2,     // the command line
    no_answer = 3, // the agent cannot be reached, or no longer
    access = 4,    // the agent does not let this user do it
    refused = 5,   // the agent does not take the request
    busy = 6,      // another copy is running
    failed = 7,    // the copy failed
    cancelled = 8, // interrupted from here
    timed_out = 9, // --timeout
    gone = 10      // there is no such row, or no longer
};

// A word for programs, such as "timed-out".
const char *status_name(Status status);

// How a command ended. `cause` is the row's xfCopyFailCause.
struct Outcome {
    Status status = Status::done;
    std::string text;
    std::string advice;
    std::optional<long> cause = std::nullopt;
};

// The name of a fail cause in the MIB; "unknown" for what it does not have.
const char *cause_name(long cause);

// Why a copy failed.
Outcome failed_words(long cause, const Location &source,
                     const Location &destination);

// The reason that a history has, and its advice, as the parts of a sentence
// that the words here are: without its capital and full stop, and made by
// `shown`.
std::string sentence_part(std::string text);

// An error status that a SET was answered with. `column` is the column that
// the error is about; 0 if that is not known.
Outcome refused_words(long error, long column);

// No answer that can be used: an error of Net-SNMP's library, with its text.
Outcome lost_words(int library_error, const std::string &text);

} // namespace xfcopy

#endif
