// The trace history: a ring of fixed slots in a mapped file. A writer takes a
// slot by counting one shared counter up, so that a process and the children
// that it forks can write side by side, and a writer that dies spoils at most
// the slot that it was filling.
#ifndef HOST_TRC_RING_H
#define HOST_TRC_RING_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace xfhost {

constexpr size_t ring_text_size = 512;

// Of the same layout on every machine. Only what is atomic without a lock can
// be shared with other processes: 32 bits, which may wrap.
struct RingEvent {
    std::atomic<uint32_t> sequence; // 0: empty, or being written
    int32_t nanoseconds;
    int64_t seconds;
    int32_t pid;
    uint32_t type;
    uint32_t level;
    char text[ring_text_size]; // NUL-terminated
    uint32_t unused;
};

static_assert(std::atomic<uint32_t>::is_always_lock_free);
static_assert(sizeof(RingEvent) == 32 + ring_text_size);
static_assert(offsetof(RingEvent, seconds) == 8);
static_assert(offsetof(RingEvent, text) == 28);

// One event, as a reader gets it.
struct TraceEvent {
    uint32_t sequence;
    int64_t seconds;
    int32_t nanoseconds;
    int32_t pid;
    uint32_t type;
    uint32_t level;
    std::string text;
};

class Ring {
  public:
    // The ring in a file of the directory, made or made anew as needed; NULL
    // with errno set.
    static std::unique_ptr<Ring> open(int directory, const char *name,
                                      uint32_t slots);
    // The ring in an existing file, to read; NULL with errno set, EBADMSG if
    // the file is not a ring.
    static std::unique_ptr<Ring> open_to_read(const char *path);
    ~Ring();

    void add(uint32_t type, uint32_t level, const char *text, size_t length);

    // The events kept, oldest first.
    std::vector<TraceEvent> events() const;

  private:
    struct Header;
    Ring(Header *header, size_t size);
    RingEvent *slots() const;
    Header *header_;
    size_t size_;
};

} // namespace xfhost

#endif
