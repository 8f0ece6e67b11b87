# Debian packages: libkqnet0 (both libraries), libkqnet-dev, and kqnet-tools, which has the service kqftpd.
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
# Each package has a summary of its own; this one is the only one that CPack does not put before it.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_NAME} built using CMake")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "kqnet <noreply@localhost>")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_DEBUGINFO_PACKAGE ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
                                                WORLD_EXECUTE)

set(library_package "libkqnet${PROJECT_VERSION_MAJOR}")
set(same_version "${library_package} (= ${PROJECT_VERSION})")
set(packaging "${PROJECT_SOURCE_DIR}/packaging")

set(CPACK_DEBIAN_LIBRARIES_PACKAGE_NAME "${library_package}")
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_MULTIARCH same)
set(CPACK_DEBIAN_LIBRARIES_PACKAGE_CONTROL_EXTRA "${packaging}/debian/triggers")
set(CPACK_DEBIAN_LIBRARIES_DESCRIPTION "libraries for Internet servers
Listening services, sessions on threads of their own, sockets with bounded
waits, TLS, a resolver, address rules, statistics, logs and certificates.

This package holds what programs need to run.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libkqnet-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_MULTIARCH same)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${same_version}")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "libraries for Internet servers (development files)
Listening services, sessions on threads of their own, sockets with bounded
waits, TLS, a resolver, address rules, statistics, logs and certificates.

This package holds the headers, the CMake package \"kqnet\" and kqnet.pc.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME kqnet-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION net)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${same_version}, adduser")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "logrotate")
set(CPACK_DEBIAN_TOOLS_PACKAGE_CONTROL_EXTRA "${packaging}/debian/tools/conffiles" "${packaging}/debian/tools/postinst"
                                             "${packaging}/debian/tools/prerm" "${packaging}/debian/tools/postrm")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "file-transfer server and tools for kqnet servers
kqftpd serves files by FTP, in the clear and over TLS, with confined homes,
address rules, blocks after failed log-ins, statistics and logs. It comes as a
service that whoever runs it enables after looking at the settings.

kqftp is a client that goes on after lost connections and mirrors folders.
kq makes certificates, asks name servers, tries out address rules and looks
for updates.")

# kq_install_gzipped(SOURCE FOLDER NAME COMPONENT): installs a file compressed, as FOLDER/NAME.gz. In a file *.in @NAMES@
# are replaced first.
find_program(KQNET_GZIP gzip REQUIRED)
function(kq_install_gzipped source folder name component)
    set(staging "${PROJECT_BINARY_DIR}/gzipped/${component}")
    if(source MATCHES "\\.in$")
        configure_file("${source}" "${staging}/${name}" @ONLY)
    else()
        configure_file("${source}" "${staging}/${name}" COPYONLY)
    endif()
    execute_process(COMMAND "${KQNET_GZIP}" -9nfk "${staging}/${name}" COMMAND_ERROR_IS_FATAL ANY)
    install(FILES "${staging}/${name}.gz" DESTINATION "${folder}" COMPONENT ${component})
endfunction()

# Notices and changelogs of each package. The day is that of the newest change (SOURCE_DATE_EPOCH, if set).
string(TIMESTAMP KQNET_PACKAGE_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
kq_package_notices("${PROJECT_BINARY_DIR}/copyright" ${header_packages})
foreach(component IN ITEMS LIBRARIES DEVELOPMENT TOOLS)
    string(TOLOWER ${component} lower)
    set(folder "${CMAKE_INSTALL_DATAROOTDIR}/doc/${CPACK_DEBIAN_${component}_PACKAGE_NAME}")
    install(FILES "${PROJECT_BINARY_DIR}/copyright" "${PROJECT_SOURCE_DIR}/NOTICE" DESTINATION "${folder}"
            COMPONENT ${lower})
    kq_install_gzipped("${packaging}/debian/changelog.in" "${folder}" changelog ${lower})
    kq_install_gzipped("${PROJECT_SOURCE_DIR}/CHANGELOG.md" "${folder}" NEWS ${lower})
endforeach()
configure_file("${packaging}/debian/libkqnet.lintian-overrides.in" "${PROJECT_BINARY_DIR}/lintian-overrides" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/lintian-overrides" DESTINATION "${CMAKE_INSTALL_DATAROOTDIR}/lintian/overrides"
        RENAME "${library_package}" COMPONENT libraries)

# Manual pages, and the service with its settings.
foreach(page IN ITEMS kq.1 kqftp.1 kqftpd.8)
    string(REGEX MATCH "[0-9]$" section "${page}")
    kq_install_gzipped("${PROJECT_SOURCE_DIR}/docs/man/${page}.in" "${CMAKE_INSTALL_MANDIR}/man${section}" "${page}" tools)
endforeach()
configure_file("${packaging}/kqftpd.service.in" "${PROJECT_BINARY_DIR}/kqftpd.service" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/kqftpd.service" DESTINATION /lib/systemd/system COMPONENT tools)
install(FILES "${packaging}/kqftpd.json" DESTINATION /etc/kqnet COMPONENT tools)
install(FILES "${packaging}/kqftpd.logrotate" DESTINATION /etc/logrotate.d RENAME kqftpd COMPONENT tools)
