# What `cmake --install` puts where: libraries, headers, the CMake package `kqnet` and kqnet.pc.
include(CMakePackageConfigHelpers)

set(KQNET_CMAKE_FOLDER "${CMAKE_INSTALL_LIBDIR}/cmake/kqnet")

install(TARGETS kqcommon kqnet EXPORT kqnetTargets
        RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}"
        LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
        ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}")
if(KQNET_RUNTIME_DLLS)
    install(FILES ${KQNET_RUNTIME_DLLS} DESTINATION "${CMAKE_INSTALL_BINDIR}")
endif()

set_target_properties(kqnet PROPERTIES INSTALL_RPATH "$ORIGIN") # finds kqcommon beside it

# Headers keep their folders: users write #include "net/sockets/NetTCP.h", as the library itself does. One that includes
# another package's header is private and stays here.
file(GLOB_RECURSE headers CONFIGURE_DEPENDS RELATIVE "${PROJECT_SOURCE_DIR}"
     "${PROJECT_SOURCE_DIR}/common/*.h" "${PROJECT_SOURCE_DIR}/net/*.h")
file(GLOB platform_headers CONFIGURE_DEPENDS RELATIVE "${PROJECT_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}/platform/*.h")
foreach(header IN LISTS headers platform_headers)
    file(STRINGS "${PROJECT_SOURCE_DIR}/${header}" foreign REGEX "^#include <(openssl|spdlog|nlohmann)/|^#include <sqlite3")
    if(NOT foreign)
        get_filename_component(folder "${header}" DIRECTORY)
        install(FILES "${PROJECT_SOURCE_DIR}/${header}" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/kqnet/${folder}")
    endif()
endforeach()

configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/kqnetConfig.cmake.in"
                              "${PROJECT_BINARY_DIR}/kqnetConfig.cmake" INSTALL_DESTINATION "${KQNET_CMAKE_FOLDER}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/kqnetConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
install(EXPORT kqnetTargets NAMESPACE kqnet:: DESTINATION "${KQNET_CMAKE_FOLDER}")
install(FILES "${PROJECT_BINARY_DIR}/kqnetConfig.cmake" "${PROJECT_BINARY_DIR}/kqnetConfigVersion.cmake"
        DESTINATION "${KQNET_CMAKE_FOLDER}")

configure_file("${PROJECT_SOURCE_DIR}/cmake/kqnet.pc.in" "${PROJECT_BINARY_DIR}/kqnet.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/kqnet.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
