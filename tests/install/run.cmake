# Installs the build into a prefix of its own, builds the outside host against it twice, by the CMake package and by
# kqnet.pc, and runs both.
# Arguments: BUILD (the build folder), WORK (a folder for this test), SOURCE (this folder), FLAGS (for the compiler).
file(REMOVE_RECURSE "${WORK}")
function(run)
    execute_process(COMMAND ${ARGV} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

run("${CMAKE_COMMAND}" --install "${BUILD}" --prefix "${WORK}/prefix")
run("${CMAKE_COMMAND}" -S "${SOURCE}/project" -B "${WORK}/by-package" -G Ninja "-DCMAKE_PREFIX_PATH=${WORK}/prefix"
    "-DCMAKE_CXX_FLAGS=${FLAGS}")
run("${CMAKE_COMMAND}" --build "${WORK}/by-package")
run("${WORK}/by-package/outside_host")

file(GLOB_RECURSE pc "${WORK}/prefix/*/kqnet.pc")
get_filename_component(pc_folder "${pc}" DIRECTORY)
set(ENV{PKG_CONFIG_PATH} "${pc_folder}")
execute_process(COMMAND pkg-config --cflags --libs kqnet OUTPUT_VARIABLE by_pc OUTPUT_STRIP_TRAILING_WHITESPACE
                COMMAND_ERROR_IS_FATAL ANY)
separate_arguments(by_pc UNIX_COMMAND "${by_pc} ${FLAGS}")
get_filename_component(lib_folder "${pc_folder}" DIRECTORY)
run(c++ "${SOURCE}/outside_host.cpp" -o "${WORK}/by-pc" ${by_pc} "-Wl,-rpath,${lib_folder}")
run("${WORK}/by-pc")
