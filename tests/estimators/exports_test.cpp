// The library's exported dynamic symbols: exactly the 192 estimator instantiations with their
// template arguments and signatures, and nothing else of the library's own.
#include <cxxabi.h>

#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

struct exported_symbol {
    char kind;  // nm's letter: T, W, V, u, ...
    std::string name;
};

std::string demangled(const std::string& mangled) {
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> text(
        abi::__cxa_demangle(mangled.c_str(), nullptr, nullptr, &status), std::free);
    return status == 0 ? std::string(text.get()) : mangled;
}

// The defined dynamic symbols of the library, as nm lists them, demangled here.
std::vector<exported_symbol> exported_symbols() {
    const std::string command =
        std::string(QND_NM) + " -D --defined-only '" + QND_LIBRARY_PATH + "' 2>&1";
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::vector<exported_symbol> symbols;
    if (!pipe)
        return symbols;
    char line[8192];
    while (std::fgets(line, sizeof line, pipe.get()) != nullptr) {
        // "<address> <kind> <name>"
        const std::string text(line);
        const auto first = text.find(' ');
        const auto second = first == std::string::npos ? first : text.find(' ', first + 1);
        if (second == std::string::npos)
            continue;
        std::string name = text.substr(second + 1);
        while (!name.empty() && (name.back() == '\n' || name.back() == '\r'))
            name.pop_back();
        symbols.push_back({text[first + 1], demangled(name)});
    }
    return symbols;
}

// ---- The catalogue, spelled as the demangler spells the instantiations ----

const char* const stats = "tavrel::qnd::stats::";

std::string layout_arg(int layout) {
    return "(tavrel::qnd::stats::layout)" + std::to_string(layout);
}
std::string buffer_of(const std::string& t) {
    return "sycl::buffer<" + t + ", 1, std::allocator<std::remove_const<" + t + ">::type> >";
}
std::string repeat(const std::string& item, int times) {
    std::string out;
    for (int k = 0; k < times; ++k)
        out += ", " + item;
    return out;
}

struct family_row {
    const char* name;
    int n_outputs;
    std::vector<int> methods_without_mean;
    bool with_mean;  // method value 1 only
};

const std::vector<family_row>& catalogue() {
    static const std::vector<family_row> rows{
        {"mean", 1, {1, 2}, false},
        {"raw_sum", 4, {1, 2}, false},
        {"raw_moment", 4, {1, 2}, false},
        {"central_sum", 3, {1, 2}, true},
        {"central_moment", 3, {1, 2}, true},
        {"skewness", 1, {1, 2}, true},
        {"kurtosis", 1, {1, 2}, true},
        {"variation", 1, {1, 2}, true},
        {"min", 1, {1}, false},
        {"max", 1, {1}, false},
        {"min_max", 2, {1}, false},
    };
    return rows;
}

// The four forms of one family for one method, element type and layout.
void add_forms(std::set<std::string>& out,
               const family_row& f,
               int method,
               const std::string& t,
               int layout,
               bool with_mean) {
    const std::string head = std::string(stats) + f.name + "<" + std::to_string(method) + ", " + t +
                             ", " + layout_arg(layout) + ">(sycl::queue&";
    const std::string events = "std::vector<sycl::event, std::allocator<sycl::event> > const&";
    const std::string ptr_data =
        std::string(stats) + "dataset<" + layout_arg(layout) + ", " + t + "*> const&";
    const std::string buf_data =
        std::string(stats) + "dataset<" + layout_arg(layout) + ", " + buffer_of(t) + " > const&";
    const std::string ptr_mean = with_mean ? ", " + t + "*" : "";
    const std::string buf_mean = with_mean ? ", " + buffer_of(t) : "";
    out.insert("sycl::event " + head + ptr_mean + ", " + ptr_data + repeat(t + "*", f.n_outputs) +
               ", " + events + ")");
    out.insert("void " + head + buf_mean + ", " + buf_data + repeat(buffer_of(t), f.n_outputs) +
               ")");
}

std::set<std::string> expected_estimators() {
    std::set<std::string> out;
    for (const family_row& f : catalogue()) {
        for (const char* t : {"float", "double"}) {
            for (int layout : {65536, 131072}) {
                for (int method : f.methods_without_mean)
                    add_forms(out, f, method, t, layout, false);
                if (f.with_mean)
                    add_forms(out, f, 1, t, layout, true);
            }
        }
    }
    return out;
}

bool starts_with(const std::string& s, const std::string& prefix) {
    return s.compare(0, prefix.size(), prefix) == 0;
}

// True when the symbol's own qualified name, outside template and parameter lists, is in the
// library's namespace: "std::string tavrel::qnd::f()" is a function of ours, whatever it returns.
bool names_library_function(const std::string& name) {
    int depth = 0;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const char c = name[i];
        if (c == '<' || c == '(')
            ++depth;
        else if (c == '>' || c == ')')
            --depth;
        else if (depth == 0 && name.compare(i, 8, " tavrel:") == 0)
            return true;
    }
    return false;
}

