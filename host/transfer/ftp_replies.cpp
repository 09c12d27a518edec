#include "host/transfer/ftp_replies.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace xfhost {
namespace {

bool digit(char c) {
    return c >= '0' && c <= '9';
}

// The three digits that a line begins with; -1 if there are none.
int code_of(std::string_view line) {
    if (line.size() < 4 || !std::all_of(line.begin(), line.begin() + 3, digit))
        return -1;
    return (line[0] - '0') * 100 + (line[1] - '0') * 10 + (line[2] - '0');
}

std::string_view without_end(std::string_view line) {
    if (line.ends_with('\n'))
        line.remove_suffix(1);
    if (line.ends_with('\r'))
        line.remove_suffix(1);
    return line;
}

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

} // namespace

void FtpReplies::sent(std::string_view command) {
    const std::string_view word =
        command.substr(0, command.find_first_of(" \r\n"));
    quitting_ = quitting_ || word == "QUIT";
    if (quitting_)
        return;
    command_ = word == "USER"                     ? Command::user
               : word == "PASS"                   ? Command::pass
               : word == "SIZE"                   ? Command::size
               : word == "RETR" || word == "STOR" ? Command::transfer
                                                  : Command::other;
    code_ = 0;
    full_ = false;
    if (command_ == Command::size) {
        size_.reset();
        size_code_ = 0;
        strange_size_ = false;
    }
}

bool FtpReplies::said(std::string_view line) {
    octets_ += line.size();
    if (quitting_)
        return octets_ <= most_octets;
    sensible_ = sensible_ && octets_ <= most_octets && take(without_end(line));
    return sensible_;
}

bool FtpReplies::take(std::string_view line) {
    const int code = code_of(line);
    const bool last = code >= 0 && line[3] == ' ';
    note_text(line);
    if (open_ != 0 && !last)
        return true;
    if (open_ == 0 && code >= 100 && code < 600 && line[3] == '-') {
        open_ = code;
        return true;
    }
    if (!last || (open_ != 0 && code != open_))
        return false;
    open_ = 0;
    last_ = line;
    return take_reply(code, line.substr(4));
}

// Not every server has a code of its own for a disk that is full.
void FtpReplies::note_text(std::string_view line) {
    full_ = full_ || contains(line, "No space left") ||
            contains(line, "quota exceeded") ||
            contains(line, "File too large") ||
            ((line.starts_with("451 ") || open_ == 451) &&
             contains(line, "writing"));
}

bool FtpReplies::take_reply(int code, std::string_view text) {
    if (code < 100 || code >= 600)
        return false;
    code_ = code;
    if (command_ == Command::transfer)
        return take_transfer(code);
    if (command_ == Command::size)
        take_size(code, text);
    const bool login = command_ == Command::user || command_ == Command::pass;
    logged_in_ = logged_in_ || (login && code / 100 == 2);
    return code / 100 != 1;
}

bool FtpReplies::take_transfer(int code) {
    if (ended_ != 0)
        return false;
    if (code / 100 == 1)
        return !std::exchange(began_, true);
    ended_ = code;
    return began_ || code >= 400;
}

void FtpReplies::take_size(int code, std::string_view text) {
    size_code_ = code;
    if (code != 213)
        return;
    uint64_t size = 0;
    const char *end = text.data() + text.size();
    auto [stop, error] = std::from_chars(text.data(), end, size);
    strange_size_ = stop != end || error == std::errc::invalid_argument;
    size_ = error == std::errc::result_out_of_range ? UINT64_MAX : size;
}

bool FtpReplies::received(uint64_t octets) const {
    return sensible_ && began_ && finished() && !strange_size_ &&
           (!size_ || *size_ == octets);
}

bool FtpReplies::stored(uint64_t octets) const {
    const bool unknown =
        size_code_ == 500 || size_code_ == 502 || size_code_ == 504;
    return sensible_ && began_ && finished() && !strange_size_ &&
           (unknown || size_ == octets);
}

Outcome FtpReplies::failure() const {
    if (code_ < 400)
        return Outcome::done;
    if (full_ || code_ == 452 || code_ == 552)
        return Outcome::no_space;
    if (code_ == 421 || code_ == 425 || code_ == 426)
        return Outcome::connection;
    if (code_ == 530 || command_ == Command::user || command_ == Command::pass)
        return Outcome::login;
    if (command_ == Command::transfer &&
        (code_ == 501 || code_ == 550 || code_ == 553))
        return Outcome::bad_name;
    return Outcome::other;
}

} // namespace xfhost
