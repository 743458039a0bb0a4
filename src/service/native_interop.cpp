// The native layer of the GPU service on a runtime that makes contexts and queues from native
// handles through sycl::detail::make_context and make_queue, and serves the driver runtime as
// backend value 2.
#include "service/native_interop.hpp"

#include <vector>

namespace tavrel::qnd::gpu::detail {

namespace {

// SYCL 2020 has no name for the driver runtime's backend: this runtime gives it the value 2.
constexpr sycl::backend backend_driver = static_cast<sycl::backend>(2);

}  // namespace

sycl::context make_opencl_context(void* native_context) {
    return sycl::detail::make_context(reinterpret_cast<std::uintptr_t>(native_context),
                                      sycl::async_handler{}, sycl::backend::opencl, false, {});
}

sycl::queue make_opencl_queue(void* native_queue,
                              const sycl::context& context,
                              const sycl::async_handler& handler) {
    return sycl::detail::make_queue(reinterpret_cast<std::uintptr_t>(native_queue), 0, context,
                                    nullptr, false, sycl::property_list{}, handler,
                                    sycl::backend::opencl);
}

sycl::context make_driver_context(void* native_context, const sycl::device& device) {
    return sycl::detail::make_context(reinterpret_cast<std::uintptr_t>(native_context),
                                      sycl::async_handler{}, backend_driver, true, {device});
}

sycl::queue make_driver_queue_of(void* native_queue,
                                 std::int32_t description,
                                 const sycl::context& context) {
    const sycl::device device = context.get_devices().front();
    return sycl::detail::make_queue(reinterpret_cast<std::uintptr_t>(native_queue), description,
                                    context, &device, true, sycl::property_list{},
                                    sycl::async_handler{}, backend_driver);
}

sycl::device find_driver_device(void* const* native_device) {
    const std::vector<sycl::platform> platforms = sycl::platform::get_platforms();
    for (const sycl::platform& platform : platforms) {
        if (platform.get_backend() != backend_driver)
            continue;
        for (const sycl::device& device : platform.get_devices(sycl::info::device_type::gpu)) {
            if (std::optional<sycl::device> found = match_native_device(device, native_device))
                return *found;
        }
    }
    throw sycl::exception(sycl::make_error_code(sycl::errc::invalid),
                          "Native device isn't exposed to SYCL.");
}

std::optional<sycl::device> match_native_device(const sycl::device& device,
                                                void* const* native_device) {
    if (device.get_backend() != backend_driver)
        throw sycl::exception(sycl::make_error_code(sycl::errc::backend_mismatch),
                              "Backends mismatch");
    if (sycl::get_native<backend_driver>(device) == *native_device)
        return device;
    // Depth first through the sub-devices by affinity domain, as far as the tree goes.
    constexpr auto by_affinity = sycl::info::partition_property::partition_by_affinity_domain;
    for (sycl::info::partition_property property :
         device.get_info<sycl::info::device::partition_properties>()) {
        if (property != by_affinity)
            continue;
        for (const sycl::device& sub_device : device.create_sub_devices<by_affinity>(
                 sycl::info::partition_affinity_domain::next_partitionable)) {
            if (std::optional<sycl::device> found = match_native_device(sub_device, native_device))
                return found;
        }
    }
    return std::nullopt;
}

}  // namespace tavrel::qnd::gpu::detail