// Why a symbol that is not an estimator may stand in the dynamic table; empty if it may not.
std::string allowed_because(const std::string& name) {
    // The exception family is public: callers catch it across the library boundary, which
    // needs one typeinfo, its name and a vtable for each of its six classes.
    for (const char* cls : {"exception", "invalid_argument", "unimplemented", "unsupported_device",
                            "device_bad_alloc", "computation_error"}) {
        for (const char* what : {"typeinfo for ", "typeinfo name for ", "vtable for "}) {
            if (name == std::string(what) + "tavrel::qnd::" + cls)
                return "exception family";
        }
    }
    if (names_library_function(name))
        return {};
    // The rest of the declared surface: offload entry points and the GPU service. Nothing of the
    // SYCL runtime's or the standard library's inline code may stand beside them.
    static const std::vector<std::pair<std::string, std::string>> prefixes{
        {"qnd_rtk_", "offload entry point"},
        {"tavrel::qnd::gpu::lookup_and_cache_zarth_context(", "GPU service"},
        {"tavrel::qnd::gpu::lookup_and_cache_zarth_queue(", "GPU service"},
        {"tavrel::qnd::gpu::lookup_and_cache_zarth_queue_and_context(", "GPU service"},
    };
    for (const auto& [prefix, reason] : prefixes) {
        if (starts_with(name, prefix))
            return reason;
    }
    return {};
}

// The eight offload entry points that the library declares.
bool is_declared_entry(const std::string& name) {
    static const std::set<std::string> entries{
        "qnd_rtk_sSSCompute_omp_offload_lp64",  "qnd_rtk_dSSCompute_omp_offload_lp64",
        "qnd_rtk_sSSCompute_omp_offload_ilp64", "qnd_rtk_dSSCompute_omp_offload_ilp64",
        "qnd_rtk_ssscompute_omp_offload_lp64",  "qnd_rtk_dsscompute_omp_offload_lp64",
        "qnd_rtk_ssscompute_omp_offload",       "qnd_rtk_dsscompute_omp_offload",
    };
    return entries.count(name) != 0;
}

class exports : public ::testing::Test {
  protected:
    static void SetUpTestSuite() {
        symbols_ = new std::vector<exported_symbol>(exported_symbols());
    }
    static void TearDownTestSuite() {
        delete symbols_;
        symbols_ = nullptr;
    }
    static std::vector<exported_symbol>* symbols_;
};
std::vector<exported_symbol>* exports::symbols_ = nullptr;

// Each of the 192 instantiations once, as code (weak or strong), never data.
TEST_F(exports, every_estimator_instantiation_is_exported_once_as_code) {
    const std::set<std::string> expected = expected_estimators();
    ASSERT_EQ(expected.size(), 192u);
    ASSERT_FALSE(symbols_->empty()) << "nm listed nothing for " << QND_LIBRARY_PATH;
    std::map<std::string, int> seen;
    for (const exported_symbol& s : *symbols_) {
        if (expected.count(s.name) == 0)
            continue;
        ++seen[s.name];
        EXPECT_TRUE(s.kind == 'T' || s.kind == 'W') << s.kind << " " << s.name;
    }
    for (const std::string& want : expected)
        EXPECT_EQ(seen[want], 1) << want;
}

TEST_F(exports, nothing_else_of_the_library_is_exported) {
    const std::set<std::string> expected = expected_estimators();
    std::map<std::string, int> allowed;
    for (const exported_symbol& s : *symbols_) {
        if (expected.count(s.name) != 0)
            continue;
        const std::string reason = allowed_because(s.name);
        if (starts_with(s.name, "qnd_rtk_")) {
            EXPECT_TRUE(is_declared_entry(s.name)) << "undeclared entry point: " << s.name;
        }
        // A library symbol reached through no allowed prefix, or any estimator-like name with
        // other arguments, is a leak.
        EXPECT_FALSE(reason.empty()) << "unexpected export: " << s.kind << " " << s.name;
        if (!reason.empty())
            ++allowed[reason];
    }
    // The exception family: typeinfo, its name and vtable of its six classes.
    EXPECT_EQ(allowed["exception family"], 18);
    EXPECT_EQ(allowed["offload entry point"], 8);
    EXPECT_EQ(allowed["GPU service"], 3);
}

// The test itself must tell a leak apart: a detail function or a stray instantiation is refused.
TEST(exports_rules, refuse_what_is_not_declared) {
    const std::set<std::string> expected = expected_estimators();
    const std::vector<std::string> strays{
        "sycl::event tavrel::qnd::stats::mean<3, float, (tavrel::qnd::stats::layout)65536>"
        "(sycl::queue&, tavrel::qnd::stats::dataset<(tavrel::qnd::stats::layout)65536, float*> "
        "const&, float*, std::vector<sycl::event, std::allocator<sycl::event> > const&)",
        "void tavrel::qnd::stats::min<2, float, (tavrel::qnd::stats::layout)65536>(sycl::queue&, "
        "tavrel::qnd::stats::dataset<(tavrel::qnd::stats::layout)65536, " +
            buffer_of("float") + " > const&, " + buffer_of("float") + ")",
        "tavrel::qnd::stats::detail::check_argument(bool, char const*, char const*)",
        "sycl::queue::wait()",
        "typeinfo for sycl::handler::parallel_for<tavrel::qnd::stats::detail::gpu::kernel_name>",
        "std::vector<sycl::event, std::allocator<sycl::event> >::~vector()",
        "typeinfo for tavrel::qnd::stats::detail::gpu::sum_flags",
        "std::__cxx11::basic_string<char, std::char_traits<char>, std::allocator<char> > "
        "tavrel::qnd::stats::detail::describe(int)",
    };
    for (const std::string& s : strays) {
        EXPECT_EQ(expected.count(s), 0u) << s;
        EXPECT_TRUE(allowed_because(s).empty()) << s;
    }
    EXPECT_FALSE(is_declared_entry("qnd_rtk_sSSCompute_omp_offload"));
}

}  // namespace
