// How a wrong library reaches what it does wrong in the right one, which comes
// behind it.
#ifndef TESTS_PLATFORM_RIGHT_H
#define TESTS_PLATFORM_RIGHT_H

#include <cstdlib>

#include <dlfcn.h>

// `call`, as the right library has it.
template <typename Call> Call *right(Call *, const char *name) {
    void *found = dlsym(RTLD_NEXT, name);
    if (found == nullptr)
        abort();
    return reinterpret_cast<Call *>(found);
}

#define RIGHT(call) right(call, #call)

#endif
