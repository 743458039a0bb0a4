# Installs the build into a fresh prefix, builds one example against it with
# find_package(QndSyclStats), runs it, and checks the pkg-config file's paths.
# Run as: cmake -DBUILD_DIR=... -DSOURCE_DIR=... -DWORK_DIR=... [-DEXAMPLE_FLAGS=...] [-DGENERATOR=...] -P install_test.cmake
if(NOT DEFINED GENERATOR)
    set(GENERATOR Ninja)
endif()
foreach(var BUILD_DIR SOURCE_DIR WORK_DIR)
    if(NOT DEFINED ${var})
        message(FATAL_ERROR "${var} is not set")
    endif()
endforeach()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
file(MAKE_DIRECTORY ${WORK_DIR})

function(run_step what)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "${what} failed (${rc}):\n${out}\n${err}")
    endif()
    set(step_output "${out}" PARENT_SCOPE)
endfunction()

run_step("install" ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})

# Everything the library needs at run time sits beside it.
foreach(lib libqnd_sycl_stats.so libhostsycl.so.1 libqnd_core.so.2 libqnd_pool_thread.so.2
        libqnd_omp_thread.so.2 libqnd_sequential.so.2)
    file(GLOB found ${prefix}/lib*/${lib})
    if(NOT found)
        message(FATAL_ERROR "${lib} is not installed under ${prefix}")
    endif()
endforeach()

run_step("configure the examples"
    ${CMAKE_COMMAND} -S ${SOURCE_DIR}/examples -B ${WORK_DIR}/build -G ${GENERATOR}
    -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH=${prefix}
    "-DCMAKE_CXX_FLAGS=${EXAMPLE_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${EXAMPLE_FLAGS}")
run_step("build an example"
    ${CMAKE_COMMAND} --build ${WORK_DIR}/build --target example_usm_gpu_weights_mask)
run_step("run the example" ${WORK_DIR}/build/example_usm_gpu_weights_mask)

# Weights 1 and 3 alternate on even and odd observations: dimension 0 (i % 10) has the
# weighted mean 4.75, dimension 1 (100 + i) the weighted mean 599.75.
foreach(expected "dimension 0: mean 4.75, " "dimension 1: mean 599.75, " " min 0, max 9"
        " min 100, max 1099")
    string(FIND "${step_output}" "${expected}" at)
    if(at EQUAL -1)
        message(FATAL_ERROR "the example's output lacks '${expected}':\n${step_output}")
    endif()
endforeach()
if(step_output MATCHES "dimension 2")
    message(FATAL_ERROR "the masked dimension was printed:\n${step_output}")
endif()

# The installed qnd-stats runs on its own from the prefix.
run_step("run the installed qnd-stats"
    ${prefix}/bin/qnd-stats -e mean -o csv ${SOURCE_DIR}/examples/data/weather.csv)
if(NOT step_output MATCHES "\ntemperature_c,13\\.0677777")
    message(FATAL_ERROR "unexpected output of the installed qnd-stats:\n${step_output}")
endif()

# pkg-config: every directory it names exists, and the libraries it names are there.
find_program(pkg_config pkg-config)
if(pkg_config)
    file(GLOB pc_dir ${prefix}/lib*/pkgconfig)
    set(ENV{PKG_CONFIG_PATH} ${pc_dir})
    run_step("pkg-config" ${pkg_config} --cflags --libs qnd-sycl-stats)
    string(STRIP "${step_output}" flags)
    separate_arguments(flags UNIX_COMMAND "${flags}")
    foreach(flag ${flags})
        if(flag MATCHES "^-[IL](.*)$")
            if(NOT IS_DIRECTORY "${CMAKE_MATCH_1}")
                message(FATAL_ERROR "pkg-config names ${flag}, which is not a directory")
            endif()
        endif()
        if(flag MATCHES "^-L(.*)$")
            set(libdir ${CMAKE_MATCH_1})
        endif()
    endforeach()
    if(NOT EXISTS ${libdir}/libqnd_sycl_stats.so OR NOT EXISTS ${libdir}/libhostsycl.so)
        message(FATAL_ERROR "pkg-config's library directory ${libdir} lacks the libraries")
    endif()
    if(NOT EXISTS ${libdir}/../include/tavrel/qnd/stats.hpp)
        message(FATAL_ERROR "the headers are not beside ${libdir}")
    endif()
endif()
message(STATUS "install test passed: ${prefix}")
