// What the built library presents to a caller: its dynamic symbols and nothing else, its device
// kernels as the SYCL runtime lists them, and the texts of its exception family.
#include <cstdio>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>
#include <sycl/sycl.hpp>

#include "tavrel/qnd/exceptions.hpp"
#include "tavrel/qnd/stats.hpp"

namespace {

namespace qnd = tavrel::qnd;

// The defined dynamic symbols of the library as "<nm's kind letter> <demangled name>".
std::vector<std::string> exported_symbols() {
    const std::string command =
        std::string(QND_NM) + " -DC --defined-only '" + QND_LIBRARY_PATH + "' 2>&1";
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::vector<std::string> symbols;
    char line[8192];
    while (pipe && std::fgets(line, sizeof line, pipe.get()) != nullptr) {
        std::string text(line);  // "<address> <kind> <name>"
        const auto kind = text.find(' ');
        if (kind != std::string::npos && text.size() > kind + 3)
            symbols.push_back(text.substr(kind + 1, text.find_last_not_of("\r\n") - kind));
    }
    return symbols;
}

// The 192 estimators as the demangler spells them, each as code ("T" or "W" in nm's words):
// 11 families x float, double x both layouts x their method values, pointer and buffer form.
std::set<std::string> expected_estimators() {
    // Family, outputs, method values 1 to M, and whether a form takes the caller's mean.
    const std::tuple<const char*, int, int, bool> families[] = {
        {"mean", 1, 2, false},       {"raw_sum", 4, 2, false},       {"raw_moment", 4, 2, false},
        {"central_sum", 3, 2, true}, {"central_moment", 3, 2, true}, {"skewness", 1, 2, true},
        {"kurtosis", 1, 2, true},    {"variation", 1, 2, true},      {"min", 1, 1, false},
        {"max", 1, 1, false},        {"min_max", 2, 1, false}};
    std::set<std::string> out;
    for (const auto& [name, n_outputs, methods, with_mean] : families) {
        for (const std::string t : {"float", "double"}) {
            const std::string buf =
                "sycl::buffer<" + t + ", 1, std::allocator<std::remove_const<" + t + ">::type> >";
            std::string ptrs, bufs;
            for (int k = 0; k < n_outputs; ++k)
                ptrs += ", " + t + "*", bufs += ", " + buf;
            for (const std::string l : {"65536", "131072"}) {
                const std::string layout = "(tavrel::qnd::stats::layout)" + l;
                const std::string data = "tavrel::qnd::stats::dataset<" + layout + ", ";
                for (int m = 1; m <= methods + with_mean; ++m) {
                    const bool mean = m > methods;
                    const std::string head = "tavrel::qnd::stats::" + std::string(name) + "<" +
                                             std::to_string(mean ? 1 : m) + ", " + t + ", " +
                                             layout + ">(sycl::queue&";
                    out.insert("sycl::event " + head + (mean ? ", " + t + "*" : "") + ", " + data +
                               t + "*> const&" + ptrs +
                               ", std::vector<sycl::event, std::allocator<sycl::event> > const&)");
                    out.insert("void " + head + (mean ? ", " + buf : "") + ", " + data + buf +
                               " > const&" + bufs + ")");
                }
            }
        }
    }
    return out;
}

// Every exported symbol is one of the declared surface, and each of it is there exactly once.
TEST(surface, exported_symbols_are_the_declared_surface) {
    const std::set<std::string> estimators = expected_estimators();
    ASSERT_EQ(estimators.size(), 192u);
    std::set<std::string> declared;
    for (const char* x : {"sSSCompute_omp_offload_lp64", "dSSCompute_omp_offload_lp64",
                          "sSSCompute_omp_offload_ilp64", "dSSCompute_omp_offload_ilp64",
                          "ssscompute_omp_offload_lp64", "dsscompute_omp_offload_lp64",
                          "ssscompute_omp_offload", "dsscompute_omp_offload"})
        declared.insert(std::string("qnd_rtk_") + x);
    for (const char* cls : {"exception", "invalid_argument", "unimplemented", "unsupported_device",
                            "device_bad_alloc", "computation_error"})
        for (const char* what : {"typeinfo for ", "typeinfo name for ", "vtable for "})
            declared.insert(std::string(what) + "tavrel::qnd::" + cls);
    const std::regex service(
        "tavrel::qnd::gpu::lookup_and_cache_zarth_(context|queue|"
        "queue_and_context)\\(.*");
    std::map<std::string, int> seen;  // by name, or by service function
    const std::vector<std::string> symbols = exported_symbols();
    ASSERT_FALSE(symbols.empty()) << "nm listed nothing for " << QND_LIBRARY_PATH;
    for (const std::string& s : symbols) {
        const std::string name = s.substr(2);
        std::smatch m;
        if (estimators.count(name)) {
            EXPECT_TRUE(s[0] == 'T' || s[0] == 'W') << "estimator not exported as code: " << s;
            ++seen[name];
        } else if (declared.count(name)) {
            ++seen[name];
        } else if (std::regex_match(name, m, service)) {
            ++seen["service " + m[1].str()];
        } else {
            ADD_FAILURE() << "undeclared export: " << s;
        }
    }
    for (const std::set<std::string>& names : {estimators, declared})
        for (const std::string& name : names)
            EXPECT_EQ(seen[name], 1) << name;
    for (const char* fn : {"context", "queue", "queue_and_context"})
        EXPECT_EQ(seen[std::string("service ") + fn], 1) << fn;
    EXPECT_EQ(seen.size(), 192u + 8u + 18u + 3u);
}

// One kernel per instantiation of the step kernels, 816 in all: the functors that both forms
// serve with 64-bit mask entries take 32, those that the offload path also runs with 32-bit
// entries in the pointer form 48.
TEST(surface, device_kernels_one_per_step_instantiation) {
    // Referencing an estimator keeps the library loaded by this program.
    sycl::event (*volatile keep)(
        sycl::queue&, const qnd::stats::dataset<qnd::stats::row_major, float*>&, float*,
        const std::vector<sycl::event>&) = &qnd::stats::mean<1, float, qnd::stats::row_major>;
    (void)keep;
    const std::regex kernel(
        "tavrel::qnd::stats::detail::gpu::([a-z_]+)<"
        "tavrel::qnd::stats::detail::gpu::([a-z_:]+)<.*");
    std::set<std::string> names;
    std::map<std::string, int> per_step, per_functor;
    for (const sycl::kernel_id& id : sycl::get_kernel_ids()) {
        const std::string name = id.get_name();
        std::smatch m;
        if (name.rfind("tavrel::qnd::", 0) != 0)
            continue;  // the runtime may list kernels of other loaded code too
        ASSERT_TRUE(std::regex_match(name, m, kernel)) << name;
        EXPECT_TRUE(names.insert(name).second) << "registered twice: " << name;
        ++per_step[m[1]];
        ++per_functor[m[2]];
    }
    EXPECT_EQ(names.size(), 816u);
    const std::map<std::string, int> steps{
        {"basic_kernel_single_step", 172}, {"basic_kernel_first_step", 172},
        {"basic_kernel_next_step", 344},   {"minmax_kernel_single_step", 32},
        {"minmax_kernel_first_step", 32},  {"minmax_kernel_next_step", 64}};
    EXPECT_EQ(per_step, steps);
    std::map<std::string, int> functors{{"mean_func", 32}, {"min_max_func_fast", 32}};
    for (const std::string f :
         {"central_sum", "central_moment", "variation", "skewness", "kurtosis"}) {
        functors[f + "_func_fast"] = functors["ex::" + f + "_func_fast"] = 32;
        functors[f + "_func_user_mean"] = 48;
    }
    for (const char* f :
         {"raw_sum_func_fast", "raw_moment_func_fast", "min_func_fast", "max_func_fast"})
        functors[f] = 48;
    EXPECT_EQ(per_functor, functors);
}

// Texts are "tavrel::qnd[::domain][::function][: info]", the kinds wording their detail; each is
// caught as the base class, and a copy keeps the text.
TEST(surface, exception_texts) {
    const sycl::device gpu(sycl::gpu_selector_v);
    const std::string name = gpu.get_info<sycl::info::device::name>();
    const std::string stats = "tavrel::qnd::stats";
    const std::vector<std::pair<qnd::exception, std::string>> cases{
        {qnd::exception("stats", "mean", "x"), stats + "::mean: x"},
        {qnd::exception("stats", "", "x"), stats + ": x"},
        {qnd::exception("", "mean", "x"), "tavrel::qnd::mean: x"},
        {qnd::exception("", "", ""), "tavrel::qnd"},
        {qnd::invalid_argument("stats", "mean", "m"), stats + "::mean: invalid argument: m"},
        {qnd::invalid_argument("stats", "mean", ""), stats + "::mean: invalid argument"},
        {qnd::unimplemented("stats", "", "m"), stats + ": unimplemented functionality: m"},
        {qnd::unimplemented("stats", "", ""), stats + ": unimplemented functionality"},
        {qnd::computation_error("stats", "", "s"), stats + ": computation error: s"},
        {qnd::computation_error("stats", "", ""), stats + ": computation error"},
        {qnd::unsupported_device("stats", "mean", gpu),
         stats + "::mean: unsupported device: " + name},
        {qnd::device_bad_alloc("rng", "", gpu),
         "tavrel::qnd::rng: cannot allocate memory on " + name}};
    for (const auto& [e, text] : cases)
        EXPECT_EQ(std::string(e.what()), text);
}

}  // namespace
