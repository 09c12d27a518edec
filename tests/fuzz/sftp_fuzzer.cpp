// What an SSH server can say to a copy. The first octet says which half: a
// download, an upload, the log of the client before the login or behind it.
#include <string>

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/base/files.h"
#include "host/transfer/sftp.h"
#include "host/transfer/ssh_failure.h"
#include "tests/fuzz/check.h"
#include "tests/fuzz/input.h"

using namespace xfhost;

namespace {

constexpr uint64_t limit = 33000;
constexpr size_t upload_size = 70000;
constexpr size_t upload_writes = 3;
constexpr int ok = 0;
constexpr int status = 101, data = 103, attributes = 105;

uint64_t number_at(const std::string &packet, size_t place, size_t octets) {
    uint64_t value = 0;
    for (size_t i = place; i < place + octets && i < packet.size(); i++)
        value = value << 8 | static_cast<unsigned char>(packet[i]);
    return value;
}

// Counts by itself what came over the line.
class Line : public Link {
  public:
    explicit Line(std::string said) : said_(std::move(said)) {}

    void send(std::string_view octets) override {
        FUZZ_CHECK(octets.size() >= 5 &&
                       number_at(std::string(octets.substr(0, 4)), 0, 4) ==
                           octets.size() - 4,
                   "a request of %zu octets", octets.size());
    }

    void receive(char *octets, size_t count) override {
        if (count > said_.size() - taken_)
            throw Failed(Outcome::connection, "the end of the input");
        said_.copy(octets, count, taken_);
        if (inside_)
            take_packet(said_.substr(taken_, count));
        inside_ = !inside_;
        taken_ += count;
    }

    uint64_t data_octets = 0;
    size_t accepted = 0; // requests with the status ok
    bool size_told = false;
    uint64_t size = 0;

  private:
    void take_packet(const std::string &packet) {
        switch (number_at(packet, 0, 1)) {
        case data:
            data_octets += number_at(packet, 5, 4);
            break;
        case status:
            accepted += number_at(packet, 5, 4) == ok ? 1 : 0;
            break;
        case attributes:
            size_told = (number_at(packet, 5, 4) & 1) != 0;
            size = number_at(packet, 9, 8);
            break;
        default:
            break;
        }
    }

    std::string said_;
    size_t taken_ = 0;
    bool inside_ = false; // a packet, behind its length
};

void check_failure(const Failed &failed) {
    FUZZ_CHECK(failed.outcome() >= Outcome::timeout &&
                   failed.outcome() <= Outcome::other &&
                   failed.outcome() != Outcome::usage,
               "outcome %d", static_cast<int>(failed.outcome()));
}

void try_download(Line &line, Fd memory) {
    BoundedFile file(std::move(memory), limit);
    try {
        sftp_get(line, "x.cfg", file);
    } catch (const Failed &failed) {
        check_failure(failed);
        return;
    }
    struct stat found;
    fstat(file.fd().get(), &found);
    auto size = static_cast<uint64_t>(found.st_size);
    FUZZ_CHECK(size <= limit && size == line.data_octets &&
                   (!line.size_told || size == line.size),
               "%zu octets announced, %zu came, the file has %zu",
               static_cast<size_t>(line.size),
               static_cast<size_t>(line.data_octets),
               static_cast<size_t>(size));
    FUZZ_CHECK(line.accepted == 1, "%zu requests accepted", line.accepted);
}

void try_upload(Line &line, int file) {
    FUZZ_CHECK(ftruncate(file, upload_size) == 0, "no memory");
    try {
        Moved moved;
        sftp_put(line, "x.cfg", file, moved);
    } catch (const Failed &failed) {
        check_failure(failed);
        return;
    }
    FUZZ_CHECK(line.accepted == upload_writes + 1, "%zu requests accepted",
               line.accepted);
    FUZZ_CHECK(!line.size_told || line.size == upload_size, "it has %zu octets",
               static_cast<size_t>(line.size));
}

void judge(bool let_in, const std::string &log) {
    const Outcome outcome = ssh_failure(let_in, log).outcome();
    FUZZ_CHECK(outcome == Outcome::timeout || outcome == Outcome::connection ||
                   (!let_in && (outcome == Outcome::login ||
                                outcome == Outcome::host_key)),
               "outcome %d", static_cast<int>(outcome));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *octets, size_t size) {
    fuzz::Input input(octets, size);
    const unsigned half = input.choice(4);
    if (half >= 2) {
        judge(half == 3, input.rest());
        return 0;
    }
    Fd file(memfd_create("copy", MFD_CLOEXEC));
    Line line(input.rest());
    if (half == 0)
        try_download(line, std::move(file));
    else
        try_upload(line, file.get());
    return 0;
}
