// What a TFTP server and those beside it send, against the client's
// conversation. The first octet says what is asked for, each datagram behind it
// begins with its port and its kind.
#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include <strings.h>

#include "host/tftp/conversation.h"
#include "tests/fuzz/check.h"
#include "tests/fuzz/input.h"

using namespace xfhost::tftp;

namespace {

constexpr uint64_t limit = 20000;
enum Opcode : unsigned { data = 3, acknowledgement, error, options_taken };

struct Datagram {
    uint16_t port;
    std::string octets;
};

std::string word(unsigned value) {
    return {static_cast<char>(value >> 8 & 0xff),
            static_cast<char>(value & 0xff)};
}

unsigned word_at(const std::string &octets, size_t offset) {
    return static_cast<unsigned>(static_cast<uint8_t>(octets[offset])) << 8 |
           static_cast<uint8_t>(octets[offset + 1]);
}

// The one file that may be read or written, and in one direction only.
class File : public LocalFile {
  public:
    File(bool sent, std::string octets)
        : content(std::move(octets)), sent_(sent) {}
    int expect(uint64_t octets) override {
        FUZZ_CHECK(!sent_, "a size is expected of a file that is sent");
        announced = octets;
        return octets > limit ? no_room : 0;
    }
    int append(std::string_view octets) override {
        FUZZ_CHECK(!sent_, "a file that is sent is written");
        if (content.size() + octets.size() > limit)
            return no_room;
        content += octets;
        return 0;
    }
    int next(size_t length, std::string &packet) override {
        FUZZ_CHECK(sent_, "a file that is fetched is read");
        const size_t before = packet.size();
        packet += content.substr(std::min(read_, content.size()), length);
        read_ += packet.size() - before;
        return 0;
    }
    int restart() override {
        FUZZ_CHECK(false, "no conversation begins again by itself");
        return 0;
    }
    std::string content;
    std::optional<uint64_t> announced;

