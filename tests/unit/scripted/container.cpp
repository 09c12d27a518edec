#include "scripted/note.h"

using namespace scripted;

namespace {
struct Before {
    ordset_compare *compare;
    bool operator()(const void *a, const void *b) const {
        platform().comparisons++;
        return compare(a, b) > 0;
    }
};
} // namespace

struct ordset {
    std::multiset<const void *, Before> objects;
    bool unique;
};

static std::set<struct ordset *> sets;

/* Both records start with their (first) index. */
static std::string key_call(const char *function, const void *key) {
    int32_t index = 0;

    memcpy(&index, key, sizeof(index));
    return print("%s(%d)", function, index);
}

static void set_call(const char *function, std::string text) {
    platform().record(Kind::Set, function, std::move(text));
    hook(function);
}

namespace scripted {

size_t size_of(const struct ordset *set) {
    return set == nullptr ? 0 : set->objects.size();
}

const std::set<struct ordset *> &live_sets() {
    return sets;
}

std::vector<const void *> objects_of(const struct ordset *set) {
    if (set == nullptr)
        return {};
    return {set->objects.begin(), set->objects.end()};
}

void delete_live_sets() {
    for (struct ordset *const set : sets)
        delete set;
    sets.clear();
}

} // namespace scripted

extern "C" {

int ordset_create(struct ordset **set, int keyed, int unique,
                  ordset_compare *compare, int owned) {
    Platform &p = platform();

    set_call(__func__, print("%s(%d, %d, %s, %d)", __func__, keyed, unique,
                             name_of(compare).c_str(), owned));
    if (*set != nullptr) {
        sets.erase(*set);
        delete *set;
        *set = nullptr;
    }
    if (fails_now(&p.fail_ordset_create_at) || no_memory(__func__))
        return p.ordset_create_failure;
    *set = new ordset{std::multiset<const void *, Before>(Before{compare}),
                      unique == 1};
    sets.insert(*set);
    return ORDSET_CREATED;
}

void *ordset_add(struct ordset *set, const void *key, void *object) {
    set_call(__func__, key_call(__func__, key));
    EXPECT_EQ(key, object);
    if (fails_now(&platform().fail_ordset_add_at) || no_memory(__func__) ||
        set == nullptr)
        return nullptr;
    if (set->unique && set->objects.find(key) != set->objects.end())
        return nullptr;
    set->objects.insert(object);
    return object;
}

void *ordset_find(struct ordset *set, const void *key) {
    set_call(__func__, key_call(__func__, key));
    if (fails_now(&platform().fail_ordset_find_at) || set == nullptr)
        return nullptr;
    const auto found = set->objects.find(key);
    return found == set->objects.end() ? nullptr : const_cast<void *>(*found);
}

void *ordset_find_nextgreater(struct ordset *set, const void *key) {
    set_call(__func__, key_call(__func__, key));
    if (set == nullptr)
        return nullptr;
    const auto found = set->objects.upper_bound(key);
    return found == set->objects.end() ? nullptr : const_cast<void *>(*found);
}

void *ordset_find_nth_obj(struct ordset *set, uint32_t position) {
    set_call(__func__, print("%s(%u)", __func__, position));
    if (fails_now(&platform().fail_ordset_nth_at) || set == nullptr ||
        position == 0 || position > set->objects.size())
        return nullptr;
    return const_cast<void *>(
        *std::next(set->objects.begin(), static_cast<long>(position) - 1));
}

void *ordset_remove(struct ordset *set, const void *key) {
    set_call(__func__, key_call(__func__, key));
    if (fails_now(&platform().fail_ordset_remove_at) || set == nullptr)
        return nullptr;
    const auto found = set->objects.find(key);
    if (found == set->objects.end())
        return nullptr;
    void *const object = const_cast<void *>(*found);
    set->objects.erase(found);
    return object;
}

uint32_t ordset_size(const struct ordset *set) {
    return static_cast<uint32_t>(size_of(set));
}

void ordset_destroy(struct ordset **set) {
    set_call(__func__,
             print("%s(%s)", __func__, *set == nullptr ? "NULL" : "set"));
    sets.erase(*set);
    delete *set;
    *set = nullptr;
}

} // extern "C"
