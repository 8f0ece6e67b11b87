# Which headers are public, that is installed: those of common/, net/ and platform/ that do not say "Inside the library
# only." before their #pragma once. Included by the build. Run alone it prints their paths from the root of the tree; what
# they come to in lines and bytes:
#
#   cmake -P cmake/KqnetHeaders.cmake | xargs wc -lc

# kq_public_headers(RESULT ROOT): sets RESULT to their paths from ROOT.
function(kq_public_headers result root)
    set(again CONFIGURE_DEPENDS) # looked for anew by each build, not by a script
    if(CMAKE_SCRIPT_MODE_FILE)
        set(again "")
    endif()
    file(GLOB_RECURSE headers ${again} RELATIVE "${root}" "${root}/common/*.h" "${root}/net/*.h")
    file(GLOB platform ${again} RELATIVE "${root}" "${root}/platform/*.h")
    set(kept "")
    foreach(header IN LISTS headers platform)
        file(READ "${root}/${header}" text LIMIT 2000)
        string(REGEX REPLACE "#pragma once.*" "" opening "${text}")
        string(REGEX REPLACE "\n// *" " " opening "${opening}")
        if(NOT opening MATCHES "Inside the librar(y|ies) only\\.")
            list(APPEND kept "${header}")
        endif()
    endforeach()
    set(${result} "${kept}" PARENT_SCOPE)
endfunction()

if(CMAKE_SCRIPT_MODE_FILE STREQUAL CMAKE_CURRENT_LIST_FILE)
    get_filename_component(root "${CMAKE_CURRENT_LIST_DIR}" DIRECTORY)
    kq_public_headers(public "${root}")
    list(JOIN public "\n" text)
    execute_process(COMMAND "${CMAKE_COMMAND}" -E echo "${text}")
endif()
