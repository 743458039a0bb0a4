// Every moment family on the emulated GPU against long-double references of the same data:
// both element types and layouts, with and without weights, masks, and a caller's mean.
#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "support/data.hpp"
#include "support/devices.hpp"
#include "support/moment_families.hpp"
#include "support/reference.hpp"
#include "support/usm_array.hpp"
#include "tavrel/qnd/stats.hpp"

namespace {

namespace st = tavrel::qnd::stats;
using namespace qnd_test;

enum class mask_kind { none, first, middle, all };
enum class mean_kind { none, own, shifted };

const char* mask_name(mask_kind m) {
    switch (m) {
        case mask_kind::none:
            return "no mask";
        case mask_kind::first:
            return "dimension 0 masked";
        case mask_kind::middle:
            return "middle dimension masked";
        case mask_kind::all:
            return "all masked";
    }
    return "";
}

std::vector<std::int64_t> make_mask(mask_kind kind, std::int64_t n_dims) {
    std::vector<std::int64_t> mask;
    if (kind == mask_kind::none)
        return mask;
    mask.assign(static_cast<std::size_t>(n_dims), 1);
    if (kind == mask_kind::first)
        mask[0] = 0;
    if (kind == mask_kind::middle)
        mask[static_cast<std::size_t>(n_dims / 2)] = 0;
    if (kind == mask_kind::all)
        mask.assign(static_cast<std::size_t>(n_dims), 0);
    // Any non-zero entry keeps its dimension, not only 1.
    if (kind != mask_kind::all)
        mask.back() = -5;
    return mask;
}

// Arrays of one run on the device, with every output pre-filled by a sentinel so that a
// dimension left unwritten can be told from one written.
template <typename T>
struct device_outputs {
    static constexpr T sentinel = T(-777.25);
    std::vector<std::unique_ptr<usm_array<T>>> arrays;
    std::array<T*, 4> pointers{};

