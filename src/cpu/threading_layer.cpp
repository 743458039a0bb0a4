// Finding this library's directory and the threading layer in it, and binding the layer's
// services and threader entries by name on first use.
#include "cpu/threading_layer.hpp"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>

namespace tavrel::qnd::stats::detail::cpu {

namespace {

// The search for the directory runs once per process, under a spin flag.
std::atomic_flag directory_lock = ATOMIC_FLAG_INIT;
bool directory_searched = false;
bool directory_found = false;
char directory[PATH_MAX];

std::atomic<void*> layer_slot{nullptr};
std::atomic<void*> print_slot{nullptr};
std::atomic<void*> load_ktn_slot{nullptr};
std::atomic<void*> lock_slot{nullptr};
std::atomic<void*> unlock_slot{nullptr};
std::atomic<void*> getenv_slot{nullptr};
std::atomic<void*> exit_slot{nullptr};

// What the dynamic loader does when a library or a symbol is missing: a line and status 127.
[[noreturn]] void loader_failure(const char* what, const char* detail) {
    std::fprintf(stderr, "libqnd_sycl_stats.so: %s: %s\n", what, detail);
    _exit(127);
}

// Fills `out` with this library's path cut behind its last '/', which stays.
bool find_directory(char* out) {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&library_directory), &info) == 0 ||
        info.dli_fname == nullptr)
        return false;
    const std::size_t length = std::strlen(info.dli_fname);
    if (length > PATH_MAX - 1)
        return false;
    const char* slash = std::strrchr(info.dli_fname, '/');
    if (slash == nullptr)
        return false;
    const std::size_t kept = static_cast<std::size_t>(slash - info.dli_fname) + 1;
    std::memcpy(out, info.dli_fname, kept);
    out[kept] = '\0';
    return true;
}

// directory + name in a buffer of PATH_MAX bytes. A directory that fills the buffer gives an
// empty path, which no load finds; a name that does not fit behind it is cut at the buffer's end.
void join_path(char (&path)[PATH_MAX], const char* dir, const char* name) {
    const std::size_t dir_length = std::strlen(dir);
    if (dir_length >= PATH_MAX - 1) {
        path[0] = '\0';
        return;
    }
    std::memcpy(path, dir, dir_length);
    const std::size_t room = PATH_MAX - 1 - dir_length;
    const std::size_t name_length = std::min(std::strlen(name), room);
    std::memcpy(path + dir_length, name, name_length);
    path[dir_length + name_length] = '\0';
}

void* find_layer() {
    const char* dir = library_directory();
    if (dir == nullptr)
        loader_failure("cannot load the threading layer", "the library's directory is unknown");
    char path[PATH_MAX];
    // Whichever layer the process has already loaded serves this library too.
    for (const char* name :
         {"libqnd_omp_thread.so.2", "libqnd_sequential.so.2", "libqnd_pool_thread.so.2"}) {
        join_path(path, dir, name);
        if (path[0] == '\0')
            continue;
        if (void* handle = dlopen(path, RTLD_NOW | RTLD_NOLOAD))
            return handle;
    }
    join_path(path, dir, "libqnd_pool_thread.so.2");
    void* handle = path[0] == '\0' ? nullptr : dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* why = dlerror();
        loader_failure("cannot load the threading layer", why != nullptr ? why : path);
    }
    return handle;
}

}  // namespace

const char* library_directory() {
    while (directory_lock.test_and_set(std::memory_order_acquire)) {
    }
    if (!directory_searched) {
        directory_found = find_directory(directory);
        directory_searched = true;
    }
    directory_lock.clear(std::memory_order_release);
    return directory_found ? directory : nullptr;
}

void* threading_layer() {
    void* handle = layer_slot.load(std::memory_order_acquire);
    if (handle == nullptr) {
        handle = find_layer();
        layer_slot.store(handle, std::memory_order_release);
    }
    return handle;
}

void* threading_layer_entry(const char* name) {
    void* address = dlsym(threading_layer(), name);
    if (address == nullptr)
        loader_failure("undefined symbol in the threading layer", name);
    return address;
}

const ss_threader_table* threader_table() {
    static const ss_threader_table table = [] {
        const auto entry = [](const char* name) {
            return reinterpret_cast<threader_entry>(threading_layer_entry(name));
        };
        const ss_threader_row row{
            entry("qnd_rtk_serv_threader_for"), entry("qnd_rtk_serv_threader_for_ordered"),
            entry("qnd_rtk_serv_threader_sections"), entry("qnd_rtk_serv_threader_ordered"),
            entry("qnd_rtk_serv_threader_get_num_threads_limit")};
        ss_threader_table filled{};
        for (ss_threader_row& r : filled.rows)
            r = row;
        return filled;
    }();
    return &table;
}

void* qnd_serv_load_ktn() {
    using fn = void*();
    return slot_entry<fn>(load_ktn_slot, "qnd_serv_load_ktn", threading_layer_entry)();
}

void qnd_serv_print(int kind, int message, int count) {
    using fn = void(std::int32_t, std::int32_t, std::int32_t, ...);
    slot_entry<fn>(print_slot, "qnd_serv_print", threading_layer_entry)(kind, message, count);
}

void qnd_serv_print(int kind, int message, int count, const char* argument) {
    using fn = void(std::int32_t, std::int32_t, std::int32_t, ...);
    slot_entry<fn>(print_slot, "qnd_serv_print", threading_layer_entry)(kind, message, count,
                                                                        argument);
}

void qnd_serv_lock(std::int32_t* word) {
    using fn = void(std::int32_t*);
    slot_entry<fn>(lock_slot, "qnd_serv_lock", threading_layer_entry)(word);
}

void qnd_serv_unlock(std::int32_t* word) {
    using fn = void(std::int32_t*);
    slot_entry<fn>(unlock_slot, "qnd_serv_unlock", threading_layer_entry)(word);
}

std::int32_t qnd_serv_getenv(const char* name, char* buffer, std::int32_t size) {
    using fn = std::int32_t(const char*, char*, std::int32_t);
    return slot_entry<fn>(getenv_slot, "qnd_serv_getenv", threading_layer_entry)(name, buffer,
                                                                                 size);
}

void qnd_serv_exit(std::int32_t code) {
    using fn = void(std::int32_t);
    slot_entry<fn>(exit_slot, "qnd_serv_exit", threading_layer_entry)(code);
}

}  // namespace tavrel::qnd::stats::detail::cpu
