// Lets one allocation of the agent fail. Preloaded into it.
//
// NO_MEMORY names a file with two numbers, which this maps. The first: so many
// calls of operator new later there is no memory, once. The second becomes the
// process that this counts in, the first one with the file.
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace {

struct Page {
    std::atomic<int32_t> countdown;
    std::atomic<int32_t> agent;
};

Page *page = nullptr;

__attribute__((constructor)) void map_countdown() {
    const char *name = getenv("NO_MEMORY");
    int fd = name == nullptr ? -1 : open(name, O_RDWR | O_CLOEXEC);
    if (fd < 0)
        return;
    void *mapped =
        mmap(nullptr, sizeof *page, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (mapped == MAP_FAILED)
        return;
    page = static_cast<Page *>(mapped);
    int32_t nobody = 0;
    page->agent.compare_exchange_strong(nobody, getpid());
}

bool fails_now() {
    return page != nullptr && page->countdown > 0 && getpid() == page->agent &&
           page->countdown.fetch_sub(1) == 1;
}

} // namespace

void *operator new(size_t size) {
    void *block = fails_now() ? nullptr : malloc(size == 0 ? 1 : size);
    if (block == nullptr)
        throw std::bad_alloc();
    return block;
}

void operator delete(void *block) noexcept {
    free(block);
}

void operator delete(void *block, size_t) noexcept {
    free(block);
}