    device_outputs(sycl::queue& q, int n, std::int64_t n_dims) {
        for (int k = 0; k < n; ++k) {
            arrays.push_back(std::make_unique<usm_array<T>>(q, static_cast<std::size_t>(n_dims)));
            arrays.back()->fill(sentinel);
            pointers[static_cast<std::size_t>(k)] = arrays.back()->get();
        }
    }
};

// Runs every family (and, where it exists, the form with a caller's mean equal to the data's
// own mean and one shifted away from it) and compares each kept dimension with the reference.
template <typename T, st::layout L>
void check_all_families(sycl::queue& q, const host_data<T>& host) {
    usm_array<T> obs(q, host.observations);
    std::unique_ptr<usm_array<T>> weights;
    std::unique_ptr<usm_array<std::int64_t>> indices;
    if (!host.weights.empty())
        weights = std::make_unique<usm_array<T>>(q, host.weights);
    if (!host.indices.empty())
        indices = std::make_unique<usm_array<std::int64_t>>(q, host.indices);
    const st::dataset<L, T*> data{host.n_dims, host.n_observations, obs.get(),
                                  weights ? weights->get() : nullptr,
                                  indices ? indices->get() : nullptr};

    for (const moment_family_info& info : moment_families()) {
        for (mean_kind mk : {mean_kind::none, mean_kind::own, mean_kind::shifted}) {
            if (mk != mean_kind::none && !info.takes_user_mean)
                continue;
            SCOPED_TRACE(std::string(info.name) + (mk == mean_kind::none ? ""
                                                   : mk == mean_kind::own
                                                       ? ", caller's mean = own"
                                                       : ", caller's mean shifted"));
            usm_array<T> centre(q, static_cast<std::size_t>(host.n_dims));
            for (std::int64_t d = 0; d < host.n_dims; ++d) {
                const T own = static_cast<T>(reference_of(host, d).mean());
                centre[static_cast<std::size_t>(d)] = mk == mean_kind::shifted ? own + T(0.5) : own;
            }
            device_outputs<T> outs(q, info.n_outputs, host.n_dims);
            call_moment_family<1, T, L>(
                info.family, q, mk == mean_kind::none ? nullptr : centre.get(), data, outs.pointers)
                .wait_and_throw();

            for (std::int64_t d = 0; d < host.n_dims; ++d) {
                const long double c = centre[static_cast<std::size_t>(d)];
                const moment_reference r =
                    reference_of(host, d, mk == mean_kind::none ? nullptr : &c);
                for (int k = 0; k < info.n_outputs; ++k) {
                    const T got =
                        (*outs.arrays[static_cast<std::size_t>(k)])[static_cast<std::size_t>(d)];
                    if (!host.kept(d)) {
                        EXPECT_EQ(got, device_outputs<T>::sentinel)
                            << "masked dimension " << d << " written";
                        continue;
                    }
                    const long double want = expected_output(info.family, k, r);
                    EXPECT_TRUE(close_to(got, want, moment_tolerance<T>()))
                        << "dimension " << d << ", output " << k << ": got " << got << ", want "
                        << static_cast<double>(want);
                }
            }
        }
    }
}

template <typename T>
class MomentsAgainstReference : public ::testing::Test {};
using element_types = ::testing::Types<float, double>;
TYPED_TEST_SUITE(MomentsAgainstReference, element_types);

// 300 observations: two launches on the default GPU, an intermediate step on a GPU of 8.
TYPED_TEST(MomentsAgainstReference, EveryFamilyLayoutWeightAndMask) {
    using T = TypeParam;
    constexpr std::int64_t n_dims = 5;
    constexpr std::int64_t n_obs = 300;
    const std::vector<sycl::device> devices{sycl::device(sycl::gpu_selector_v),
                                            sycl::ext::hostsycl::make_gpu_device(8)};
    for (const sycl::device& dev : devices) {
        sycl::queue q(dev);
        for (st::layout layout : {st::row_major, st::col_major}) {
            for (bool weighted : {false, true}) {
                for (mask_kind mask :
                     {mask_kind::none, mask_kind::first, mask_kind::middle, mask_kind::all}) {
                    SCOPED_TRACE(device_label(dev) +
                                 (layout == st::row_major ? ", row_major" : ", col_major") +
                                 (weighted ? ", weighted, " : ", unweighted, ") + mask_name(mask));
                    host_data<T> host = skewed_data<T>(n_dims, n_obs, layout);
                    if (weighted)
                        host.weights = random_weights<T>(n_obs);
                    host.indices = make_mask(mask, n_dims);
                    if (layout == st::row_major) {
                        check_all_families<T, st::row_major>(q, host);
                    } else {
                        check_all_families<T, st::col_major>(q, host);
                    }
                }
            }
        }
    }
}

// Method values 1 and 2 name one function in every family but the central ones.
TYPED_TEST(MomentsAgainstReference, MethodValuesOneAndTwoAgreeExactly) {
    using T = TypeParam;
    sycl::queue q(sycl::ext::hostsycl::make_gpu_device(8));
    const host_data<T> host = skewed_data<T>(3, 100, st::col_major);
    usm_array<T> obs(q, host.observations);
    usm_array<T> weights(q, random_weights<T>(100));
    const st::dataset<st::col_major, T*> data{3, 100, obs.get(), weights.get()};
    for (const moment_family_info& info : moment_families()) {
        if (info.family == moment_family::central_sum ||
            info.family == moment_family::central_moment)
            continue;
        SCOPED_TRACE(info.name);
        device_outputs<T> one(q, info.n_outputs, 3);
        device_outputs<T> two(q, info.n_outputs, 3);
        call_moment_family<1, T, st::col_major>(info.family, q, nullptr, data, one.pointers).wait();
        call_moment_family<2, T, st::col_major>(info.family, q, nullptr, data, two.pointers).wait();
        for (int k = 0; k < info.n_outputs; ++k) {
            EXPECT_EQ(one.arrays[static_cast<std::size_t>(k)]->to_vector(),
                      two.arrays[static_cast<std::size_t>(k)]->to_vector());
        }
    }
}

}  // namespace
