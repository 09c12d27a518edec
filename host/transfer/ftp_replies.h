// What an FTP server has said, as the protocol defines replies: a line "226
// text" is one, and so are the lines from "226-text" to the next "226 text". Of
// the texts only the last line is kept, for reports.
#ifndef HOST_TRANSFER_FTP_REPLIES_H
#define HOST_TRANSFER_FTP_REPLIES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host/transfer/transfer.h"

namespace xfhost {

class FtpReplies {
  public:
    // All that a server may say in one session, in octets.
    static constexpr size_t most_octets = 1 << 20;

    // Takes a command as it is sent; its first word tells what the next replies
    // belong to. Before the first one there is the greeting.
    void sent(std::string_view command);

    // Takes a line with its end. False if the session cannot go on: it is no
    // reply; it can be taken for the end of another one than it belongs to (a
    // server has to indent such a line); it says that a file may come before
    // one was asked for, or the other way round; or it is too much.
    bool said(std::string_view line);

    bool sensible() const {
        return sensible_;
    }
    bool logged_in() const {
        return logged_in_;
    }
    // After a command to end the session, whose answer means nothing.
    bool quitting() const {
        return quitting_;
    }
    // The server has said that it begins with the file.
    bool began() const {
        return began_;
    }
    // It began, and has not said yet what came of it.
    bool waiting() const {
        return sensible_ && began_ && ended_ == 0 && !quitting_;
    }
    // It has told a size that is no number of octets.
    bool strange_size() const {
        return strange_size_;
    }
    // The size that it has told last, in octets; UINT64_MAX if that is more
    // than there are numbers for.
    std::optional<uint64_t> size() const {
        return size_;
    }

    // Whether a file of so many octets has come whole, or has got there whole.
    // Only a server that does not know the question need not tell the size of
    // what it has stored.
    bool received(uint64_t octets) const;
    bool stored(uint64_t octets) const;

    // What the reply to the last command means, if that is a failure; else
    // `done`.
    Outcome failure() const;

    // The line that the last reply ended with, as it came.
    const std::string &last() const {
        return last_;
    }

  private:
    enum class Command { greeting, user, pass, size, transfer, other };

    bool take(std::string_view line);
    bool take_reply(int code, std::string_view text);
    bool take_transfer(int code);
    void take_size(int code, std::string_view text);
    void note_text(std::string_view line);
    bool finished() const {
        return ended_ == 226 || ended_ == 250;
    }

    Command command_ = Command::greeting;
    size_t octets_ = 0;
    int open_ = 0;  // the code of a reply of several lines that goes on
    int code_ = 0;  // the last command's reply
    int ended_ = 0; // what came after the file
    int size_code_ = 0;
    bool full_ = false; // the reply speaks of no room
    bool sensible_ = true;
    bool logged_in_ = false;
    bool quitting_ = false;
    bool began_ = false;
    bool strange_size_ = false;
    std::optional<uint64_t> size_;
    std::string last_;
};

} // namespace xfhost

#endif
