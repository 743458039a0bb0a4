// Loading the OpenCL runtime by name and binding its 98 entries, all or nothing.
#include "service/opencl_entries.hpp"

#include <dlfcn.h>

#include <climits>
#include <cstdio>
#include <cstring>

#include "cpu/ss_client.hpp"
#include "cpu/threading_layer.hpp"
#include "service/entry_table.hpp"

namespace tavrel::qnd::gpu::detail {

namespace cpu = stats::detail::cpu;

namespace {

constexpr const char* entry_names[opencl_entry_count] = {
#define QND_OPENCL_ENTRY_NAME(name) #name,
    QND_OPENCL_ENTRIES(QND_OPENCL_ENTRY_NAME)
#undef QND_OPENCL_ENTRY_NAME
};

// The text of message 3 for a missing entry.
constexpr const char* quoted_entry_names[opencl_entry_count] = {
#define QND_OPENCL_ENTRY_QUOTED(name) "'" #name "'",
    QND_OPENCL_ENTRIES(QND_OPENCL_ENTRY_QUOTED)
#undef QND_OPENCL_ENTRY_QUOTED
};

entry_table<opencl_entry_count> table{entry_names, {}, 0, 0, -1};

// Used under the table's lock only. The search directories are set by nothing: both stay empty, so
// the first way is a load by bare name, and the second directory never repeats it.
char converted_name[PATH_MAX];
char search_path[PATH_MAX];
char last_failure[PATH_MAX];
const char first_search_directory[PATH_MAX] = "";
const char second_search_directory[PATH_MAX] = "";

// directory + name into search_path; false if that does not fit.
bool compose_search_path(const char* directory) {
    const std::size_t directory_length = std::strlen(directory);
    const std::size_t name_length = std::strlen(converted_name);
    if (directory_length + name_length >= sizeof search_path)
        return false;
    std::memcpy(search_path, directory, directory_length);
    std::memcpy(search_path + directory_length, converted_name, name_length + 1);
    return true;
}

// The loader's text of the failure, a blank and the name: kept, though nothing reads it.
void remember_failure(const char* name) {
    const char* why = dlerror();
    std::snprintf(last_failure, sizeof last_failure, "%s %s", why != nullptr ? why : "", name);
}

void* load_from(const char* directory, const char* name) {
    // An empty path would name the program itself to dlopen: it loads nothing here.
    if (!compose_search_path(directory) || search_path[0] == '\0')
        return nullptr;
    void* module = dlopen(search_path, RTLD_NOW | RTLD_LOCAL);
    if (module == nullptr)
        remember_failure(name);
    return module;
}

}  // namespace

void* load_library_by_name(const char* name) {
    // A name that does not fit is made empty, and an empty name passes the check below.
    const std::size_t length = std::strlen(name);
    if (length >= sizeof converted_name)
        converted_name[0] = '\0';
    else
        std::memcpy(converted_name, name, length + 1);

    void* module = nullptr;
    if (std::strchr(converted_name, '/') == nullptr &&
        std::strchr(converted_name, '\\') == nullptr) {
        module = load_from(first_search_directory, name);
        if (module == nullptr && std::strcmp(second_search_directory, first_search_directory) != 0)
            module = load_from(second_search_directory, name);
    }
    if (module == nullptr)
        module = dlopen(name, RTLD_NOW | RTLD_LOCAL);
    return module;
}

int load_opencl_entries() {
    return load_entry_table(table, [] { return load_library_by_name("libOpenCL.so.1"); });
}

const char* opencl_entry_name(opencl_entry entry) {
    return entry_names[entry];
}

void* opencl_entry_slot(opencl_entry entry) {
    return table.slots[entry].load(std::memory_order_acquire);
}

void* bound_opencl_entry(opencl_entry entry) {
    return bound_entry(table, entry, load_opencl_entries);
}

void report_missing_opencl_entry(opencl_entry entry) {
    cpu::qnd_serv_print(0, 3, 1, quoted_entry_names[entry]);
    cpu::terminate_with_status(2);
}

}  // namespace tavrel::qnd::gpu::detail
