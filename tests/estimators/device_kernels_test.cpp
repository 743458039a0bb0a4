// The library's set of device kernels, as the SYCL runtime lists them once the library is loaded:
// one kernel per instantiation of the step kernels, counted by step and by functor.
#include <gtest/gtest.h>

#include <map>
#include <regex>
#include <set>
#include <string>
#include <sycl/sycl.hpp>

#include "tavrel/qnd/stats.hpp"

namespace {

// Kernel names of this library only; the runtime may list kernels of other loaded code too.
std::multiset<std::string> library_kernels() {
    // Referencing an estimator keeps the library loaded by this program.
    namespace qs = tavrel::qnd::stats;
    sycl::event (*volatile keep)(sycl::queue&, const qs::dataset<qs::row_major, float*>&, float*,
                                 const std::vector<sycl::event>&) =
        &qs::mean<1, float, qs::row_major>;
    (void)keep;
    std::multiset<std::string> names;
    for (const sycl::kernel_id& id : sycl::get_kernel_ids()) {
        const std::string name = id.get_name();
        if (name.rfind("tavrel::qnd::stats::detail::gpu::", 0) == 0)
            names.insert(name);
    }
    return names;
}

TEST(device_kernels, one_per_step_instantiation_816_in_all) {
    const std::multiset<std::string> names = library_kernels();
    EXPECT_EQ(names.size(), 816u);
    EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), names.size())
        << "a kernel name is registered twice";

    std::map<std::string, int> per_step;
    for (const std::string& name : names)
        ++per_step[name.substr(0, name.find('<'))];
    const std::string gpu = "tavrel::qnd::stats::detail::gpu::";
    const std::map<std::string, int> expected{
        {gpu + "basic_kernel_single_step", 172}, {gpu + "basic_kernel_first_step", 172},
        {gpu + "basic_kernel_next_step", 344},   {gpu + "minmax_kernel_single_step", 32},
        {gpu + "minmax_kernel_first_step", 32},  {gpu + "minmax_kernel_next_step", 64},
    };
    EXPECT_EQ(per_step, expected);
}

// Functors served by both forms with 64-bit indices take 32 kernels; those the offload path also
// runs with 32-bit indices in the pointer form take 48.
TEST(device_kernels, per_functor_by_the_forms_that_run_it) {
    std::map<std::string, int> per_functor;
    const std::regex functor("^[a-z_:]+<tavrel::qnd::stats::detail::gpu::([a-z_:]+)<");
    for (const std::string& name : library_kernels()) {
        std::smatch m;
        ASSERT_TRUE(std::regex_search(name, m, functor)) << name;
        ++per_functor[m[1]];
    }
    std::map<std::string, int> expected;
    for (const char* f :
         {"mean_func", "central_sum_func_fast", "central_moment_func_fast", "variation_func_fast",
          "skewness_func_fast", "kurtosis_func_fast", "ex::central_sum_func_fast",
          "ex::central_moment_func_fast", "ex::variation_func_fast", "ex::skewness_func_fast",
          "ex::kurtosis_func_fast", "min_max_func_fast"})
        expected[f] = 32;
    for (const char* f :
         {"raw_sum_func_fast", "raw_moment_func_fast", "central_sum_func_user_mean",
          "central_moment_func_user_mean", "variation_func_user_mean", "skewness_func_user_mean",
          "kurtosis_func_user_mean", "min_func_fast", "max_func_fast"})
        expected[f] = 48;
    EXPECT_EQ(per_functor, expected);
}

}  // namespace
