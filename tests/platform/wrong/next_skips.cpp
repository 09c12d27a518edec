// A container whose next object is the one behind it.
#include "platform/ordset.h"

#include "right.h"

void *ordset_find_nextgreater(struct ordset *set, const void *key) {
    void *next = RIGHT(ordset_find_nextgreater)(set, key);
    if (next == nullptr)
        return nullptr;
    return RIGHT(ordset_find_nextgreater)(set, next);
}
