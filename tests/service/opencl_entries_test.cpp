// The OpenCL entry table against the system's OpenCL runtime, and the ways of
// load_library_by_name.
#include <dlfcn.h>
#include <limits.h>

#include <string>

#include <gtest/gtest.h>

#include "service/opencl_entries.hpp"

namespace {

using namespace tavrel::qnd::gpu::detail;
namespace service = tavrel::qnd::gpu::detail;

TEST(load_opencl_entries, binds_all_98_entries_of_the_system_runtime) {
    ASSERT_EQ(opencl_entry_count, 98);
    EXPECT_EQ(load_opencl_entries(), 0);
    void* runtime = dlopen("libOpenCL.so.1", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(runtime, nullptr);
    for (int e = 0; e < opencl_entry_count; ++e) {
        const auto entry = static_cast<opencl_entry>(e);
        EXPECT_EQ(opencl_entry_slot(entry), dlsym(runtime, opencl_entry_name(entry)))
            << opencl_entry_name(entry);
        EXPECT_NE(opencl_entry_slot(entry), nullptr) << opencl_entry_name(entry);
    }
    dlclose(runtime);
    EXPECT_EQ(load_opencl_entries(), 0);
}

// The wrapper binds on first use and calls the runtime's entry: a query of platforms answers
// like the runtime itself.
TEST(opencl_wrappers, platform_query_answers_as_the_runtime_does) {
    cl_uint through_wrapper = 12345;
    const cl_int status = service::clGetPlatformIDs(0, nullptr, &through_wrapper);
    void* runtime = dlopen("libOpenCL.so.1", RTLD_NOW | RTLD_NOLOAD);
    ASSERT_NE(runtime, nullptr);
    cl_uint direct = 54321;
    const cl_int direct_status = reinterpret_cast<decltype(&::clGetPlatformIDs)>(
        dlsym(runtime, "clGetPlatformIDs"))(0, nullptr, &direct);
    dlclose(runtime);
    EXPECT_EQ(status, direct_status);
    EXPECT_EQ(through_wrapper, direct);
}

TEST(load_library_by_name, bare_name_is_found_on_the_search_path) {
    void* module = load_library_by_name("libOpenCL.so.1");
    ASSERT_NE(module, nullptr);
    EXPECT_NE(dlsym(module, "clGetPlatformIDs"), nullptr);
}

// A path skips the search directories and is tried once as it is.
TEST(load_library_by_name, a_path_is_tried_as_it_is) {
    void* runtime = dlopen("libOpenCL.so.1", RTLD_NOW);
    ASSERT_NE(runtime, nullptr);
    Dl_info info{};
    ASSERT_NE(dladdr(dlsym(runtime, "clGetPlatformIDs"), &info), 0);
    EXPECT_EQ(load_library_by_name(info.dli_fname), runtime);
    EXPECT_EQ(load_library_by_name("/nonexistent/libOpenCL.so.1"), nullptr);
    dlclose(runtime);
}

TEST(load_library_by_name, missing_and_overlong_names_give_null) {
    EXPECT_EQ(load_library_by_name("libqnd_no_such_library.so.9"), nullptr);
    // Too long to be kept: the converted name is empty, which loads nothing, and the plain name
    // fails too.
    const std::string overlong(PATH_MAX + 10, 'x');
    EXPECT_EQ(load_library_by_name(overlong.c_str()), nullptr);
}

}  // namespace
