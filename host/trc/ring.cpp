#include "host/trc/ring.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <new>

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/base/files.h"

namespace xfhost {

struct Ring::Header {
    char magic[8];
    uint32_t slot_size;
    uint32_t slot_count;
    std::atomic<uint32_t> next; // events written so far
    uint32_t unused;
};

namespace {

constexpr char ring_magic[8] = {'X', 'F', 'T', 'R', 'A', 'C', 'E', '2'};
constexpr uint32_t most_slots = 1u << 20;

// Of this process: an event is not worth a system call to ask for it.
pid_t own_pid = 0;

void learn_pid() {
    own_pid = getpid();
}

bool keep_pid() {
    static const int error = pthread_atfork(nullptr, nullptr, learn_pid);
    learn_pid();
    errno = error;
    return error == 0;
}

size_t file_size(size_t header, uint32_t slots) {
    return header + size_t{slots} * sizeof(RingEvent);
}

// A usable slot count of a file, 0 if it is not a ring.
uint32_t slots_of(int fd, size_t header_size) {
    struct {
        char magic[8];
        uint32_t slot_size;
        uint32_t slot_count;
    } head;
    struct stat st;
    if (pread(fd, &head, sizeof head, 0) != sizeof head || fstat(fd, &st) != 0)
        return 0;
    bool good = memcmp(head.magic, ring_magic, sizeof ring_magic) == 0 &&
                head.slot_size == sizeof(RingEvent) && head.slot_count > 0 &&
                head.slot_count <= most_slots &&
                static_cast<size_t>(st.st_size) ==
                    file_size(header_size, head.slot_count);
    return good ? head.slot_count : 0;
}

} // namespace

Ring::Ring(Header *header, size_t size) : header_(header), size_(size) {
    static_assert(sizeof(Header) == 24);
    static_assert(offsetof(Header, next) == 16);
}

Ring::~Ring() {
    munmap(header_, size_);
}

RingEvent *Ring::slots() const {
    return reinterpret_cast<RingEvent *>(header_ + 1);
}

std::unique_ptr<Ring> Ring::open(int directory, const char *name,
                                 uint32_t slots) {
    Fd fd = open_private_file(directory, name, O_RDWR | O_CREAT);
    if (!keep_pid() || !fd || flock(fd.get(), LOCK_EX) != 0)
        return nullptr;
    size_t size = file_size(sizeof(Header), slots);
    bool fresh = slots_of(fd.get(), sizeof(Header)) != slots;
    // Allocated, not only long enough: a full disk must show here and not as
    // a signal in the middle of a write.
    if (fresh &&
        (ftruncate(fd.get(), 0) != 0 ||
         (errno = posix_fallocate(fd.get(), 0, static_cast<off_t>(size))) != 0))
        return nullptr;
    void *map = mmap(nullptr, size, PROT_READ | PROT_WRITE,
                     MAP_SHARED | MAP_POPULATE, fd.get(), 0);
    if (map == MAP_FAILED)
        return nullptr;
    auto header = static_cast<Header *>(map);
    if (fresh) {
        header->slot_size = sizeof(RingEvent);
        header->slot_count = slots;
        memcpy(header->magic, ring_magic, sizeof ring_magic);
    }
    // By hand: the mapping would hold the lock for as long as a process of this
    // agent has it, and keep the next agent waiting.
    flock(fd.get(), LOCK_UN);
    return std::unique_ptr<Ring>(new Ring(header, size));
}

std::unique_ptr<Ring> Ring::open_to_read(const char *path) {
    Fd fd(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!fd)
        return nullptr;
    uint32_t slots = slots_of(fd.get(), sizeof(Header));
    if (slots == 0) {
        errno = EBADMSG;
        return nullptr;
    }
    size_t size = file_size(sizeof(Header), slots);
    void *map = mmap(nullptr, size, PROT_READ, MAP_SHARED, fd.get(), 0);
    if (map == MAP_FAILED)
        return nullptr;
    return std::unique_ptr<Ring>(new Ring(static_cast<Header *>(map), size));
}

void Ring::add(uint32_t type, uint32_t level, const char *text, size_t length) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    uint32_t number = header_->next.fetch_add(1, std::memory_order_relaxed);
    RingEvent &slot = slots()[number % header_->slot_count];
    slot.sequence.store(0, std::memory_order_release);
    slot.seconds = now.tv_sec;
    slot.nanoseconds = static_cast<int32_t>(now.tv_nsec);
    slot.pid = own_pid;
    slot.type = type;
    slot.level = level;
    length = std::min(length, ring_text_size - 1);
    memcpy(slot.text, text, length);
    slot.text[length] = 0;
    slot.sequence.store(number + 1, std::memory_order_release);
}

std::vector<TraceEvent> Ring::events() const {
    std::vector<TraceEvent> result;
    for (uint32_t i = 0; i < header_->slot_count; i++) {
        const RingEvent &slot = slots()[i];
        uint32_t before = slot.sequence.load(std::memory_order_acquire);
        TraceEvent event = {before,
                            slot.seconds,
                            slot.nanoseconds,
                            slot.pid,
                            slot.type,
                            slot.level,
                            {slot.text, strnlen(slot.text, ring_text_size)}};
        // Not the same any more: it was overwritten while it was copied.
        std::atomic_thread_fence(std::memory_order_acquire);
        if (before != 0 &&
            slot.sequence.load(std::memory_order_relaxed) == before)
            result.push_back(std::move(event));
    }
    // By age, because sequence numbers wrap.
    uint32_t newest = header_->next.load(std::memory_order_relaxed);
    std::sort(result.begin(), result.end(),
              [newest](const auto &a, const auto &b) {
                  return newest - a.sequence > newest - b.sequence;
              });
    return result;
}

} // namespace xfhost
