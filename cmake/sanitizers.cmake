# Sanitizer builds, chosen by QND_SANITIZE (address, thread or empty).
set(QND_SANITIZE "" CACHE STRING "Sanitizers: 'address' (with undefined) or 'thread'")

# Shared libraries are linked with --no-undefined, except where clang's sanitizer runtime is
# linked into the executables only and the libraries' references to it resolve at load time.
set(QND_NO_UNDEFINED -Wl,--no-undefined)
if(NOT QND_SANITIZE STREQUAL "" AND CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    set(QND_NO_UNDEFINED "")
endif()

if(QND_SANITIZE STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
elseif(QND_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
elseif(NOT QND_SANITIZE STREQUAL "")
    message(FATAL_ERROR "QND_SANITIZE must be 'address', 'thread' or empty")
endif()

# Fuzzing: every unit carries libFuzzer's coverage instrumentation; the targets link its driver.
if(QND_BUILD_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        message(FATAL_ERROR "QND_BUILD_FUZZ needs clang (the fuzz preset sets it)")
    endif()
    add_compile_options(-fsanitize=fuzzer-no-link)
endif()
