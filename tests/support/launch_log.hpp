// Records the kernel launches made while a piece of code runs, through hostsycl's launch
// observer, and describes them compactly ("first 10/2, next 6/2, last 2/2").
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <sycl/sycl.hpp>

namespace qnd_test {

// The launches of `body`, in submission order. The observer is removed again on every path.
template <typename Body>
std::vector<sycl::ext::hostsycl::launch_record> record_launches(Body&& body) {
    std::vector<sycl::ext::hostsycl::launch_record> log;
    sycl::ext::hostsycl::set_launch_observer(
        [&log](const sycl::ext::hostsycl::launch_record& r) { log.push_back(r); });
    struct remove_observer {
        ~remove_observer() { sycl::ext::hostsycl::set_launch_observer({}); }
    } guard;
    body();
    return log;
}

// The template arguments of a kernel name "ns::name<a, b, c>", split at top-level commas.
inline std::vector<std::string> template_arguments(const std::string& name) {
    std::vector<std::string> args;
    const std::size_t open = name.find('<');
    if (open == std::string::npos)
        return args;
    int depth = 0;
    std::string current;
    for (std::size_t i = open + 1; i < name.size(); ++i) {
        const char c = name[i];
        if (c == '<')
            ++depth;
        if (c == '>' && depth-- == 0)
            break;
        if (c == ',' && depth == 0) {
            args.push_back(current);
            current.clear();
            continue;
        }
        if (!(c == ' ' && current.empty()))
            current += c;
    }
    args.push_back(current);
    return args;
}

// "single", "first", "next" (intermediate) or "last" (the next step that finishes), for the step
// kernels of the moment and the extreme engines alike.
inline std::string step_kind(const std::string& kernel_name) {
    const std::string base = kernel_name.substr(0, kernel_name.find('<'));
    for (const char* kind : {"single", "first"})
        if (base.find(std::string("kernel_") + kind + "_step") != std::string::npos)
            return kind;
    if (base.find("kernel_next_step") != std::string::npos) {
        const std::vector<std::string> args = template_arguments(kernel_name);
        return args.size() == 4 && args[2] == "true" ? "last" : "next";
    }
    return "other:" + base;
}

// "kind global/local" per launch, comma-separated.
inline std::string describe(const std::vector<sycl::ext::hostsycl::launch_record>& log) {
    std::string text;
    for (const auto& r : log) {
        if (!text.empty())
            text += ", ";
        text += step_kind(r.kernel_name) + " " + std::to_string(r.global_size) + "/" +
                std::to_string(r.local_size);
    }
    return text;
}

}  // namespace qnd_test
