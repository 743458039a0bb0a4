// A stand-in for a threading layer of the core family, built once under each layer's file name:
// it prints numbered messages in a form tests can match, loads the statistics component from its
// own directory (or the file that QND_CORE_LIBRARY_PATH names), and tells which layer it is.
#include <dlfcn.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>

#ifndef LAYER_DOUBLE_NAME
#error "LAYER_DOUBLE_NAME names the layer this stand-in plays"
#endif

#define LAYER_DOUBLE_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

std::string own_directory() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&own_directory), &info) == 0 || info.dli_fname == nullptr)
        return {};
    std::string path(info.dli_fname);
    return path.substr(0, path.rfind('/') + 1);
}

}  // namespace

LAYER_DOUBLE_EXPORT const char* layer_double_name() {
    return LAYER_DOUBLE_NAME;
}

// "layer double <name>: message <n>" and, per further argument, ": <text>".
LAYER_DOUBLE_EXPORT void qnd_serv_print(int kind, int message, int count, ...) {
    std::string line = std::string("layer double ") + LAYER_DOUBLE_NAME + ": message " +
                       std::to_string(message) + " kind " + std::to_string(kind);
    va_list args;
    va_start(args, count);
    for (int k = 0; k < count; ++k)
        line += std::string(": ") + va_arg(args, const char*);
    va_end(args);
    line += "\n";
    ssize_t written = write(2, line.data(), line.size());
    (void)written;
}

LAYER_DOUBLE_EXPORT void qnd_serv_exit(int status) {
    _exit(status);
}

LAYER_DOUBLE_EXPORT void qnd_serv_lock(int* word) {
    while (__atomic_exchange_n(word, 1, __ATOMIC_ACQUIRE) != 0) {
    }
}

LAYER_DOUBLE_EXPORT void qnd_serv_unlock(int* word) {
    __atomic_store_n(word, 0, __ATOMIC_RELEASE);
}

LAYER_DOUBLE_EXPORT int qnd_serv_getenv(const char* name, char* buffer, int size) {
    const char* value = std::getenv(name);
    if (value == nullptr)
        return -1;
    std::snprintf(buffer, static_cast<std::size_t>(size), "%s", value);
    return static_cast<int>(std::string(value).size());
}

// Like the real layers: the component beside the layer, or the file QND_CORE_LIBRARY_PATH names.
LAYER_DOUBLE_EXPORT void* qnd_serv_load_ktn() {
    const char* file = std::getenv("QND_CORE_LIBRARY_PATH");
    const std::string path = file != nullptr ? file : own_directory() + "libqnd_core.so.2";
    return dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
}

// The threader entries are only handed on by the library; none of its tests calls them.
LAYER_DOUBLE_EXPORT void qnd_rtk_serv_threader_for() {}
LAYER_DOUBLE_EXPORT void qnd_rtk_serv_threader_for_ordered() {}
LAYER_DOUBLE_EXPORT void qnd_rtk_serv_threader_sections() {}
LAYER_DOUBLE_EXPORT void qnd_rtk_serv_threader_ordered() {}
LAYER_DOUBLE_EXPORT int qnd_rtk_serv_threader_get_num_threads_limit() {
    return 1;
}
