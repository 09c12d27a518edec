#include <cstdlib>

#include "scripted/note.h"

using namespace scripted;

extern "C" {

static void *counted_allocation(size_t size, const void *contents) {
    Platform &p = platform();

    p.record(Kind::Memory, "malloc", print("malloc(%zu)", size));
    if (fails_now(&p.fail_malloc_at) || no_memory("malloc")) {
        errno = ENOMEM;
        return nullptr;
    }
    p.mallocs++;
    void *const block = malloc(size);
    /* What a fresh block holds is nobody's business: make it show. */
    if (contents == nullptr)
        memset(block, 0xA5, size);
    else
        memset(block, 0, size);
    p.blocks[block] = size;
    return block;
}

void *intercept_malloc(size_t size) {
    return counted_allocation(size, nullptr);
}

/* The compiler makes one of a malloc and a memset: it counts as a malloc. */
void *intercept_calloc(size_t count, size_t size) {
    return counted_allocation(count * size, "");
}

void *intercept_realloc(void *, size_t) {
    ADD_FAILURE() << "the module is not known to call realloc";
    return nullptr;
}

void intercept_free(void *block) {
    Platform &p = platform();

    if (block == nullptr)
        return;
    p.record(Kind::Memory, "free", "free()");
    if (p.blocks.erase(block) == 0) {
        ADD_FAILURE() << "the module freed what it did not allocate";
        return;
    }
    for (const struct ordset *const set : live_sets())
        for (const void *const object : objects_of(set))
            EXPECT_NE(block, object) << "freed while a container holds it";
    free(block);
}

} // extern "C"
