#include "host/transfer/sftp.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "host/transfer/transfer.h"

namespace xfhost {
namespace {

enum Type : uint8_t {
    init = 1,
    version = 2,
    open_file = 3,
    close_file = 4,
    read_data = 5,
    write_data = 6,
    stat_file = 17,
    status = 101,
    handle = 102,
    data = 103,
    attributes = 105
};

enum Status : uint32_t {
    ok = 0,
    end_of_file = 1,
    no_such_file = 2,
    permission_denied = 3,
    failure = 4,
    no_connection = 6,
    connection_lost = 7,
    unsupported = 8,
    // Of later versions; some servers say them in this one.
    no_space_there = 14,
    quota_exceeded = 15
};

constexpr uint32_t protocol = 3;
constexpr uint32_t to_read = 0x01, to_write = 0x02 | 0x08 | 0x10;
constexpr uint32_t has_size = 0x01, has_owner = 0x02, has_mode = 0x04;
constexpr uint32_t most_in_packet = 256 * 1024;
constexpr size_t most_in_handle = 256;
// Every server takes this many octets at once. So many requests are on their
// way that a long line is filled.
constexpr uint32_t chunk = 32768;
constexpr size_t window = 64;

[[noreturn]] void not_sftp() {
    throw Failed(Outcome::other, "the server does not speak SFTP");
}

// Its own words for it are not looked at.
std::string words_of(uint32_t number) {
    constexpr const char *words[] = {
        "ok",         "end of file", "no such file",  "permission denied",
        "failure",    "bad message", "no connection", "connection lost",
        "unsupported"};
    return "the server answered " +
           (number < std::size(words) ? '"' + std::string(words[number]) + '"'
                                      : "with the number") +
           " (" + std::to_string(number) + ")";
}

// A refusal; `usual` is what it is unless its number says more.
[[noreturn]] void refused(uint32_t number, Outcome usual) {
    switch (number) {
    case ok: // which is no answer where something else was asked for
        not_sftp();
    case no_such_file:
    case permission_denied:
        usual = Outcome::bad_name;
        break;
    case no_connection:
    case connection_lost:
        usual = Outcome::connection;
        break;
    case no_space_there:
    case quota_exceeded:
        usual = Outcome::no_space;
        break;
    default:
        break;
    }
    if (usual == Outcome::other)
        throw Failed(usual, "the server gave up the file")
            .because(words_of(number));
    throw failure_of(usual).because(words_of(number));
}

// There is no number for a full disk: a server says "failure" then.
[[noreturn]] void not_stored(uint32_t number) {
    refused(number, number == failure ? Outcome::no_space : Outcome::other);
}

void add_word(std::string &packet, uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        packet += static_cast<char>(value >> shift & 0xFF);
}

void add_number(std::string &packet, uint64_t value) {
    add_word(packet, static_cast<uint32_t>(value >> 32));
    add_word(packet, static_cast<uint32_t>(value));
}

void add_text(std::string &packet, std::string_view text) {
    add_word(packet, static_cast<uint32_t>(text.size()));
    packet += text;
}

uint32_t word_at(const char *octets) {
    uint32_t value = 0;
    for (int i = 0; i < 4; i++)
        value = value << 8 | static_cast<unsigned char>(octets[i]);
    return value;
}

// The fields of a packet, from its front.
class Fields {
  public:
    explicit Fields(std::string_view left) : left_(left) {}
    std::string_view octets(size_t count) {
        if (count > left_.size())
            not_sftp();
        std::string_view taken = left_.substr(0, count);
        left_.remove_prefix(count);
        return taken;
    }
    uint8_t octet() {
        return static_cast<uint8_t>(octets(1).front());
    }
    uint32_t word() {
        return word_at(octets(4).data());
    }
    uint64_t number() {
        uint64_t high = word();
        return high << 32 | word();
    }
    std::string_view text() {
        return octets(word());
    }

  private:
    std::string_view left_;
};

struct Attributes {
    std::optional<uint64_t> size;
    std::optional<uint32_t> mode;
};

Attributes read_attributes(Fields &fields) {
    Attributes told;
    uint32_t flags = fields.word();
    if ((flags & has_size) != 0)
        told.size = fields.number();
    if ((flags & has_owner) != 0)
        fields.number();
    if ((flags & has_mode) != 0)
        told.mode = fields.word();
    return told;
}

// An answer; its fields are good until the next one.
struct Answer {
    uint8_t type;
    uint32_t id;
    Fields fields;

