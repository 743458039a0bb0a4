// The interop loader over an offload runtime without its fifth entry: the load fails for good,
// the wrappers of the four bound entries still work, and the fifth ends the process.
#include <gtest/gtest.h>

#include "omptarget_double.h"
#include "service/interop_loader.hpp"
#include "service_test_support.hpp"

namespace {

using namespace tavrel::qnd::gpu::detail;
using namespace service_test;

TEST(partial_runtime, load_answers_minus_one_and_is_not_tried_again) {
    EXPECT_EQ(load_interop_entries(), -1);
    EXPECT_EQ(load_interop_entries(), -1);
}

TEST(partial_runtime, the_four_bound_wrappers_call_through_after_the_failed_load) {
    ASSERT_EQ(load_interop_entries(), -1);
    void* interop = omptarget_double_new_interop(4);
    int marker = 0;
    omptarget_double_set_property(interop, property_queue, &marker);
    std::int32_t code = -1;
    EXPECT_EQ(omp_get_interop_int(interop, property_runtime, &code), 4);
    EXPECT_EQ(code, 0);
    void* result = nullptr;
    EXPECT_EQ(__tgt_get_interop_property(interop, property_queue, &result), 0);
    EXPECT_EQ(result, &marker);
    EXPECT_EQ(omp_get_interop_ptr(interop, property_queue, &code), &marker);
    EXPECT_EQ(omp_get_interop_str(interop, property_queue, &code), nullptr);
    omptarget_double_delete_interop(interop);
}

TEST(partial_runtime_death, fifth_wrapper_prints_message_3_and_ends_with_2) {
    use_threadsafe_death_tests();
    void* interop = omptarget_double_new_interop(4);
    EXPECT_EXIT(ompx_interop_add_completion_callback(
                    interop, [](void*) {}, nullptr),
                ::testing::ExitedWithCode(2),
                missing_entry_message("ompx_interop_add_completion_callback"));
    omptarget_double_delete_interop(interop);
}

}  // namespace
