// The note of a save that is running, `<state>/save-in-progress`: it tells a
// restarted system manager whom it owes an answer.
#ifndef HOST_PROCD_SAVE_JOURNAL_H
#define HOST_PROCD_SAVE_JOURNAL_H

#include <cstdint>
#include <string>

namespace xfhost {

// Notes durably that the save of a request's token has begun. False with errno
// set.
bool note_save(uint32_t token);

// The token of a save that was begun and not forgotten; 0 if there is none.
uint32_t noted_save();

// Durably takes the note back.
void forget_save();

} // namespace xfhost

#endif
