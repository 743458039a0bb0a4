// The services every threading layer exports: messages, exit, a spin lock, the environment and
// the loading of the statistics component.
#include <dlfcn.h>
#include <limits.h>
#include <sched.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "qnd_core/ss.h"

extern "C" {

void qnd_serv_print(int32_t kind, int32_t message, int32_t n_args, ...) {
    const char* arg = "";
    if (n_args > 0) {
        va_list args;
        va_start(args, n_args);
        arg = va_arg(args, const char*);
        va_end(args);
        if (arg == nullptr) {
            arg = "(null)";
        }
    }
    const char* prefix = kind == 1 ? "qnd fatal error" : "qnd error";
    switch (message) {
        case 3:
            std::fprintf(stderr, "%s: a runtime library this program needs has no entry %s\n",
                         prefix, arg);
            break;
        case 771:
            std::fprintf(stderr,
                         "%s: the statistics component " QND_CORE_LIBRARY_NAME
                         " could not be loaded from the directory of the threading layer\n",
                         prefix);
            break;
        case 772:
            std::fprintf(stderr, "%s: the statistics component has no entry named %s\n", prefix,
                         arg);
            break;
        default:
            std::fprintf(stderr, "%s: message %d\n", prefix, static_cast<int>(message));
            break;
    }
    std::fflush(stderr);
}

void qnd_serv_exit(int32_t code) {
    std::fflush(nullptr);
    _exit(code);
}

void qnd_serv_lock(int32_t* word) {
    for (unsigned spins = 0;; ++spins) {
        int32_t expected = 0;
        if (__atomic_compare_exchange_n(word, &expected, 1, false, __ATOMIC_ACQUIRE,
                                        __ATOMIC_RELAXED)) {
            return;
        }
        if (spins > 64) {
            sched_yield();
        }
    }
}

void qnd_serv_unlock(int32_t* word) {
    __atomic_store_n(word, 0, __ATOMIC_RELEASE);
}

int32_t qnd_serv_getenv(const char* name, char* buffer, int32_t size) {
    const char* value = name == nullptr ? nullptr : std::getenv(name);
    if (value == nullptr) {
        return -1;
    }
    const size_t length = std::strlen(value);
    if (buffer != nullptr && size > 0) {
        const size_t n = length < static_cast<size_t>(size - 1) ? length : size - 1;
        std::memcpy(buffer, value, n);
        buffer[n] = '\0';
    }
    return static_cast<int32_t>(length);
}

void* qnd_serv_load_ktn(void) {
    static int32_t lock = 0;
    static void* handle = nullptr;
    qnd_serv_lock(&lock);
    // A failed load is tried again on the next call: the file may have appeared since.
    if (handle == nullptr) {
        char path[PATH_MAX];
        const char* chosen = std::getenv(QND_CORE_LIBRARY_ENV);
        if (chosen == nullptr || chosen[0] == '\0') {
            Dl_info info;
            const size_t name_length = std::strlen(QND_CORE_LIBRARY_NAME);
            if (dladdr(reinterpret_cast<void*>(&qnd_serv_load_ktn), &info) != 0 &&
                info.dli_fname != nullptr) {
                const char* slash = std::strrchr(info.dli_fname, '/');
                const size_t dir = slash == nullptr ? 0 : slash - info.dli_fname + 1;
                if (dir + name_length < sizeof path) {
                    std::memcpy(path, info.dli_fname, dir);
                    std::memcpy(path + dir, QND_CORE_LIBRARY_NAME, name_length + 1);
                    chosen = path;
                }
            }
        }
        if (chosen != nullptr) {
            handle = dlopen(chosen, RTLD_NOW | RTLD_LOCAL);
        }
    }
    void* result = handle;
    qnd_serv_unlock(&lock);
    return result;
}
}
