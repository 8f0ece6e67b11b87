# 32-bit Windows programs, made on Linux with mingw-w64 (the variant with POSIX threads, which std::thread needs).
# KQNET_WINDOWS_SYSROOT (a cache entry or an environment variable): the folder that scripts/windows-deps made.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86)

set(KQNET_WINDOWS_SYSROOT "$ENV{KQNET_WINDOWS_SYSROOT}" CACHE PATH "Cross-built dependencies")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES KQNET_WINDOWS_SYSROOT)

set(CMAKE_C_COMPILER i686-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER i686-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER i686-w64-mingw32-windres)

# Windows 7 and later, said once for every source.
add_compile_definitions(_WIN32_WINNT=0x0601 WINVER=0x0601)

# Libraries, headers and packages only from the dependencies and the compiler's own folder, programs only from the host.
set(CMAKE_FIND_ROOT_PATH "${KQNET_WINDOWS_SYSROOT}" /usr/i686-w64-mingw32)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
list(APPEND CMAKE_PREFIX_PATH "${KQNET_WINDOWS_SYSROOT}")
set(OPENSSL_USE_STATIC_LIBS TRUE)

# Programs made here run under Wine.
set(CMAKE_CROSSCOMPILING_EMULATOR "${CMAKE_CURRENT_LIST_DIR}/../scripts/wine-run")
