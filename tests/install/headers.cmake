# Installs the headers into a prefix of their own: the public ones are there and no other, and each compiles alone, without
# a warning.
# Arguments: WORK (a folder for this test), BUILD (a build folder), SCRIPT (cmake/KqnetHeaders.cmake), COMPILER.
cmake_minimum_required(VERSION 3.25)
file(REMOVE_RECURSE "${WORK}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD}" --component development --prefix "${WORK}"
                OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
set(folder "${WORK}/include/kqnet")
file(GLOB_RECURSE installed RELATIVE "${folder}" "${folder}/*")
execute_process(COMMAND "${CMAKE_COMMAND}" -P "${SCRIPT}" OUTPUT_VARIABLE public OUTPUT_STRIP_TRAILING_WHITESPACE
                COMMAND_ERROR_IS_FATAL ANY)
string(REPLACE "\n" ";" public "${public}")
list(SORT installed)
list(SORT public)
if(NOT installed STREQUAL public)
    message(FATAL_ERROR "installed:\n${installed}\npublic:\n${public}")
endif()
foreach(header IN ITEMS common/String.h net/service/NetTCPService.h net/session/NetTCPSession.h platform/Export.h)
    if(NOT header IN_LIST installed)
        message(FATAL_ERROR "${header} is not installed")
    endif()
endforeach()
foreach(header IN ITEMS common/DataLogState.h net/dns/NetDNSReader.h platform/Sockets.h)
    if(header IN_LIST installed)
        message(FATAL_ERROR "${header} is installed")
    endif()
endforeach()

cmake_host_system_information(RESULT jobs QUERY NUMBER_OF_LOGICAL_CORES)
list(JOIN installed "\n" lines)
file(WRITE "${WORK}/headers.txt" "${lines}\n")
set(compile "echo '#include \"@\"' | '${COMPILER}' -std=c++20 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I . -x c++ -")
execute_process(COMMAND xargs -P ${jobs} "-I@" sh -c "${compile}" WORKING_DIRECTORY "${folder}"
                INPUT_FILE "${WORK}/headers.txt" RESULT_VARIABLE failed)
if(failed)
    message(FATAL_ERROR "a header does not compile alone")
endif()
