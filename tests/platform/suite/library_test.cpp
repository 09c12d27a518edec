// The library as a whole: its name and what it exports.
#include <cstring>
#include <string>

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <gtest/gtest.h>

#include "suite.h"

namespace {

constexpr const char *calls[] = {
#include "calls.inc"
};

struct link_map *loaded() {
    struct link_map *map = nullptr;
    EXPECT_EQ(dlinfo(suite::library(), RTLD_DI_LINKMAP, &map), 0) << dlerror();
    return map;
}

// DT_SONAME of the library, as the loader has it; empty if there is none.
std::string own_name() {
    const char *texts = nullptr;
    size_t offset = 0;
    for (const ElfW(Dyn) *each = loaded()->l_ld; each->d_tag != DT_NULL;
         each++) {
        if (each->d_tag == DT_STRTAB)
            texts = reinterpret_cast<const char *>(each->d_un.d_ptr);
        if (each->d_tag == DT_SONAME)
            offset = each->d_un.d_val;
    }
    return texts == nullptr || offset == 0 ? "" : texts + offset;
}

TEST(Library, HasTheNameThatTheModuleAsksFor) {
    EXPECT_EQ(own_name(), "libxfplatform.so.1");
}

TEST(Library, HasEveryCall) {
    for (const char *name : calls)
        EXPECT_NE(dlsym(suite::library(), name), nullptr) << name;
}

} // namespace
