#include "scripted/note.h"

#include <cstdio>
#include <cstdlib>

namespace scripted {

std::string formatted(const char *format, va_list arguments) {
    va_list again;

    va_copy(again, arguments);
    const int length = vsnprintf(nullptr, 0, format, again);
    va_end(again);
    std::string text(static_cast<size_t>(length) + 1, '\0');
    vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();
    return text;
}

std::string print(const char *format, ...) {
    va_list arguments;

    va_start(arguments, format);
    std::string text = formatted(format, arguments);
    va_end(arguments);
    return text;
}

std::string text_or_null(const char *text) {
    return text == nullptr ? "NULL" : quote(text);
}

std::string copy_or_empty(const char *text) {
    return text == nullptr ? "" : text;
}

const char *name_of(const struct ipcbus_queue *queue) {
    return queue == nullptr ? "NULL" : queue->name.c_str();
}

const char *name_of(const struct ipcbus_message *message) {
    return message == nullptr ? "NULL" : message->name.c_str();
}

std::string dotted(const oid *name, size_t length) {
    std::string text;

    for (size_t i = 0; i < length; i++)
        text += (i == 0 ? "" : ".") + std::to_string(name[i]);
    return text;
}

std::string shown(const struct ip_addr *address) {
    return print("{%d, %s}", address->type,
                 quote({reinterpret_cast<const char *>(address->octets),
                        sizeof(address->octets)})
                     .c_str());
}

std::string name_of(ordset_compare *compare) {
    if (compare == xfCopyEntry_comp_func)
        return "xfCopyEntry_comp_func";
    if (compare == xfCopyErrorEntry_comp_func)
        return "xfCopyErrorEntry_comp_func";
    return compare == nullptr ? "NULL" : "?";
}

Event &called(const char *function, std::string text) {
    return platform().record(Kind::Call, function, std::move(text));
}

Event &asked(const char *function, std::string text) {
    return platform().record(Kind::Query, function, std::move(text));
}

void hook(const char *function) {
    const auto found = platform().hooks.find(function);

    if (found != platform().hooks.end())
        found->second();
}

bool fails_now(int *countdown) {
    return *countdown > 0 && --*countdown == 0;
}

bool no_memory(const char *function) {
    Platform &p = platform();

    if (!p.recording || !fails_now(&p.fail_memory_at))
        return false;
    p.failed_call = function;
    errno = ENOMEM;
    return true;
}

std::vector<oid> oids(const oid *name, size_t length) {
    return {name, name + length};
}

void spoil_errno() {
    errno = EXDEV;
}

const char *lasting(std::string &place, const std::string &text) {
    std::fill(place.begin(), place.end(), '#');
    place = text;
    return place.c_str();
}

void *allocated_for_module(size_t size) {
    void *const block = calloc(1, size);

    platform().blocks[block] = size;
    return block;
}

} // namespace scripted
