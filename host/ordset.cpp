// ordset on the order-statistics tree of libstdc++: a red-black tree whose
// nodes also know the size of their subtree, so that a position is found as
// fast as a key.
//
// The object that was asked for last is remembered: a request asks for the same
// row several times, a walk for the one behind it.
//
// The setting table_rows limits every set: the rows that stations make, the
// error rows of a fabric, and what a request in progress remembers of rows.
#include "platform/ordset.h"

#include <cstdint>
#include <iterator>
#include <memory>
#include <new>

#include <ext/pb_ds/assoc_container.hpp>
#include <ext/pb_ds/tree_policy.hpp>

#include "host/base/settings.h"

namespace {

// The set's convention is the reverse of strcmp's.
struct StandsBefore {
    ordset_compare *compare;
    bool operator()(const void *a, const void *b) const {
        return compare(a, b) > 0;
    }
};

// Positions have 32 bits. A node that counts in as many has 40 octets instead
// of 48 where pointers have 64, and takes 48 from the C library instead of 64.
template <typename Type> struct NodeAllocator : std::allocator<Type> {
    using size_type = uint32_t;
    template <typename Other> struct rebind {
        using other = NodeAllocator<Other>;
    };
    NodeAllocator() = default;
    template <typename Other> NodeAllocator(const NodeAllocator<Other> &) {}
};

using Tree = __gnu_pbds::tree<
    void *, __gnu_pbds::null_type, StandsBefore, __gnu_pbds::rb_tree_tag,
    __gnu_pbds::tree_order_statistics_node_update, NodeAllocator<char>>;

size_t most_objects() {
    const xfhost::Settings *s = xfhost::settings();
    return static_cast<size_t>(s == nullptr ? xfhost::Settings().table_rows
                                            : s->table_rows);
}

void *as_key(const void *key) {
    return const_cast<void *>(key);
}

} // namespace

struct ordset {
    Tree tree;
    ordset_compare *compare;
    Tree::iterator last; // asked for last, or the end

    explicit ordset(ordset_compare *order)
        : tree(StandsBefore{order}), compare(order), last(tree.end()) {}

    bool last_is(const void *key) const {
        return last != tree.end() && compare(key, *last) == 0;
    }
    void *remember(Tree::iterator found) {
        last = found;
        return found == tree.end() ? nullptr : *found;
    }
};

int ordset_create(struct ordset **set, int keyed, int unique,
                  ordset_compare *compare, int owned) {
    ordset_destroy(set);
    if (compare == nullptr || (keyed != 0 && keyed != 1) || unique != 1 ||
        owned != 1)
        return -1;
    try {
        *set = new ordset(compare);
    } catch (const std::bad_alloc &) {
        return -1;
    }
    return ORDSET_CREATED;
}

void *ordset_add(struct ordset *set, const void *, void *object) {
    if (set == nullptr)
        return nullptr;
    try {
        if (set->tree.size() >= most_objects())
            return nullptr;
        auto [place, added] = set->tree.insert(object);
        set->last = place;
        return added ? object : nullptr;
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

void *ordset_find(struct ordset *set, const void *key) {
    if (set == nullptr)
        return nullptr;
    if (set->last_is(key))
        return *set->last;
    return set->remember(set->tree.find(as_key(key)));
}

void *ordset_find_nextgreater(struct ordset *set, const void *key) {
    if (set == nullptr)
        return nullptr;
    if (set->last_is(key))
        return set->remember(std::next(set->last));
    return set->remember(set->tree.upper_bound(as_key(key)));
}

void *ordset_find_nth_obj(struct ordset *set, uint32_t position) {
    if (set == nullptr || position == 0)
        return nullptr;
    return set->remember(set->tree.find_by_order(position - 1));
}

void *ordset_remove(struct ordset *set, const void *key) {
    void *object = ordset_find(set, key);
    if (object == nullptr)
        return nullptr;
    set->tree.erase(set->last);
    set->last = set->tree.end();
    return object;
}

uint32_t ordset_size(const struct ordset *set) {
    return set == nullptr ? 0 : static_cast<uint32_t>(set->tree.size());
}

void ordset_destroy(struct ordset **set) {
    delete *set;
    *set = nullptr;
}
