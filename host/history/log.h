// The history on the disk: two files to which lines are appended, each a whole
// entry. The last line of an entry is the one that counts.
//
// `history` is the one that is written to. Once it has as many entries as are
// kept, it becomes `history.old`, in the place of the one before. So nothing is
// ever written anew, and both together hold the entries that are kept, and at
// most as many again. A line that a crash or a full disk has cut off is passed
// over.
#ifndef HOST_HISTORY_LOG_H
#define HOST_HISTORY_LOG_H

#include <cstdint>
#include <vector>

#include "host/base/files.h"
#include "host/history/entry.h"

namespace xfhost {

class HistoryLog {
  public:
    // Opens the history in a directory, which is then the log's, and reads the
    // newest entries, `rows` at most, in the order of their numbers. False with
    // errno set, also if something of it cannot be read.
    bool open(Fd directory, uint32_t rows, std::vector<HistoryEntry> &entries);

    // The number of the next new entry.
    uint64_t next_number() const {
        return last_number_ + 1;
    }

    // Writes an entry with one write, and does not wait for the disk. False
    // with errno set; the entry is then lost, or what it was before.
    bool append(const HistoryEntry &entry);

    // The directory; -1 before it is opened.
    int directory() const {
        return directory_.get();
    }

  private:
    void rotate();

    Fd directory_;
    Fd file_;
    uint32_t rows_ = 0;
    uint64_t last_number_ = 0;
    uint32_t in_file_ = 0; // entries that began in it
    bool cut_off_ = false; // it does not end with a newline
};

// Waits until what was appended in that directory is on the disk. False with
// errno set.
bool sync_history(int directory);

} // namespace xfhost

#endif
