// What an FTP server says, judged by the client's reader and once more here,
// from the whole session. The first two octets are the size of the file that
// was moved; then come lines: what is sent begins with '>', the rest is said.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "host/transfer/ftp_replies.h"
#include "tests/fuzz/check.h"
#include "tests/fuzz/input.h"

using namespace xfhost;

namespace {

// A command, and every line that came before the next one.
struct Exchange {
    std::string command;
    std::vector<std::string> lines;
};

struct Reply {
    int code;
    std::string text;
};

struct Judgement {
    bool sensible = true, began = false, logged_in = false;
    int ended = 0, last = 0, size_code = 0;
    bool strange_size = false, size_known = false;
    uint64_t size = 0;
};

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    for (size_t start = 0; start < text.size();) {
        const size_t end = std::min(text.find('\n', start), text.size() - 1);
        lines.push_back(text.substr(start, end + 1 - start));
        start = end + 1;
    }
    return lines;
}

// libcurl takes every such line for the end of a reply.
bool is_end(const std::string &line) {
    return line.size() > 3 && line.find_first_not_of("0123456789") == 3 &&
           line[3] == ' ';
}

bool begins(const std::string &line, const std::string &code, char behind) {
    return line.size() > 3 && line.compare(0, 3, code) == 0 &&
           line[3] == behind;
}

std::string stripped(std::string line) {
    if (!line.empty() && line.back() == '\n')
        line.pop_back();
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return line;
}

// The replies that the lines are; false if they are none. What has no end yet
// is no reply, but no mistake.
bool replies_of(const std::vector<std::string> &lines,
                std::vector<Reply> &replies) {
    for (size_t i = 0; i < lines.size(); i++) {
        const std::string code = lines[i].substr(0, 3);
        if (code.find_first_not_of("0123456789") != std::string::npos ||
            code < "100" || code > "599" || lines[i].size() < 4)
            return false;
        if (!begins(lines[i], code, ' ') && !begins(lines[i], code, '-'))
            return false;
        if (begins(lines[i], code, '-')) {
            do
                i++;
            while (i < lines.size() && !is_end(lines[i]));
            if (i == lines.size())
                return true;
            if (!begins(lines[i], code, ' '))
                return false;
        }
        replies.push_back({std::stoi(code), lines[i].substr(4)});
    }
    return true;
}

bool is_word(const std::string &command, const char *word) {
    return command.substr(0, command.find_first_of(" \r\n")) == word;
}

void judge_size(const Reply &reply, Judgement &judgement) {
    judgement.size_code = reply.code;
    if (reply.code != 213)
        return;
    const std::string &text = reply.text;
    judgement.size_known = true;
    judgement.strange_size =
        text.empty() ||
        text.find_first_not_of("0123456789") != std::string::npos;
    errno = 0;
    judgement.size = strtoull(text.c_str(), nullptr, 10);
}

void judge_transfer(const Reply &reply, Judgement &judgement) {
    if (reply.code < 200)
        judgement.sensible =
            !std::exchange(judgement.began, true) && judgement.ended == 0;
    else if (judgement.ended != 0 || (!judgement.began && reply.code < 400))
        judgement.sensible = false;
    else
        judgement.ended = reply.code;
}

void judge_reply(const std::string &command, const Reply &reply,
                 Judgement &judgement) {
    judgement.last = reply.code;
    if (is_word(command, "RETR") || is_word(command, "STOR"))
        return judge_transfer(reply, judgement);
    if (is_word(command, "SIZE"))
        judge_size(reply, judgement);
    if ((is_word(command, "USER") || is_word(command, "PASS")) &&
        reply.code / 100 == 2)
        judgement.logged_in = true;
    judgement.sensible = reply.code >= 200;
}

Judgement judge(const std::vector<Exchange> &session) {
    Judgement judgement;
    for (const Exchange &each : session) {
        std::vector<Reply> replies;
        judgement.last = 0;
        if (is_word(each.command, "SIZE")) {
            judgement.size_known = judgement.strange_size = false;
            judgement.size_code = 0;
        }
        const bool good = replies_of(each.lines, replies);
        for (const Reply &reply : replies) {
            if (judgement.sensible)
                judge_reply(each.command, reply, judgement);
        }
        judgement.sensible = judgement.sensible && good;
        if (!judgement.sensible)
            break;
    }
    return judgement;
}

bool done(const Judgement &judgement) {
    return judgement.sensible && judgement.began && !judgement.strange_size &&
           (judgement.ended == 226 || judgement.ended == 250);
}

void check(const FtpReplies &replies, const Judgement &judgement,
           uint64_t octets) {
    FUZZ_CHECK(replies.sensible() == judgement.sensible, "sensible: %d",
               replies.sensible());
    const bool same = judgement.size_known && judgement.size == octets;
    FUZZ_CHECK(replies.received(octets) ==
                   (done(judgement) && (same || !judgement.size_known)),
               "received: %d", replies.received(octets));
    const int code = judgement.size_code;
    const bool cannot = code == 500 || code == 502 || code == 504;
    FUZZ_CHECK(replies.stored(octets) == (done(judgement) && (same || cannot)),
               "stored: %d", replies.stored(octets));
    if (!judgement.sensible)
        return;
    FUZZ_CHECK(replies.logged_in() == judgement.logged_in, "logged in: %d",
               replies.logged_in());
    FUZZ_CHECK((replies.failure() != Outcome::done) == (judgement.last >= 400),
               "failure %d after %d", static_cast<int>(replies.failure()),
               judgement.last);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *octets, size_t size) {
    fuzz::Input input(octets, size);
    const uint64_t moved = input.octet() * 256u + input.octet();
    FtpReplies replies;
    std::vector<Exchange> session(1);
    bool open = false;
    for (const std::string &line : lines_of(input.rest())) {
        if (line.front() == '>') {
            const std::string command = line.substr(1);
            // libcurl waits for the end of a reply.
            if (open)
                continue;
            replies.sent(command);
            if (is_word(command, "QUIT"))
                break;
            session.push_back({command, {}});
            continue;
        }
        session.back().lines.push_back(stripped(line));
        if (!replies.said(line))
            break;
        open = !is_end(line);
    }
    check(replies, judge(session), moved);
    return 0;
}
