# Sanitizer builds, chosen by QND_SANITIZE (address, thread or empty).
set(QND_SANITIZE "" CACHE STRING "Sanitizers: 'address' (with undefined) or 'thread'")

if(QND_SANITIZE STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
    add_link_options(-fsanitize=address,undefined)
elseif(QND_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
elseif(NOT QND_SANITIZE STREQUAL "")
    message(FATAL_ERROR "QND_SANITIZE must be 'address', 'thread' or empty")
endif()
