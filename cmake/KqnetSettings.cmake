# Compiler settings shared by every target, and the helpers that the folders' lists use.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
if(NOT WIN32)
    set(CMAKE_VISIBILITY_INLINES_HIDDEN ON) # on Windows a class is exported whole, its inline members too
endif()
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/bin")
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
set(CMAKE_ARCHIVE_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/lib")
if(WIN32)
    set(CMAKE_SHARED_LIBRARY_PREFIX "") # kqnet.dll
endif()

find_program(KQNET_CCACHE ccache)
if(KQNET_CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER "${KQNET_CCACHE}")
    set(CMAKE_C_COMPILER_LAUNCHER "${KQNET_CCACHE}")
    if(KQNET_PRECOMPILE) # without this ccache leaves out whatever uses a precompiled header
        set(CMAKE_CXX_COMPILER_LAUNCHER "${CMAKE_COMMAND}" -E env CCACHE_SLOPPINESS=pch_defines,time_macros "${KQNET_CCACHE}")
    endif()
endif()

set(THREADS_PREFER_PTHREAD_FLAG ON)
find_package(Threads REQUIRED)

# Which half of the platform layer is built.
if(WIN32)
    set(KQNET_PLATFORM windows)
else()
    set(KQNET_PLATFORM posix)
endif()

# Warnings, sanitizers and line counters for our own code.
add_library(kqnet_settings INTERFACE)
target_compile_options(kqnet_settings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor
                                                -Wold-style-cast -Werror=return-type)
if(CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    # GCC 12 takes the inlined copy in operator+(const char*, std::string&&) for an overlapping one.
    target_compile_options(kqnet_settings INTERFACE $<$<CXX_COMPILER_ID:GNU>:-Wno-restrict>)
endif()
if(KQNET_SANITIZE)
    target_compile_options(kqnet_settings INTERFACE -fsanitize=${KQNET_SANITIZE} -fno-omit-frame-pointer
                                                    -fno-sanitize-recover=all)
    target_link_options(kqnet_settings INTERFACE -fsanitize=${KQNET_SANITIZE})
endif()
if(KQNET_COVERAGE)
    # Every session has a thread of its own, so the counters must count in all of them.
    target_compile_options(kqnet_settings INTERFACE --coverage -fprofile-update=atomic -fprofile-abs-path)
    target_link_options(kqnet_settings INTERFACE --coverage)
endif()

# kq_note_reach(LIBRARY TARGET…): with KQNET_REACH, the library notes which places of the targets' sources run.
function(kq_note_reach library)
    if(KQNET_REACH)
        add_library(${library}_reach OBJECT "${PROJECT_SOURCE_DIR}/scripts/mutation/ReachMap.c")
        target_compile_definitions(${library}_reach PRIVATE _GNU_SOURCE "KQNET_REACH_NAME=\"${library}\"")
        target_sources(${library} PRIVATE $<TARGET_OBJECTS:${library}_reach>)
        foreach(target IN LISTS ARGN)
            target_compile_options(${target} PRIVATE -fsanitize-coverage=trace-pc)
        endforeach()
    endif()
endfunction()

# Adds the sources of the calling folder to a target. A .cpp file of the folder that is not listed stops the
# configuration, so that nothing is left out of the build unseen.
function(kq_sources target)
    file(GLOB present RELATIVE "${CMAKE_CURRENT_SOURCE_DIR}" "${CMAKE_CURRENT_SOURCE_DIR}/*.cpp")
    foreach(source IN LISTS present)
        if(NOT source IN_LIST ARGN)
            message(FATAL_ERROR "${CMAKE_CURRENT_SOURCE_DIR}/${source} is in no source list")
        endif()
    endforeach()
    foreach(source IN LISTS ARGN)
        target_sources(${target} PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}/${source}")
    endforeach()
endfunction()

# Gives a Windows library or program its version resource; nothing elsewhere.
function(kq_version_resource target description)
    if(WIN32)
        set(KQ_DESCRIPTION "${description}")
        get_target_property(KQ_TYPE ${target} TYPE)
        set(KQ_FILETYPE VFT_DLL)
        set(KQ_FILENAME "${target}.dll")
        if(KQ_TYPE STREQUAL "EXECUTABLE")
            set(KQ_FILETYPE VFT_APP)
            set(KQ_FILENAME "${target}.exe")
        endif()
        configure_file("${PROJECT_SOURCE_DIR}/cmake/version.rc.in" "${CMAKE_CURRENT_BINARY_DIR}/${target}.rc" @ONLY)
        target_sources(${target} PRIVATE "${CMAKE_CURRENT_BINARY_DIR}/${target}.rc")
    endif()
endfunction()

# The compiler's own DLLs stand beside every Windows program: one copy, shared by all modules, so that exceptions and
# dynamic casts work across them.
if(WIN32 AND CMAKE_CROSSCOMPILING)
    foreach(runtime libstdc++-6.dll libgcc_s_dw2-1.dll libwinpthread-1.dll)
        execute_process(COMMAND "${CMAKE_CXX_COMPILER}" -print-file-name=${runtime} OUTPUT_VARIABLE file
                        OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
        file(REAL_PATH "${file}" file)
        file(COPY "${file}" DESTINATION "${CMAKE_RUNTIME_OUTPUT_DIRECTORY}")
        list(APPEND KQNET_RUNTIME_DLLS "${file}")
    endforeach()
endif()
