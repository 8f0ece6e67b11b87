# What `cmake --install` puts where: libraries, programs, headers, the CMake package `kqnet` and kqnet.pc.
# Three components: `libraries` is what a program needs to run, `development` what it needs to be built, `tools` our own
# programs.
include(CMakePackageConfigHelpers)

set(KQNET_CMAKE_FOLDER "${CMAKE_INSTALL_LIBDIR}/cmake/kqnet")

install(TARGETS kqcommon kqnet EXPORT kqnetTargets
        RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT libraries
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT libraries NAMELINK_COMPONENT development
        ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development)
if(KQNET_RUNTIME_DLLS)
    install(FILES ${KQNET_RUNTIME_DLLS} DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT libraries)
endif()

set_target_properties(kqnet PROPERTIES INSTALL_RPATH "$ORIGIN") # finds kqcommon beside it

# Installs a program that finds the libraries of its own prefix, wherever that is.
file(RELATIVE_PATH KQNET_BIN_TO_LIB "/${CMAKE_INSTALL_BINDIR}" "/${CMAKE_INSTALL_LIBDIR}")
function(kq_install_program target)
    set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${KQNET_BIN_TO_LIB}")
    install(TARGETS ${target} RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT tools)
endfunction()

# Headers keep their folders: users write #include "net/sockets/NetTCP.h", as the library itself does. One that includes
# another package's header is private and stays here. KQNET_PUBLIC_HEADERS: their paths from the root of the tree.
file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE "${PROJECT_SOURCE_DIR}"
     "${PROJECT_SOURCE_DIR}/common/*.h" "${PROJECT_SOURCE_DIR}/net/*.h")
file(GLOB platform_headers CONFIGURE_DEPENDS RELATIVE "${PROJECT_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}/platform/*.h")
foreach(header IN LISTS headers platform_headers)
    file(STRINGS "${PROJECT_SOURCE_DIR}/${header}" foreign REGEX "^#include <(openssl|nlohmann)/|^#include <sqlite3")
    if(NOT foreign)
        get_filename_component(folder "${header}" DIRECTORY)
        install(FILES "${PROJECT_SOURCE_DIR}/${header}" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/kqnet/${folder}"
                COMPONENT development)
        list(APPEND KQNET_PUBLIC_HEADERS "${header}")
    endif()
endforeach()

configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/kqnetConfig.cmake.in"
                              "${PROJECT_BINARY_DIR}/kqnetConfig.cmake" INSTALL_DESTINATION "${KQNET_CMAKE_FOLDER}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/kqnetConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
install(EXPORT kqnetTargets NAMESPACE kqnet:: DESTINATION "${KQNET_CMAKE_FOLDER}" COMPONENT development)
install(FILES "${PROJECT_BINARY_DIR}/kqnetConfig.cmake" "${PROJECT_BINARY_DIR}/kqnetConfigVersion.cmake"
        DESTINATION "${KQNET_CMAKE_FOLDER}" COMPONENT development)

# kqnet.pc finds its prefix from its own place. Shared libraries bring what they need themselves; who links static ones
# always needs the rest too, so that it is asked for with and without --static.
file(RELATIVE_PATH KQNET_PC_TO_PREFIX "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
string(REGEX REPLACE "/$" "" KQNET_PC_TO_PREFIX "${KQNET_PC_TO_PREFIX}")
set(KQNET_PC_REQUIRES "")
set(KQNET_PC_DEFINITIONS "")
if(NOT BUILD_SHARED_LIBS)
    set(KQNET_PC_REQUIRES "libssl libcrypto sqlite3")
    set(KQNET_PC_DEFINITIONS " -DKQLIB_STATIC")
endif()
configure_file("${PROJECT_SOURCE_DIR}/cmake/kqnet.pc.in" "${PROJECT_BINARY_DIR}/kqnet.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/kqnet.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT development)
