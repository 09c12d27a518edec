/*
 * ordset: ordered container of objects that the caller owns.
 *
 * A set holds pointers; it never copies, changes or frees an object. An object
 * is its own key: the comparison is given two objects, or an object and a
 * record of the same type of which only the key fields are filled in.
 *
 * The sign convention is the reverse of strcmp's: compare(a, b) is positive
 * when a stands before b, negative when a stands after b and 0 when their keys
 * are equal.
 *
 * Every operation is O(log n) in the objects held. None is thread-safe.
 *
 * Context of all of it: agent. Nothing of it blocks.
 */
#ifndef PLATFORM_ORDSET_H
#define PLATFORM_ORDSET_H

#include <stdint.h>

#include "visibility.h"

/* -1, 0 or 1 as x is below, equal to or above y; both are evaluated twice. */
#define INTCMP(x, y) ((x) < (y) ? -1 : ((x) > (y) ? 1 : 0))

/* Result of ordset_create when the set was made. */
#define ORDSET_CREATED 2

struct ordset;

PLATFORM_BEGIN_DECLS

typedef int ordset_compare(const void *a, const void *b);

/*
 * Makes an empty set.
 *
 * set       where the handle goes. It holds NULL, or a set that the caller no
 *           longer wants: that one is destroyed first, its objects untouched.
 * keyed     1 for sets of table rows, 0 for sets of pending requests; a hint
 *           for platforms that keep the two in different memory.
 * unique    1: two objects of one key cannot be in the set together.
 * compare   the order, see above; it is called with no NULL argument.
 * owned     1: the objects stay the caller's.
 *
 * Returns ORDSET_CREATED. Any other value is a failure: no memory, or flags
 * that the platform does not know; *set is then NULL.
 */
int ordset_create(struct ordset **set, int keyed, int unique,
                  ordset_compare *compare, int owned);

/*
 * Puts `object` into the set under the key that `key` carries; the caller
 * passes the same pointer for both.
 *
 * Returns `object`; NULL when the set holds an object of that key already,
 * when there is no memory or when set is NULL. The set is then unchanged.
 */
void *ordset_add(struct ordset *set, const void *key, void *object);

/* The object whose key equals that of `key`; NULL if none or if set is NULL. */
void *ordset_find(struct ordset *set, const void *key);

/*
 * The first object, in the order of the set, that stands after `key`; NULL if
 * there is none or if set is NULL. `key` itself need not be in the set.
 */
void *ordset_find_nextgreater(struct ordset *set, const void *key);

/*
 * The object at a position counted from 1 in the order of the set; NULL if
 * position is 0 or above ordset_size, or if set is NULL.
 */
void *ordset_find_nth_obj(struct ordset *set, uint32_t position);

/*
 * Takes the object whose key equals that of `key` out of the set and returns
 * it, for the caller to free; NULL if there is none or if set is NULL.
 */
void *ordset_remove(struct ordset *set, const void *key);

/* Number of objects held; 0 if set is NULL. */
uint32_t ordset_size(const struct ordset *set);

/*
 * Destroys the set and stores NULL in *set. The objects still held are not
 * freed. Does nothing if *set is NULL.
 */
void ordset_destroy(struct ordset **set);

PLATFORM_END_DECLS

#endif
