# Packages, by CPack: of Debian (preset linux-package), or a zip of everything for Windows (preset windows32-package).
# scripts/package makes them.
option(KQNET_DEBIAN "Install what Debian packages hold besides: service, manual pages, changelogs, notices" OFF)
option(KQNET_WINDOWS_ZIP "Install what the zip for Windows holds besides: documents, notices" OFF)

set(CPACK_PACKAGE_NAME kqnet)
set(CPACK_PACKAGE_VENDOR kqnet)
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_DIRECTORY "${PROJECT_BINARY_DIR}/packages")
set(CPACK_COMPONENTS_ALL libraries development tools)
set(CPACK_VERBATIM_VARIABLES ON)

# kq_package_notices(FILE PACKAGE...): writes our notice, and those of the packages whose code is in our files.
function(kq_package_notices file)
    configure_file("${PROJECT_SOURCE_DIR}/packaging/copyright.in" "${file}" @ONLY)
    foreach(package IN LISTS ARGN)
        set(notice "/usr/share/doc/${package}/copyright")
        if(NOT EXISTS "${notice}")
            message(WARNING "${notice} is missing: packages made here do not carry it")
            continue()
        endif()
        file(READ "${notice}" text)
        file(APPEND "${file}" "\n======== ${package}\n\n${text}")
    endforeach()
endfunction()

set(header_packages nlohmann-json3-dev libcli11-dev)

if(KQNET_DEBIAN)
    include(KqnetDebian)
elseif(KQNET_WINDOWS_ZIP)
    set(CPACK_GENERATOR ZIP)
    set(CPACK_SYSTEM_NAME windows32)
    set(CPACK_STRIP_FILES ON)
    kq_package_notices("${PROJECT_BINARY_DIR}/copyright.txt" ${header_packages} libssl-dev libsqlite3-dev
                       gcc-mingw-w64-i686-posix-runtime mingw-w64-i686-dev)
    install(FILES "${PROJECT_BINARY_DIR}/copyright.txt" DESTINATION . COMPONENT libraries)
    install(FILES README.md CHANGELOG.md DESTINATION . COMPONENT development)
    install(FILES docs/kqftpd.md DESTINATION docs COMPONENT tools)
endif()
include(CPack)
