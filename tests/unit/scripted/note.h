/*
 * What the parts of the scripted platform share: how calls are shown and noted,
 * and how they are made to fail. For those parts only; a test has no use for
 * it.
 */
#ifndef SCRIPTED_NOTE_H
#define SCRIPTED_NOTE_H

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <string>
#include <vector>

#include "scripted_platform.h"

namespace scripted {

/* ---- Showing --------------------------------------------------------------
 */

std::string formatted(const char *format, va_list arguments);
__attribute__((format(printf, 1, 2))) std::string print(const char *format,
                                                        ...);

std::string text_or_null(const char *text); /* quoted, or NULL */
std::string copy_or_empty(const char *text);

const char *name_of(const struct ipcbus_queue *queue);
const char *name_of(const struct ipcbus_message *message);
std::string name_of(ordset_compare *compare);

std::vector<oid> oids(const oid *name, size_t length);
std::string dotted(const oid *name, size_t length);
std::string shown(const struct ip_addr *address);

/* ---- Noting ---------------------------------------------------------------
 */

/* A call with an effect, and one without; the caller may add to the event. */
Event &called(const char *function, std::string text);
Event &asked(const char *function, std::string text);

/* Runs the test's hook of a function; after it was recorded. */
void hook(const char *function);

/* ---- Failing --------------------------------------------------------------
 */

/* The next one of a countdown that fails: 1 is now. */
bool fails_now(int *countdown);

/* Whether this is the call that has no memory. */
bool no_memory(const char *function);

/* What a platform may do with errno inside a trace: nobody may rely on it. */
void spoil_errno();

/* ---- Lasting --------------------------------------------------------------
 */

/* A text that lasts until the function's next call: overwritten by it. */
const char *lasting(std::string &place, const std::string &text);

/* Memory that the platform allocates for the module to free. */
void *allocated_for_module(size_t size);

/* ---- State of other parts -------------------------------------------------
 */

/* Every container that was made and not destroyed, and what it holds. */
const std::set<struct ordset *> &live_sets();
std::vector<const void *> objects_of(const struct ordset *set);
void delete_live_sets();

/* Debug logs that were opened, for the life of the process, and what was
 * written to them since the last flush. */
std::map<FILE *, std::string> &debug_logs();

} // namespace scripted

#endif
