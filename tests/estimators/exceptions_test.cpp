// How the exception family composes its texts from domain, function and detail.
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "tavrel/qnd/exceptions.hpp"

namespace {

namespace qnd = tavrel::qnd;

TEST(Exceptions, BaseComposesDomainFunctionAndInfo) {
    struct text_case {
        const char *domain, *function, *info, *text;
    };
    const std::vector<text_case> cases{
        {"stats", "mean", "x", "tavrel::qnd::stats::mean: x"},
        {"stats", "", "x", "tavrel::qnd::stats: x"},
        {"", "mean", "x", "tavrel::qnd::mean: x"},
        {"", "", "x", "tavrel::qnd: x"},
        {"stats", "mean", "", "tavrel::qnd::stats::mean"},
        {"", "", "", "tavrel::qnd"},
    };
    for (const text_case& c : cases) {
        EXPECT_EQ(std::string(qnd::exception(c.domain, c.function, c.info).what()), c.text);
    }
}

TEST(Exceptions, KindsWordTheirDetail) {
    EXPECT_EQ(std::string(qnd::invalid_argument("stats", "mean", "mean is nullptr").what()),
              "tavrel::qnd::stats::mean: invalid argument: mean is nullptr");
    EXPECT_EQ(std::string(qnd::invalid_argument("stats", "mean", "").what()),
              "tavrel::qnd::stats::mean: invalid argument");
    EXPECT_EQ(std::string(qnd::unimplemented("stats", "central_sum", "for this method").what()),
              "tavrel::qnd::stats::central_sum: unimplemented functionality: for this method");
    EXPECT_EQ(std::string(qnd::unimplemented("stats", "kurtosis", "").what()),
              "tavrel::qnd::stats::kurtosis: unimplemented functionality");
    EXPECT_EQ(std::string(qnd::computation_error("stats", "", "").what()),
              "tavrel::qnd::stats: computation error");
    EXPECT_EQ(std::string(qnd::computation_error("stats", "skewness", "status -4").what()),
              "tavrel::qnd::stats::skewness: computation error: status -4");
}

TEST(Exceptions, DeviceKindsNameTheDevice) {
    for (const sycl::device& dev :
         {sycl::device(sycl::gpu_selector_v), sycl::device(sycl::cpu_selector_v)}) {
        const std::string name = dev.get_info<sycl::info::device::name>();
        EXPECT_EQ(std::string(qnd::unsupported_device("stats", "mean", dev).what()),
                  "tavrel::qnd::stats::mean: unsupported device: " + name);
        EXPECT_EQ(std::string(qnd::device_bad_alloc("rng", "central_sum", dev).what()),
                  "tavrel::qnd::rng::central_sum: cannot allocate memory on " + name);
    }
}

// Every kind is caught as the base and as std::exception; the text outlives copies.
TEST(Exceptions, KindsAreCaughtAsTheBase) {
    try {
        throw qnd::unimplemented("stats", "mean", "CPU devices");
    } catch (const qnd::exception& e) {
        const qnd::exception copy = e;
        EXPECT_EQ(std::string(copy.what()),
                  "tavrel::qnd::stats::mean: unimplemented functionality: CPU devices");
    }
    EXPECT_THROW(throw qnd::invalid_argument("a", "b", "c"), std::exception);
    EXPECT_THROW(throw qnd::computation_error("a", "b", "c"), qnd::exception);
}

}  // namespace