  private:
    bool sent_;
    size_t read_ = 0;
};

std::string text_of(fuzz::Input &input) {
    constexpr const char *texts[] = {"blksize", "tsize", "8",       "512",
                                     "1428",    "20000", "BLKSIZE", "0"};
    const unsigned which = input.octet();
    return which < 0xf0 ? texts[which % 8] : input.octets(which & 0xf);
}

// `near` is a block number that means something at the moment.
std::string datagram(fuzz::Input &input, unsigned near) {
    const unsigned kind = input.octet();
    const unsigned block = near + (kind >> 4) - 2;
    constexpr size_t sizes[] = {0, 1, 8, 511, 512, 513, 1428, 1429};
    std::string octets;
    switch (kind & 7) {
    case 0:
        octets = word(data) + word(near);
        return octets + std::string(512, static_cast<char>(near));
    case 1:
        octets = word(data) + word(block);
        return octets + std::string(sizes[input.choice(8)],
                                    static_cast<char>(input.octet()));
    case 2:
        return word(acknowledgement) + word(block);
    case 3:
        octets = word(options_taken);
        for (unsigned left = kind >> 4; left > 0; left--)
            octets += text_of(input) + '\0';
        return octets;
    case 4:
        return word(error) + word(kind >> 4) + input.octets(input.choice(8));
    case 5:
        return input.octets(input.octet());
    case 7:
        return {}; // nothing comes for a while
    default:
        return word(acknowledgement) + word(near);
    }
}

// What a plain reading of the server's datagrams makes of them.
struct Reading {
    size_t block_size = standard_block;
    std::string fetched;
    uint64_t acknowledged = 0; // blocks, the request included
    bool whole = false;        // the last block has come
};

size_t size_told(const std::string &octets) {
    std::vector<std::string> texts;
    for (size_t at = 2, end = 0; at < octets.size(); at = end + 1) {
        end = std::min(octets.find('\0', at), octets.size());
        texts.push_back(octets.substr(at, end - at));
    }
    size_t size = standard_block;
    for (size_t i = 0; i + 1 < texts.size(); i += 2)
        if (strcasecmp(texts[i].c_str(), "blksize") == 0)
            size = strtoul(texts[i + 1].c_str(), nullptr, 10);
    // Any other is refused: then nothing is read.
    return size < 8 || size > safe_block ? standard_block : size;
}

Reading read_plainly(const std::vector<Datagram> &heard, uint16_t port) {
    Reading now;
    for (const Datagram &each : heard) {
        if (each.port != port || each.octets.size() < 4 || now.whole)
            continue;
        const unsigned opcode = word_at(each.octets, 0);
        const unsigned number = word_at(each.octets, 2);
        if (opcode == options_taken && now.acknowledged == 0) {
            now.block_size = size_told(each.octets);
            now.acknowledged = 1;
        } else if (opcode == acknowledgement &&
                   number == (now.acknowledged & 0xffff)) {
            now.acknowledged++;
        } else if (opcode == data &&
                   number == (now.fetched.size() / now.block_size + 1)) {
            now.fetched += each.octets.substr(4);
            now.acknowledged = std::max<uint64_t>(now.acknowledged, 1);
            now.whole = each.octets.size() - 4 < now.block_size;
        }
    }
    return now;
}

void check_success(const Request &request, const File &file,
                   const std::vector<Datagram> &heard, uint16_t port) {
    const Reading now = read_plainly(heard, port);
    if (request.send) {
        const uint64_t blocks = file.content.size() / now.block_size + 1;
        FUZZ_CHECK(now.acknowledged == blocks + 1,
                   "%llu blocks acknowledged of %llu",
                   static_cast<unsigned long long>(now.acknowledged),
                   static_cast<unsigned long long>(blocks + 1));
        return;
    }
    FUZZ_CHECK(now.whole && file.content == now.fetched,
               "%zu octets were kept of %zu", file.content.size(),
               now.fetched.size());
    FUZZ_CHECK(!file.announced || *file.announced == file.content.size(),
               "%zu octets, but others announced", file.content.size());
}

// What the client says is as its direction has it, and from the file.
void check_packet(const Request &request, const File &file,
                  const std::string &packet, size_t block_size) {
    const unsigned opcode = word_at(packet, 0);
    FUZZ_CHECK(packet.size() <= safe_block + 4, "a packet of %zu octets",
               packet.size());
    FUZZ_CHECK(opcode == error || opcode == (request.send ? 2u : 1u) ||
                   opcode == (request.send ? data : acknowledgement),
               "opcode %u", opcode);
    if (opcode != data)
        return;
    // No file is as long as 65536 blocks here.
    const size_t from = (word_at(packet, 2) - 1u) * block_size;
    FUZZ_CHECK(from <= file.content.size() &&
                   packet.substr(4) == file.content.substr(from, block_size),
               "block %u is not the file's", word_at(packet, 2));
}

struct Ending {
    bool ended;
    int result;
    std::string packet, content;
};

// The whole conversation; or one that only `port` takes part in.
Ending replay(const Request &request, const std::string &content,
              const std::vector<Datagram> &heard, uint16_t port) {
    File file(request.send, content);
    Conversation talk(request, file);
    for (const Datagram &each : heard)
        if (each.octets.empty())
            talk.ask_for_less();
        else if (each.port == port)
            talk.take(each.port, each.octets);
    return {talk.ended(), talk.result(), talk.packet(), file.content};
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *octets, size_t size) {
    fuzz::Input input(octets, size);
    const unsigned flags = input.octet();
    Request request{(flags & 1) != 0, "a.cfg", 0,
                    (flags & 2) != 0 ? safe_block : 0};
    std::string content;
    if (request.send)
        for (unsigned i = 0, end = input.octet() * 16u + flags / 4u; i < end;
             i++)
            content += static_cast<char>(i * 7 + i / 256);
    request.size = content.size();

    File file(request.send, content);
    Conversation talk(request, file);
    std::vector<Datagram> heard;
    unsigned near = request.send ? 0 : 1;
    while (!input.empty()) {
        const uint16_t port = input.choice(8) < 6 ? 4000 : 4001;
        heard.push_back({port, datagram(input, near)});
        if (heard.back().octets.empty()) {
            talk.ask_for_less();
            continue;
        }
        const std::string before = talk.packet();
        const bool was_settled = talk.port() != 0, had_ended = talk.ended();
        const bool news = talk.take(port, heard.back().octets);
        FUZZ_CHECK(news || talk.packet() == before, "another packet, no news");
        FUZZ_CHECK(!news || (!had_ended && talk.port() == port),
                   "news of somebody else, or behind the end");
        if (!was_settled && talk.port() == 0) {
            heard.pop_back(); // nobody's who counts
            continue;
        }
        check_packet(request, file, talk.packet(),
                     read_plainly(heard, talk.port()).block_size);
        const unsigned opcode = word_at(talk.packet(), 0);
        if (opcode == data || opcode == acknowledgement)
            near = word_at(talk.packet(), 2) + (opcode == data ? 0 : 1);
        FUZZ_CHECK(request.send || file.content.size() <= limit, "too much");
        if (talk.ended())
            break;
    }
    if (talk.ended() && talk.result() == 0)
        check_success(request, file, heard, talk.port());
    if (talk.port() == 0)
        return 0;
    const Ending alone = replay(request, content, heard, talk.port());
    FUZZ_CHECK(alone.ended == talk.ended() && alone.result == talk.result() &&
                   alone.packet == talk.packet() &&
                   alone.content == file.content,
               "another port has changed something");
    return 0;
}
