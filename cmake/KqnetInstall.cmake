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

# Headers keep their folders: users write #include "net/sockets/NetTCP.h", as the library itself does.
foreach(folder common net)
    install(DIRECTORY "${PROJECT_SOURCE_DIR}/${folder}" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/kqnet"
            FILES_MATCHING PATTERN "*.h")
endforeach()
install(DIRECTORY "${PROJECT_SOURCE_DIR}/platform" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/kqnet"
        FILES_MATCHING PATTERN "*.h" PATTERN posix EXCLUDE PATTERN windows EXCLUDE)

configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/kqnetConfig.cmake.in"
                              "${PROJECT_BINARY_DIR}/kqnetConfig.cmake" INSTALL_DESTINATION "${KQNET_CMAKE_FOLDER}")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/kqnetConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
install(EXPORT kqnetTargets NAMESPACE kqnet:: DESTINATION "${KQNET_CMAKE_FOLDER}")
install(FILES "${PROJECT_BINARY_DIR}/kqnetConfig.cmake" "${PROJECT_BINARY_DIR}/kqnetConfigVersion.cmake"
        DESTINATION "${KQNET_CMAKE_FOLDER}")

configure_file("${PROJECT_SOURCE_DIR}/cmake/kqnet.pc.in" "${PROJECT_BINARY_DIR}/kqnet.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/kqnet.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
