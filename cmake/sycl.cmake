# The SYCL implementation that src/ is compiled with, chosen by QND_SYCL:
#   hostsycl  (the default) the host runtime of platform/hostsycl, built here;
#   external  the compiler's own: a clang that takes -fsycl (found by building a small SYCL
#             program), or else AdaptiveCpp through its CMake package (AdaptiveCpp_DIR).
# Sets QND_SYCL_CPU_PATH (the implementation has host tasks) and QND_SYCL_INTEROP_SOURCE (the
# source of the GPU service's native layer, empty when the service is left out), and defines
# qnd_use_sycl(<target> <sources>...), which compiles a target's sources as SYCL.
set(QND_SYCL hostsycl CACHE STRING "SYCL implementation: hostsycl (built here) or external")
set_property(CACHE QND_SYCL PROPERTY STRINGS hostsycl external)
set(QND_NATIVE_INTEROP "" CACHE FILEPATH
    "QND_SYCL=external: a source implementing src/service/native_interop.hpp for the \
implementation (empty: the GPU service and the offload entry points are left out)")

# Builds cmake/sycl-probe with `flags` (empty: through AdaptiveCpp's package) and the probe
# `feature`, and caches whether it compiled and linked in `var`, until the compiler or the
# package changes.
function(qnd_sycl_probe var feature flags)
    set(key "${CMAKE_CXX_COMPILER}|${flags}|${AdaptiveCpp_DIR}")
    if(DEFINED CACHE{${var}} AND "${${var}_KEY}" STREQUAL "${key}")
        return()
    endif()
    set(dir ${CMAKE_BINARY_DIR}/CMakeFiles/sycl-probe-${feature})
    file(REMOVE_RECURSE ${dir})
    try_compile(works ${dir} ${PROJECT_SOURCE_DIR}/cmake/sycl-probe qnd_sycl_probe probe
        CMAKE_FLAGS -DQND_PROBE=${feature} "-DQND_SYCL_FLAGS=${flags}"
                    -DCMAKE_CXX_COMPILER=${CMAKE_CXX_COMPILER}
                    -DCMAKE_BUILD_TYPE=Release
                    -DAdaptiveCpp_DIR=${AdaptiveCpp_DIR}
        OUTPUT_VARIABLE output)
    file(APPEND ${CMAKE_BINARY_DIR}/CMakeFiles/qnd-sycl-probes.log
        "SYCL probe ${feature} (${flags}): ${works}\n${output}\n")
    set(${var} ${works} CACHE INTERNAL "SYCL probe ${feature}")
    set(${var}_KEY "${key}" CACHE INTERNAL "what ${var} was probed with")
endfunction()

if(QND_SYCL STREQUAL "hostsycl")
    set(QND_SYCL_KIND hostsycl)
    set(QND_SYCL_CPU_PATH ON)
    set(QND_SYCL_INTEROP_SOURCE ${PROJECT_SOURCE_DIR}/src/service/native_interop.cpp)
elseif(QND_SYCL STREQUAL "external")
    # A package named by the caller wins; otherwise the compiler's -fsycl, then any package.
    if(NOT AdaptiveCpp_DIR)
        qnd_sycl_probe(QND_SYCL_FSYCL_WORKS KERNEL -fsycl)
    endif()
    if(QND_SYCL_FSYCL_WORKS)
        set(QND_SYCL_KIND fsycl)
        set(QND_SYCL_FLAGS -fsycl)
        message(STATUS "QND_SYCL=external: ${CMAKE_CXX_COMPILER} -fsycl")
    else()
        find_package(AdaptiveCpp CONFIG QUIET)
        if(NOT AdaptiveCpp_FOUND)
            message(FATAL_ERROR "QND_SYCL=external needs a SYCL 2020 compiler: either "
                "CMAKE_CXX_COMPILER a clang that builds SYCL programs with -fsycl (this one, "
                "${CMAKE_CXX_COMPILER}, does not), or AdaptiveCpp_DIR the directory of "
                "adaptivecpp-config.cmake (<prefix>/lib/cmake/AdaptiveCpp).")
        endif()
        set(QND_SYCL_KIND adaptivecpp)
        set(QND_SYCL_FLAGS "")
        qnd_sycl_probe(QND_SYCL_ACPP_WORKS KERNEL "")
        if(NOT QND_SYCL_ACPP_WORKS)
            message(FATAL_ERROR "QND_SYCL=external: AdaptiveCpp at ${AdaptiveCpp_DIR} does not "
                "build a small SYCL program; see CMakeFiles/qnd-sycl-probes.log")
        endif()
        message(STATUS "QND_SYCL=external: AdaptiveCpp ${AdaptiveCpp_VERSION} (${AdaptiveCpp_DIR})")
    endif()

    qnd_sycl_probe(QND_SYCL_HOST_TASK_WORKS_${QND_SYCL_KIND} HOST_TASK "${QND_SYCL_FLAGS}")
    set(QND_SYCL_CPU_PATH ${QND_SYCL_HOST_TASK_WORKS_${QND_SYCL_KIND}})
    if(NOT QND_SYCL_CPU_PATH)
        message(STATUS "QND_SYCL=external: the CPU path is left out, for the implementation has "
            "no handler::host_task: the estimators refuse a CPU device (unsupported_device)")
    endif()
    set(QND_SYCL_INTEROP_SOURCE ${QND_NATIVE_INTEROP})
    if(NOT QND_SYCL_INTEROP_SOURCE)
        message(STATUS "QND_SYCL=external: the GPU service and the OpenMP offload entry points "
            "are left out: no native interop for this implementation (QND_NATIVE_INTEROP names "
            "a source implementing src/service/native_interop.hpp)")
    endif()
    message(STATUS "QND_SYCL=external: hostsycl, the tools, examples and benchmarks and the tests "
        "that need hostsycl are not built; the tests are the GPU engines'")
else()
    message(FATAL_ERROR "QND_SYCL must be 'hostsycl' or 'external', not '${QND_SYCL}'")
endif()

# Compiles `target` (whose SYCL sources are ARGN) against the chosen implementation, with the
# definitions that tell src/ what the build has: QND_LOCAL_MEMORY_SLACK where the runtime pads
# each work-group's local memory (hostsycl), QND_NO_CPU_PATH without host tasks.
function(qnd_use_sycl target)
    if(QND_SYCL_KIND STREQUAL "hostsycl")
        target_link_libraries(${target} PUBLIC hostsycl)
        target_compile_definitions(${target} PUBLIC QND_LOCAL_MEMORY_SLACK)
    elseif(QND_SYCL_KIND STREQUAL "fsycl")
        target_compile_options(${target} PUBLIC ${QND_SYCL_FLAGS})
        target_link_options(${target} PUBLIC ${QND_SYCL_FLAGS})
    else()
        add_sycl_to_target(TARGET ${target} SOURCES ${ARGN})
    endif()
    if(NOT QND_SYCL_CPU_PATH)
        target_compile_definitions(${target} PUBLIC QND_NO_CPU_PATH)
    endif()
endfunction()
