// One copy, from the request to its end.
#ifndef XFCOPY_COPY_H
#define XFCOPY_COPY_H

#include "xfcopy/history.h"
#include "xfcopy/options.h"
#include "xfcopy/report.h"
#include "xfcopy/table.h"
#include "xfcopy/words.h"

namespace xfcopy {

// What `options` ask to be copied; the outcome if that makes no sense. A name
// of a server is looked up.
std::optional<Outcome> take_request(const Options &options,
                                    CopyRequest &request);

// Does it, and reports it. Signals have to be held back.
Status copy(Session &session, CopyTable &table, History &history,
            const Options &options, CopyRequest request, Report &report);

// What a question about a row ended with that has not found it.
Outcome not_found_words(const Looked &looked, int32_t index);

// Why the copy of a row failed: the agent's own words where it keeps a history,
// else those for the cause.
Outcome failure_words(History &history, const Row &row, const Location &source,
                      const Location &destination);

// The end of a command by an answer without values.
Outcome answer_words(const Answer &answer, oid column = 0);

// Destroys a row. Nothing if that is done, else why it is not.
std::optional<Answer> destroy_row(CopyTable &table, int32_t index);

// What becomes of a copy when its row is destroyed.
const char *after_destruction(const Row &row);

} // namespace xfcopy

#endif
