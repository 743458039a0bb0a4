// Information descriptors of devices and platforms, and the partitioning enumerations.
#pragma once
#pragma GCC visibility push(default)

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace sycl {

class device;
class platform;

namespace info {

enum class device_type : unsigned {
    cpu = 1,
    gpu = 2,
    accelerator = 3,
    custom = 4,
    automatic = 5,
    host = 6,
    all = 7,
};

enum class partition_property : int {
    no_partition = 0,
    partition_equally = 4230,
    partition_by_counts = 4231,
    partition_by_affinity_domain = 4232,
};

enum class partition_affinity_domain : int {
    not_applicable = 0,
    numa = 1,
    L4_cache = 2,
    L3_cache = 4,
    L2_cache = 8,
    L1_cache = 16,
    next_partitionable = 32,
};

namespace device {
struct device_type {
    using return_type = info::device_type;
};
struct vendor_id {
    using return_type = std::uint32_t;
};
struct max_compute_units {
    using return_type = std::uint32_t;
};
struct max_work_item_dimensions {
    using return_type = std::uint32_t;
};
struct max_work_group_size {
    using return_type = std::size_t;
};
struct global_mem_size {
    using return_type = std::uint64_t;
};
struct local_mem_size {
    using return_type = std::uint64_t;
};
struct name {
    using return_type = std::string;
};
struct vendor {
    using return_type = std::string;
};
struct driver_version {
    using return_type = std::string;
};
struct version {
    using return_type = std::string;
};
struct partition_max_sub_devices {
    using return_type = std::uint32_t;
};
struct partition_properties {
    using return_type = std::vector<info::partition_property>;
};
struct partition_affinity_domains {
    using return_type = std::vector<info::partition_affinity_domain>;
};
struct partition_type_property {
    using return_type = info::partition_property;
};
struct partition_type_affinity_domain {
    using return_type = info::partition_affinity_domain;
};
struct parent_device {
    using return_type = sycl::device;
};
struct platform {
    using return_type = sycl::platform;
};
}  // namespace device

namespace platform {
struct name {
    using return_type = std::string;
};
struct vendor {
    using return_type = std::string;
};
struct version {
    using return_type = std::string;
};
struct profile {
    using return_type = std::string;
};
}  // namespace platform

}  // namespace info
}  // namespace sycl

#pragma GCC visibility pop
