#include "host/tftp/conversation.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <limits>

#include <strings.h>

#include "host/history/report.h"

namespace xfhost::tftp {
namespace {

enum Opcode : unsigned {
    read_request = 1,
    write_request = 2,
    data = 3,
    acknowledgement = 4,
    error = 5,
    options_taken = 6
};

enum ErrorCode : unsigned {
    not_defined = 0,
    disk_full = 3,
    illegal_operation = 4,
    last_of_protocol = 7,
    bad_options = 8
};

constexpr size_t header_size = 4;
constexpr size_t smallest_block = 8;
constexpr size_t longest_quote = 120;
// IP with all its options, UDP and TFTP; or IPv6 with one more header.
constexpr size_t largest_headers = 60 + 8 + header_size;
constexpr size_t largest_packet =
    65535; // of IPv4: larger MTUs are told as this

std::string word(unsigned value) {
    return {static_cast<char>(value >> 8 & 0xff),
            static_cast<char>(value & 0xff)};
}

unsigned word_at(std::string_view datagram, size_t offset) {
    return static_cast<unsigned>(static_cast<unsigned char>(datagram[offset]))
               << 8 |
           static_cast<unsigned char>(datagram[offset + 1]);
}

// The text up to the next NUL, which is removed with it; false without one.
bool take_text(std::string_view &rest, std::string &text) {
    size_t end = rest.find('\0');
    if (end == std::string_view::npos)
        return false;
    text = rest.substr(0, end);
    rest.remove_prefix(end + 1);
    return true;
}

// A number that does not fit is the largest one: every bound is below it.
bool parse_number(std::string_view text, uint64_t &number) {
    if (text.empty() ||
        text.find_first_not_of("0123456789") != std::string_view::npos)
        return false;
    auto [stop, problem] =
        std::from_chars(text.data(), text.data() + text.size(), number);
    if (problem == std::errc::result_out_of_range)
        number = std::numeric_limits<uint64_t>::max();
    return true;
}

bool same_name(const std::string &name, const char *other) {
    return strcasecmp(name.c_str(), other) == 0;
}

std::string first_packet(const Request &request, size_t block) {
    std::string packet = word(request.send ? write_request : read_request);
    for (const std::string &each : {request.name, std::string("octet")})
        packet += each + '\0';
    if (block == 0)
        return packet;
    for (const std::string &each :
         {std::string("blksize"), std::to_string(block), std::string("tsize"),
          std::to_string(request.size)})
        packet += each + '\0';
    return packet;
}

} // namespace

size_t block_for(size_t mtu) {
    if (mtu == 0)
        return safe_block;
    if (mtu >= largest_packet)
        return largest_block;
    return std::max(mtu, standard_block + largest_headers) - largest_headers;
}

Conversation::Conversation(const Request &request, LocalFile &file)
    : request_(request), file_(file), asked_(request.block),
      packet_(first_packet(request, request.block)) {}

void Conversation::ask_for_less() {
    if (port_ != 0)
        return;
    asked_ = less_than(asked_);
    packet_ = first_packet(request_, asked_);
}

void Conversation::stop_for_less() {
    why_ = awaited() + " did not come";
    fail(not_defined, "blocks are lost", system_error(ETIMEDOUT));
    less_may_do_ = true;
}

bool Conversation::take(uint16_t port, std::string_view datagram) {
    if (ended_ || port == 0 || datagram.size() < header_size)
        return false;
    if (port_ == 0 && can_be_first(datagram))
        port_ = port;
    if (port_ != port)
        return false;
    unsigned opcode = word_at(datagram, 0), number = word_at(datagram, 2);
    if (opcode == error) {
        take_error(number, datagram.substr(header_size));
        return false;
    }
    if (opcode == options_taken && request_.block != 0)
        return take_options(datagram.substr(2));
    if (opcode == data && !request_.send)
        return take_data(number, datagram.substr(header_size));
    if (opcode == acknowledgement && request_.send)
        return take_acknowledgement(number);
    return fail(illegal_operation, "not asked for", system_error(EPROTO));
}

// Anything else may be somebody's who knows no better than to guess, and does
// not keep the server from answering.
bool Conversation::can_be_first(std::string_view datagram) const {
    unsigned opcode = word_at(datagram, 0), block = word_at(datagram, 2);
    switch (opcode) {
    case error:
        return true;
    case options_taken:
        return request_.block != 0;
    case data:
        return !request_.send && block == 1 &&
               datagram.size() <= header_size + standard_block;
    case acknowledgement:
        return request_.send && block == 0;
    default:
        return false;
    }
}

// There is nothing to be said to it.
void Conversation::take_error(unsigned code, std::string_view text) {
    why_ = "the server said error " + std::to_string(code) + ": \"" +
           printable(text.substr(0, text.find('\0')), longest_quote) + '"';
    less_may_do_ = request_.block != 0 && !begun_ &&
                   (code == not_defined || code == illegal_operation ||
                    code == bad_options);
    end(code != not_defined && code <= last_of_protocol
            ? -static_cast<int>(code)
            : system_error(EPROTO));
}

bool Conversation::take_options(std::string_view options) {
    if (begun_)
        return false;
    begun_ = true;
    std::string name, value;
    while (!options.empty()) {
        int problem = system_error(EPROTO);
        if (!take_text(options, name) || !take_text(options, value) ||
            !set_option(name, value, problem))
            return problem == no_room
                       ? fail_here(disk_full, "not with these options", problem)
                       : fail(bad_options, "not with these options", problem);
    }
    if (request_.send)
        send_next();
    else
        acknowledge();
    return true;
}

// Only what was asked for. `problem` is the result if it is false.
bool Conversation::set_option(const std::string &name, std::string_view value,
                              int &problem) {
    uint64_t number = 0;
    if (!parse_number(value, number))
        return false;
    if (same_name(name, "blksize")) {
        block_size_ = static_cast<size_t>(number);
        return number >= smallest_block && number <= request_.block;
    }
    if (!same_name(name, "tsize"))
        return false;
    if (request_.send)
        return true;
    announced_ = number;
    int result = file_.expect(number);
    if (result != 0)
        problem = result;
    return result == 0;
}

bool Conversation::take_data(unsigned block, std::string_view octets) {
    if (octets.size() > block_size_)
        return fail(illegal_operation, "a block too long",
                    system_error(EPROTO));
    if (block != static_cast<uint16_t>(block_ + 1))
        return false; // has come before, or is ahead of what is missing
    begun_ = true;
    int result = file_.append(octets);
    if (result != 0)
        return fail_here(result == no_room ? disk_full : not_defined,
                         "not kept", result);
    moved_ += octets.size();
    bool whole = octets.size() < block_size_;
    if (announced_ && (whole ? moved_ != *announced_ : moved_ > *announced_))
        return fail(not_defined, "not of the size told", system_error(EPROTO));
    block_++;
    acknowledge();
    if (whole)
        end(0);
    return true;
}

bool Conversation::take_acknowledgement(unsigned block) {
    if (block != block_)
        return false;
    begun_ = true;
    if (last_) {
        end(0);
        return false; // there is nothing left to say
    }
    send_next();
    return true;
}

void Conversation::acknowledge() {
    packet_ = word(acknowledgement) + word(block_);
}

void Conversation::send_next() {
    packet_ = word(data) + word(static_cast<uint16_t>(block_ + 1));
    int result = file_.next(block_size_, packet_);
    const size_t octets = packet_.size() - header_size;
    last_ = octets < block_size_;
    moved_ += octets;
    // The file has become shorter or longer meanwhile.
    if (result == 0 &&
        (last_ ? moved_ != request_.size : moved_ > request_.size))
        result = system_error(EIO);
    if (result != 0) {
        fail_here(not_defined, "cannot be read", result);
        return;
    }
    block_++;
}

void Conversation::end(int result) {
    ended_ = true;
    result_ = result;
}

std::string Conversation::awaited() const {
    if (!begun_)
        return "the answer to the request";
    return request_.send
               ? "the acknowledgement of block " + std::to_string(block_)
               : "block " + std::to_string(uint16_t(block_ + 1));
}

// Of the local file.
bool Conversation::fail_here(unsigned code, const char *text, int result) {
    const char *problem =
        result == no_room ? "no space for it" : strerror(-result - 100);
    why_ = std::string("the local file: ") + problem;
    return fail(code, text, result);
}

// Ends it, and has the server told why. Gives true: there is a new packet.
bool Conversation::fail(unsigned code, const char *text, int result) {
    if (why_.empty())
        why_ = std::string("the server sent what does not fit: ") + text;
    packet_ = word(error) + word(code) + text + '\0';
    end(result);
    return true;
}

} // namespace xfhost::tftp
