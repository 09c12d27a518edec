// What a TFTP client and its server say to each other, without a socket: octet
// mode (RFC 1350), the size of blocks and of the file as options (RFC 2347 to
// 2349).
#ifndef HOST_TFTP_CONVERSATION_H
#define HOST_TFTP_CONVERSATION_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace xfhost::tftp {

constexpr size_t standard_block = 512;
// An Ethernet frame holds it, whatever stands before it.
constexpr size_t safe_block = 1428;
constexpr size_t largest_block = 65464; // that there is

// An error number as a result of platform/tftp.h, and "disk full" as one.
constexpr int system_error(int number) {
    return -(100 + number);
}
constexpr int no_room = -3;

// The block that goes through a path in one piece. `mtu` is in octets, 0 if it
// is not known.
size_t block_for(size_t mtu);

// What to ask for where blocks of that size were of no use; 0 is no options.
constexpr size_t less_than(size_t block) {
    return block > safe_block ? safe_block : 0;
}

// The local end of a transfer. Every call returns 0, or the result of
// platform/tftp.h that the transfer then ends with.
class LocalFile {
  public:
    virtual ~LocalFile() = default;
    // The server has told how many octets will come.
    virtual int expect(uint64_t octets) = 0;
    // Octets that have come, in the file's order.
    virtual int append(std::string_view octets) = 0;
    // Appends the next `length` octets of the file; fewer at its end only.
    virtual int next(size_t length, std::string &packet) = 0;
    // The transfer begins again.
    virtual int restart() = 0;
};

struct Request {
    bool send = false;
    std::string name;  // of the file on the server
    uint64_t size = 0; // of a file to send, in octets
    size_t block = 0;  // octets to ask for; 0: no options are
};

class Conversation {
  public:
    // `file` is the caller's and has to last.
    Conversation(const Request &request, LocalFile &file);

    // Takes a datagram from the server's address. The first one that can be an
    // answer to the request settles the port; no other port's is taken from
    // then on. Returns whether there is more to say: then packet() is another
    // one, to be sent at once.
    bool take(uint16_t port, std::string_view datagram);

    // As long as nothing has come: asks for less from now on. The server may
    // still take what was asked for before.
    void ask_for_less();

    // Ends it because blocks of its size do not get through.
    void stop_for_less();

    // What has been said last; to be said again while no answer comes.
    const std::string &packet() const {
        return packet_;
    }
    // Octets, as agreed.
    size_t block_size() const {
        return block_size_;
    }
    // The server's for this transfer; 0 before its first answer.
    uint16_t port() const {
        return port_;
    }
    bool ended() const {
        return ended_;
    }
    // Of a conversation that has ended: 0 if every octet has come, or was
    // acknowledged; else as in platform/tftp.h.
    int result() const {
        return result_;
    }
    // Why it ended with another result than 0.
    const std::string &why() const {
        return why_;
    }
    // What the next datagram has to be, for a person.
    std::string awaited() const;
    // Whether it has ended because the server dislikes its options, or for the
    // size of its blocks: another one that asks for less may do.
    bool less_may_do() const {
        return less_may_do_;
    }

  private:
    bool can_be_first(std::string_view datagram) const;
    void take_error(unsigned code, std::string_view text);
    bool take_options(std::string_view options);
    bool set_option(const std::string &name, std::string_view value,
                    int &problem);
    bool take_data(unsigned block, std::string_view octets);
    bool take_acknowledgement(unsigned block);
    void acknowledge();
    void send_next();
    void end(int result);
    bool fail(unsigned code, const char *text, int result);
    bool fail_here(unsigned code, const char *text, int result);

    Request request_;
    LocalFile &file_;
    size_t asked_; // the block of the latest request
    std::string packet_;
    uint16_t port_ = 0;
    uint16_t block_ = 0; // acknowledged or sent last
    size_t block_size_ = standard_block;
    bool begun_ = false; // the server has taken the request
    bool last_ = false;  // the block sent last was the file's last
    uint64_t moved_ = 0;
    std::optional<uint64_t> announced_;
    bool ended_ = false;
    int result_ = 0;
    std::string why_;
    bool less_may_do_ = false;
};

} // namespace xfhost::tftp

#endif
