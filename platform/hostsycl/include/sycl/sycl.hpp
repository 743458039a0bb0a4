// hostsycl: the subset of SYCL 2020 that the statistics library uses, run on host threads.
#pragma once

#include <sycl/exception.hpp>
#include <sycl/types.hpp>
#include <sycl/info.hpp>
#include <sycl/device.hpp>
#include <sycl/context.hpp>
#include <sycl/event.hpp>
#include <sycl/multi_ptr.hpp>
#include <sycl/nd_item.hpp>
#include <sycl/functional.hpp>
#include <sycl/group_algorithms.hpp>
#include <sycl/math.hpp>
#include <sycl/buffer.hpp>
#include <sycl/accessor.hpp>
#include <sycl/handler.hpp>
#include <sycl/queue.hpp>
#include <sycl/usm.hpp>
#include <sycl/kernel_id.hpp>
#include <sycl/interop.hpp>
#include <sycl/ext/hostsycl.hpp>