    uint32_t status_number() {
        if (type != status)
            not_sftp();
        return fields.word();
    }
};

// Requests and answers, each with the number of its request.
class Session {
  public:
    explicit Session(Link &link) : link_(link) {
        send(init, protocol);
        Fields fields(receive());
        if (fields.octet() != version || fields.word() < protocol)
            not_sftp();
    }

    // Sends a request, whose last field may stand apart; gives its number.
    uint32_t ask(Type type, std::string_view body,
                 std::string_view octets = {}) {
        send(type, next_, body, octets);
        return next_++;
    }

    Answer next_answer() {
        Fields fields(receive());
        uint8_t type = fields.octet();
        uint32_t id = fields.word();
        return {type, id, fields};
    }

    // The answer to the only request that is on its way.
    Answer answer_to(uint32_t id) {
        Answer answer = next_answer();
        if (answer.id != id)
            not_sftp();
        return answer;
    }

  private:
    void send(Type type, uint32_t word, std::string_view body = {},
              std::string_view octets = {}) {
        sent_.clear();
        add_word(sent_, static_cast<uint32_t>(sizeof type + sizeof word +
                                              body.size() + octets.size()));
        sent_ += static_cast<char>(type);
        add_word(sent_, word);
        sent_ += body;
        sent_ += octets;
        link_.send(sent_);
    }

    std::string_view receive() {
        char length[4];
        link_.receive(length, sizeof length);
        uint32_t count = word_at(length);
        if (count == 0 || count > most_in_packet)
            not_sftp();
        packet_.resize(count);
        link_.receive(packet_.data(), count);
        return packet_;
    }

    Link &link_;
    uint32_t next_ = 0;
    std::string sent_, packet_;
};

// What the server says of a file; its refusal is in `number`, or that is ok.
Attributes look_at(Session &session, const std::string &name,
                   uint32_t &number) {
    std::string body;
    add_text(body, name);
    Answer answer = session.answer_to(session.ask(stat_file, body));
    number = ok;
    if (answer.type == attributes)
        return read_attributes(answer.fields);
    number = answer.status_number();
    if (number == ok)
        not_sftp();
    return {};
}

// A file that is open at the server.
class RemoteFile {
  public:
    // `mode` is for a new file only.
    RemoteFile(Session &session, const std::string &name, uint32_t how,
               uint32_t mode)
        : session_(session) {
        std::string body;
        add_text(body, name);
        add_word(body, how);
        add_word(body, how == to_read ? 0 : has_mode);
        if (how != to_read)
            add_word(body, mode);
        Answer answer = session.answer_to(session.ask(open_file, body));
        if (answer.type != handle)
            refused(answer.status_number(), Outcome::bad_name);
        std::string_view name_of_it = answer.fields.text();
        if (name_of_it.size() > most_in_handle)
            not_sftp();
        add_text(handle_, name_of_it);
    }

    uint32_t ask_read(uint64_t offset, uint32_t count) {
        std::string body = handle_;
        add_number(body, offset);
        add_word(body, count);
        return session_.ask(read_data, body);
    }

    uint32_t ask_write(uint64_t offset, std::string_view octets) {
        std::string body = handle_;
        add_number(body, offset);
        add_word(body, static_cast<uint32_t>(octets.size()));
        return session_.ask(write_data, body, octets);
    }

    // Gives the status.
    uint32_t close() {
        return session_.answer_to(session_.ask(close_file, handle_))
            .status_number();
    }

  private:
    Session &session_;
    std::string handle_;
};

// The octets of an answer to a request for `most`; none at the end of the file.
std::string_view octets_of(Answer &answer, uint32_t most) {
    if (answer.type == data) {
        std::string_view octets = answer.fields.text();
        if (octets.empty() || octets.size() > most)
            not_sftp();
        return octets;
    }
    uint32_t number = answer.status_number();
    if (number != end_of_file)
        refused(number, Outcome::other);
    return {};
}

// Throws Failed if the local file refused something.
void check_local(int error) {
    if (error != 0)
        throw file_failure(error, Outcome::other,
                           "the local file cannot be written");
}

[[noreturn]] void torn() {
    throw Failed(Outcome::other, "not as many octets as were announced");
}

// A file of a size that was announced.
class Download {
  public:
    Download(Session &session, RemoteFile &remote, BoundedFile &file,
             uint64_t size)
        : session_(session), remote_(remote), file_(file), size_(size) {}

