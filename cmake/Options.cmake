# Flags of every target: `xf_flags` is linked privately by each of them.
add_library(xf_flags INTERFACE)
target_compile_options(xf_flags INTERFACE
    -Wall -Wextra -Wconversion -Wshadow -Werror)

if(XF_SANITIZE)
    target_compile_options(xf_flags INTERFACE
        -fsanitize=address,undefined -fno-sanitize-recover=all
        -fno-omit-frame-pointer)
    target_link_options(xf_flags INTERFACE -fsanitize=address,undefined)
endif()

# For what drives the code under test: it is to be built quickly, which took most
# of the time of a build.
add_library(test_flags INTERFACE)
target_compile_options(test_flags INTERFACE -O0 -g1)
# xf_read_googletest_once(TARGET): and not for each of its files.
function(xf_read_googletest_once target)
    target_precompile_headers(${target} PRIVATE <gmock/gmock.h> <gtest/gtest.h>)
endfunction()

if(XF_COVERAGE)
    target_link_options(xf_flags INTERFACE --coverage)
endif()

if(XF_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        message(FATAL_ERROR "XF_FUZZ needs Clang: CC=clang CXX=clang++")
    endif()
    target_compile_options(xf_flags INTERFACE
        -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all
        -fno-omit-frame-pointer)
    target_link_options(xf_flags INTERFACE -fsanitize=address,undefined)
endif()

if(XF_UNSIGNED_CHAR)
    target_compile_options(xf_flags INTERFACE -funsigned-char)
endif()

# A text without arguments is a format too; formats are checked where they stand.
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    target_compile_options(xf_flags INTERFACE -Wno-format-security)
endif()
