# Install rules: the library with hostsycl and the core family beside it in one directory, the
# public headers, qnd-stats, a CMake package config and a pkg-config file.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# On an external SYCL implementation: the library, the core family beside it when the CPU path or
# the GPU service opens it, and the public headers of what is built. Programs compile and link
# with their own SYCL compiler, so there is no package config.
if(TARGET qnd_sycl_stats AND QND_SYCL STREQUAL "external")
    set_target_properties(qnd_sycl_stats PROPERTIES INSTALL_RPATH "$ORIGIN")
    set(qnd_installed_libraries qnd_sycl_stats)
    if(QND_SYCL_CPU_PATH OR QND_SYCL_INTEROP_SOURCE)
        list(APPEND qnd_installed_libraries qnd_core qnd_sequential qnd_omp_thread qnd_pool_thread)
    endif()
    install(TARGETS ${qnd_installed_libraries}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime)
    set(qnd_left_out)
    if(NOT QND_SYCL_INTEROP_SOURCE)
        set(qnd_left_out PATTERN gpu.hpp EXCLUDE PATTERN offload.h EXCLUDE)
    endif()
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development ${qnd_left_out})
    return()
endif()

if(NOT TARGET qnd_sycl_stats OR NOT TARGET hostsycl)
    return()
endif()

# The library opens the core family from its own directory at run time, so all of them go to
# one directory; $ORIGIN lets the library find hostsycl there as well. The core family links
# nothing of ours and needs no run path.
set_target_properties(qnd_sycl_stats PROPERTIES INSTALL_RPATH "$ORIGIN")
set(qnd_installed_libraries qnd_sycl_stats hostsycl)
foreach(lib qnd_core qnd_sequential qnd_omp_thread qnd_pool_thread)
    if(TARGET ${lib})
        list(APPEND qnd_installed_libraries ${lib})
    endif()
endforeach()
install(TARGETS ${qnd_installed_libraries}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime)

foreach(tool qnd-stats hostsycl-ls)
    if(TARGET ${tool})
        install(TARGETS ${tool} RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime)
    endif()
endforeach()
if(TARGET hostsycl-ls)
    set_target_properties(hostsycl-ls PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
endif()

install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/ ${PROJECT_SOURCE_DIR}/platform/hostsycl/include/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
if(EXISTS ${PROJECT_SOURCE_DIR}/platform/core/include)
    install(DIRECTORY ${PROJECT_SOURCE_DIR}/platform/core/include/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
endif()

# The package config makes imported targets of its own rather than exporting the build's,
# whose include directories point into the source tree.
set(qnd_config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/QndSyclStats)
get_target_property(qnd_hostsycl_soversion hostsycl SOVERSION)
configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/QndSyclStatsConfig.cmake.in
    ${PROJECT_BINARY_DIR}/QndSyclStatsConfig.cmake
    INSTALL_DESTINATION ${qnd_config_dir}
    PATH_VARS CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_INCLUDEDIR)
write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/QndSyclStatsConfigVersion.cmake
    VERSION ${PROJECT_VERSION}
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/QndSyclStatsConfig.cmake
    ${PROJECT_BINARY_DIR}/QndSyclStatsConfigVersion.cmake
    DESTINATION ${qnd_config_dir} COMPONENT development)

# The .pc file finds its prefix from its own place, so that the prefix can be chosen at install.
file(RELATIVE_PATH qnd_pc_to_prefix /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
string(REGEX REPLACE "/$" "" qnd_pc_to_prefix "${qnd_pc_to_prefix}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/qnd-sycl-stats.pc.in
    ${PROJECT_BINARY_DIR}/qnd-sycl-stats.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/qnd-sycl-stats.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