    void run() {
        while (next_ < size_ || !asked_.empty()) {
            while (next_ < size_ && asked_.size() < window) {
                uint64_t count = std::min<uint64_t>(chunk, size_ - next_);
                ask({next_, static_cast<uint32_t>(count)});
                next_ += count;
            }
            take_answer();
        }
        Answer answer = session_.answer_to(remote_.ask_read(size_, 1));
        if (!octets_of(answer, 1).empty())
            torn();
    }

  private:
    struct Range {
        uint64_t offset;
        uint32_t count;
    };

    void ask(Range range) {
        asked_[remote_.ask_read(range.offset, range.count)] = range;
    }

    void take_answer() {
        Answer answer = session_.next_answer();
        auto found = asked_.find(answer.id);
        if (found == asked_.end())
            not_sftp();
        Range range = found->second;
        asked_.erase(found);
        std::string_view octets = octets_of(answer, range.count);
        if (octets.empty())
            torn();
        check_local(file_.write_at(range.offset, octets));
        auto count = static_cast<uint32_t>(octets.size());
        if (count < range.count)
            ask({range.offset + count, range.count - count});
    }

    Session &session_;
    RemoteFile &remote_;
    BoundedFile &file_;
    uint64_t size_;
    uint64_t next_ = 0; // the first octet that nobody was asked for
    std::map<uint32_t, Range> asked_;
};

// A file whose end only its end tells, in order.
void read_to_end(Session &session, RemoteFile &remote, BoundedFile &file) {
    uint64_t offset = 0;
    for (;;) {
        Answer answer = session.answer_to(remote.ask_read(offset, chunk));
        std::string_view octets = octets_of(answer, chunk);
        if (octets.empty())
            return;
        check_local(file.write_at(offset, octets));
        offset += octets.size();
    }
}

void check_announced(const Attributes &told, const BoundedFile &file) {
    if (told.mode && (*told.mode & S_IFMT) != 0 && !S_ISREG(*told.mode))
        throw Failed(Outcome::bad_name, "what the server has is no file");
    if (told.size)
        check_local(file.expect(*told.size));
}

// Sends all of a file.
void send_file(Session &session, RemoteFile &remote, int file, Moved &moved) {
    std::set<uint32_t> asked;
    std::vector<char> octets(chunk);
    bool ended = false;
    while (!ended || !asked.empty()) {
        while (!ended && asked.size() < window) {
            ssize_t count = pread(file, octets.data(), octets.size(),
                                  static_cast<off_t>(moved.octets()));
            if (count < 0)
                throw source_failure(Outcome::bad_name);
            ended = count == 0;
            if (ended)
                break;
            const std::string_view next(octets.data(),
                                        static_cast<size_t>(count));
            asked.insert(remote.ask_write(moved.octets(), next));
            moved.take(next);
        }
        if (asked.empty())
            break;
        Answer answer = session.next_answer();
        if (asked.erase(answer.id) == 0)
            not_sftp();
        if (uint32_t number = answer.status_number(); number != ok)
            not_stored(number);
    }
}

} // namespace

void sftp_get(Link &link, const std::string &name, BoundedFile &file) {
    Session session(link);
    uint32_t number = ok;
    Attributes told = look_at(session, name, number);
    if (number != ok && number != unsupported)
        refused(number, Outcome::bad_name);
    check_announced(told, file);
    RemoteFile remote(session, name, to_read, 0);
    if (told.size)
        Download(session, remote, file, *told.size).run();
    else
        read_to_end(session, remote, file);
    if (number = remote.close(); number != ok)
        refused(number, Outcome::other);
}

void sftp_put(Link &link, const std::string &name, int file, Moved &moved) {
    struct stat local;
    if (fstat(file, &local) != 0)
        throw source_failure(Outcome::bad_name);
    Session session(link);
    RemoteFile remote(session, name, to_write, local.st_mode & 0777);
    send_file(session, remote, file, moved);
    uint32_t number = remote.close();
    if (number != ok)
        not_stored(number);
    // Some take the file away at once, or do not tell.
    Attributes there = look_at(session, name, number);
    if (there.size && *there.size != moved.octets())
        throw Failed(Outcome::other, "the server did not keep all of the file")
            .because("the server kept " + std::to_string(*there.size) + " of " +
                     std::to_string(moved.octets()) + " octets");
}

} // namespace xfhost
