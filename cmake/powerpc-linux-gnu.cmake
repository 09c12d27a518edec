# 32-bit big-endian PowerPC with Debian's cross compiler; what is built runs
# under QEMU's user mode. XF_CROSS_PREFIXES lists the folders that hold the
# cross-built libraries, each as the root of a file system.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR ppc)
set(CMAKE_C_COMPILER powerpc-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER powerpc-linux-gnu-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR "qemu-ppc;-L;/usr/powerpc-linux-gnu")

list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES XF_CROSS_PREFIXES)
set(CMAKE_FIND_ROOT_PATH ${XF_CROSS_PREFIXES} /usr/powerpc-linux-gnu)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
