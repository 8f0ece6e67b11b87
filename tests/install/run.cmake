# Installs the libraries into a prefix of their own and moves that to another place; there builds the outside host against
# it twice, by the CMake package and by kqnet.pc, and runs both.
# Arguments: WORK (a folder for this test), SOURCE (this folder), VERSION (the one that must be found), COMPILER; and
# BUILD (a build folder), or TREE, SHARED and BUILD_TYPE, from which one is made with the libraries alone.
function(run)
    execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# ask(RESULT COMMAND...): what a command prints.
function(ask result)
    execute_process(COMMAND ${ARGN} OUTPUT_VARIABLE answer OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
    set(${result} "${answer}" PARENT_SCOPE)
endfunction()

function(expect_version answer)
    if(NOT answer MATCHES "(^| )${VERSION}$")
        message(FATAL_ERROR "version ${VERSION} expected, but: ${answer}")
    endif()
endfunction()

if(NOT BUILD)
    set(BUILD "${WORK}/build")
    run("${CMAKE_COMMAND}" -S "${TREE}" -B "${BUILD}" -G Ninja --log-level=WARNING "-DCMAKE_CXX_COMPILER=${COMPILER}"
        "-DCMAKE_BUILD_TYPE=${BUILD_TYPE}" "-DBUILD_SHARED_LIBS=${SHARED}" -DKQNET_BUILD_HOSTS=OFF
        -DKQNET_BUILD_TOOLS=OFF -DKQNET_BUILD_TESTS=OFF -DKQNET_BUILD_BENCH=OFF)
    run("${CMAKE_COMMAND}" --build "${BUILD}")
endif()

set(prefix "${WORK}/moved prefix")
file(REMOVE_RECURSE "${prefix}" "${WORK}/prefix" "${WORK}/by-package" "${WORK}/by-pc")
run("${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${WORK}/prefix")
file(RENAME "${WORK}/prefix" "${prefix}")

# Licence and notice come with the libraries.
foreach(file IN ITEMS LICENSE NOTICE)
    file(GLOB_RECURSE found "${prefix}/share/doc/*/${file}")
    if(NOT found)
        message(FATAL_ERROR "${file} is not installed")
    endif()
    file(SHA256 "${found}" installed)
    file(SHA256 "${SOURCE}/../../${file}" ours)
    if(NOT installed STREQUAL ours)
        message(FATAL_ERROR "${file} is another one")
    endif()
endforeach()

# Our own programs find the libraries of the prefix that they are in.
file(GLOB programs "${prefix}/bin/*")
foreach(program IN LISTS programs)
    ask(answer "${program}" --version)
    expect_version("${answer}")
endforeach()

run("${CMAKE_COMMAND}" -S "${SOURCE}/project" -B "${WORK}/by-package" -G Ninja "-DCMAKE_CXX_COMPILER=${COMPILER}"
    "-DCMAKE_PREFIX_PATH=${prefix}" "-DWANTED=${VERSION}")
run("${CMAKE_COMMAND}" --build "${WORK}/by-package")
run("${WORK}/by-package/outside_host")

file(GLOB_RECURSE pc "${prefix}/*/kqnet.pc")
get_filename_component(pc_folder "${pc}" DIRECTORY)
get_filename_component(lib_folder "${pc_folder}" DIRECTORY)
set(ENV{PKG_CONFIG_PATH} "${pc_folder}")
ask(answer pkg-config --modversion kqnet)
expect_version("${answer}")
# What --static adds must do no harm when the libraries are shared, and be enough when they are not.
foreach(mode IN ITEMS "" --static)
    ask(flags pkg-config ${mode} --cflags --libs kqnet)
    separate_arguments(flags UNIX_COMMAND "${flags}")
    run("${COMPILER}" -std=c++20 "${SOURCE}/outside_host.cpp" -o "${WORK}/by-pc" ${flags} "-Wl,-rpath,${lib_folder}")
    run("${WORK}/by-pc")
endforeach()
