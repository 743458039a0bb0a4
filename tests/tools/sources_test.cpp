// The sources of observations: the matrices that text, .npy and raw files give when read a few
// rows at a time, the exact text of each refusal with its file, line and field, and the job that
// the weights, mask and mean options make of a source's columns.
#include <unistd.h>

#include <cstdint>
#include <functional>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "data_source.hpp"
#include "stats_job.hpp"
#include "temp_files.hpp"
#include "tool_errors.hpp"

namespace qnd_stats {
namespace {

struct table {
    std::int64_t n_dims = 0;
    std::vector<std::string> names;
    bool row_major = false;
    std::vector<double> values;  // observation after observation
};

// Everything a source holds, read `rows` observations at a time into float or double arrays.
table read_all(data_source& s, std::int64_t rows = 2, bool in_float = false) {
    table t{s.n_dims, s.names, s.row_major, {}};
    const auto n = static_cast<std::size_t>(s.n_dims);
    std::vector<double> f64(static_cast<std::size_t>(rows) * n);
    std::vector<float> f32(f64.size());
    const chunk_array to = in_float ? chunk_array{nullptr, f32.data()} : chunk_array{f64.data()};
    while (const std::int64_t r = s.read(to, rows)) {
        const auto ru = static_cast<std::size_t>(r);
        for (std::size_t i = 0; i < ru; ++i)
            for (std::size_t d = 0; d < n; ++d) {
                const std::size_t at = s.row_major ? d * ru + i : i * n + d;
                t.values.push_back(in_float ? f32[at] : f64[at]);
            }
    }
    return t;
}

std::string error_of(const std::function<void()>& f) {
    try {
        f();
    } catch (const input_error& e) {
        return e.what();
    }
    return "(no error)";
}

TEST(qnd_stats_text_source, reads_rows_as_observations) {
    const auto automatic = header_choice::automatic;
    using strings = std::vector<std::string>;
    // clang-format off
    const std::vector<std::tuple<const char*, std::string, char, header_choice, strings, std::int64_t, std::vector<double>>> cases = {
        {"csv with a header", "a,b\n1,2\n3,4\n5,6\n", ',', automatic, {"a", "b"}, 2, {1, 2, 3, 4, 5, 6}},
        {"no header detected", "1,2\n3,4\n", ',', automatic, {}, 2, {1, 2, 3, 4}},
        {"blanks around fields, CRLF", " a , b \r\n 1 , 2 \r\n", ',', automatic, {"a", "b"}, 2, {1, 2}},
        {"blank lines and comments", "# note\n\nx\n1\n\n  # more\n2\n", ',', automatic, {"x"}, 1, {1, 2}},
        {"quoted numbers", "\"a\",\"b\"\n\"1.5\",\" 2\"\n", ',', automatic, {"a", "b"}, 2, {1.5, 2}},
        {"no final newline", "1 2\n3 4", 0, automatic, {}, 2, {1, 2, 3, 4}},
        {"runs of blanks and tabs", "  1\t\t2   3\n4 5 6\n", 0, automatic, {}, 3, {1, 2, 3, 4, 5, 6}},
        {"forms of numbers", "+1.5,-2e3,.25,1E-2\n", ',', automatic, {}, 4, {1.5, -2000, 0.25, 0.01}},
        {"quoted names", "\"a,1\",\"say \"\"b\"\"\"\n1,2\n", ',', automatic, {"a,1", "say \"b\""}, 2, {1, 2}},
        {"numeric header forced", "1;2\n3;4\n", ';', header_choice::present, {"1", "2"}, 2, {3, 4}},
        {"header refused", "7,8\n", ',', header_choice::absent, {}, 2, {7, 8}},
    };
    // clang-format on
    for (const auto& [what, contents, delimiter, header, names, dims, values] : cases) {
        SCOPED_TRACE(what);
        const table t = read_all(*open_text(write_file("t.txt", contents), delimiter, header));
        EXPECT_EQ(std::tie(t.names, t.n_dims, t.row_major, t.values),
                  std::make_tuple(names, dims, false, values));
    }
}

TEST(qnd_stats_text_source, refusals_name_file_line_and_field) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"a,b\n1,2\n3\n", ", line 3: 1 field, expected 2 as on line 1"},
        {"# c\n1,2\n\n3,4,5\n", ", line 4: 3 fields, expected 2 as on line 2"},
        {"a,b\n1,2\n3,x4\n", ", line 3, field 2: 'x4' is not a number"},
        {"1,2\n3,\n", ", line 2, field 2: empty field"},
        {"1,2\n1e999,2\n", ", line 2, field 1: '1e999' is out of the range of double"},
        {"1,2\n\"3x\",4\n", ", line 2, field 1: '3x' is not a number"},
        {"1,2\n3,4 5\n", ", line 2, field 2: '4 5' is not a number"},
        {"1,2\n+-3,4\n", ", line 2, field 1: '+-3' is not a number"},
        {"a,,c\n1,2,3\n", ", line 1, field 2: empty name in the header row"},
        {"a,b\n", ": no observations"},
        {"", ": no observations"},
        {"\n# only a comment\n", ": no observations"},
    };
    for (const auto& c : cases) {
        const std::string path = write_file("bad.csv", c.first);
        EXPECT_EQ(error_of([&] { read_all(*open_text(path, ',', header_choice::automatic)); }),
                  path + c.second);
    }
}

// Large enough to be parsed by several threads in blocks: every row arrives once, in order, and
// an error far down names its own line.
TEST(qnd_stats_text_source, blocks_of_many_lines_keep_order_and_line_numbers) {
    std::string text = "a,b,c\n";
    const int n = 400000;  // about 9 MB: more than one block
    for (int i = 0; i < n; ++i) {
        text +=
            std::to_string(i) + "," + std::to_string(i % 7) + ".5,-" + std::to_string(i) + "e-3\n";
        if (i % 1000 == 999)
            text += "# a comment\n";
    }
    const auto s = open_text(write_file("big.csv", text), ',', header_choice::automatic);
    const table t = read_all(*s, 99991);
    ASSERT_EQ(t.values.size(), 3u * n);
    bool ok = true;
    for (int i = 0; i < n && ok; ++i)
        ok = t.values[3 * i] == i && t.values[3 * i + 1] == i % 7 + 0.5 &&
             t.values[3 * i + 2] == std::strtod(("-" + std::to_string(i) + "e-3").c_str(), nullptr);
    EXPECT_TRUE(ok);
    // Line 1 is the header; observation i is on line 2 + i + i / 1000.
    const std::string path = write_file("late.csv", text + "1,2,oops\n");
    EXPECT_EQ(
        error_of([&] { read_all(*open_text(path, ',', header_choice::automatic), 1 << 20); }),
        path + ", line " + std::to_string(2 + n + n / 1000) + ", field 3: 'oops' is not a number");
}

TEST(qnd_stats_npy_source, reads_both_types_orders_and_versions) {
    const std::vector<double> six = {1, 2, 3, 4, 5, 6};
    const std::vector<float> six_f = {1.5f, 2, 3, 4, 5, 6.25f};
    // clang-format off
    const std::vector<std::tuple<const char*, std::string, std::int64_t, bool, std::vector<double>>> cases = {
        {"C order", npy("{'descr': '<f8', 'fortran_order': False, 'shape': (3, 2), }", bytes_of(six)), 2, false, six},
        {"Fortran order", npy("{'descr': '<f8', 'fortran_order': True, 'shape': (2, 3), }", bytes_of(six)), 3, true, {1, 3, 5, 2, 4, 6}},
        {"float32, version 2", npy("{'descr': '<f4', 'fortran_order': False, 'shape': (6,), }", bytes_of(six_f), 2), 1, false, {1.5, 2, 3, 4, 5, 6.25}},
        {"big-endian", npy("{'descr': '>f8', 'fortran_order': False, 'shape': (1, 6), }", bytes_of(six, true)), 6, false, six},
        {"big-endian Fortran float32", npy("{'descr': '>f4', 'fortran_order': True, 'shape': (3, 2), }", bytes_of(six_f, true)), 2, true, {1.5, 4, 2, 5, 3, 6.25}},
        {"keys in another order, version 3", npy("{'shape': (3, 2), 'fortran_order': False, 'descr': '<f8'}", bytes_of(six), 3), 2, false, six},
    };
    // clang-format on
    for (const auto& [what, file, dims, row_major, values] : cases)
        for (bool in_float : {false, true}) {
            SCOPED_TRACE(std::string(what) + (in_float ? " into float" : " into double"));
            const auto s = open_npy(write_file("f.npy", file));
            EXPECT_EQ(s->total * s->n_dims, 6);
            const table t = read_all(*s, 2, in_float);
            EXPECT_EQ(std::tie(t.n_dims, t.row_major, t.values), std::tie(dims, row_major, values));
        }
}

TEST(qnd_stats_npy_source, refusals_say_what_is_wrong) {
    const std::string d6 = bytes_of(std::vector<double>{1, 2, 3, 4, 5, 6});
    const std::string f8 = "{'descr': '<f8', 'fortran_order': False, 'shape': ";
    // clang-format off
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"1,2,3\n", ": not a NumPy .npy file (no \\x93NUMPY at its start)"},
        {npy("{'descr': '<i4', 'fortran_order': False, 'shape': (6,), }", d6), ": element type '<i4' is not supported (float32 or float64 only)"},
        {npy(f8 + "(1, 2, 3), }", d6), ": shape (1, 2, 3) has 3 axes; one (observations) or two (observations, dimensions) are supported"},
        {npy(f8 + "(4, 2), }", d6), ": shape (4, 2) of float64 needs 64 bytes of data, the file holds 48"},
        {npy(f8 + "(1000000000000000, 1000000), }", d6), ": shape (1000000000000000, 1000000) is too large (more than 9223372036854775807 bytes)"},
        {npy(f8 + "(12345678901234567890,), }", d6), ": shape (12345678901234567890,) is too large (an axis of 12345678901234567890)"},
        {npy(f8 + "(0, 2), }", ""), ": no observations (shape (0, 2))"},
        {npy("{'descr': '<f8', 'shape': (6,), }", d6), ": the .npy header has no 'fortran_order'"},
        {npy(f8 + "(6,), }", d6, 7), ": .npy format version 7 is not supported (1, 2 or 3 only)"},
        {npy(f8 + "(6,), }", d6).substr(0, 40), ": the .npy header is cut short"},
        {npy(f8 + "(6,), }", d6).substr(0, 11) + "\xff\xff\xff\x7f", ": the .npy header is cut short"},
    };
    // clang-format on
    for (const auto& c : cases) {
        const std::string path = write_file("f.npy", c.first);
        EXPECT_EQ(error_of([&] { read_all(*open_npy(path)); }), path + c.second);
    }
}

TEST(qnd_stats_raw_source, shapes_and_refusals) {
    const std::vector<double> six = {1, 2, 3, 4, 5, 6};
    const std::string path = write_file("r.bin", bytes_of(six));
    EXPECT_EQ(read_all(*open_raw(path, false, 2, 0, false)).values, six);
    EXPECT_EQ(read_all(*open_raw(path, false, 2, 3, true)).values,
              (std::vector<double>{1, 4, 2, 5, 3, 6}));
    const std::string f = write_file("f.raw", bytes_of(std::vector<float>{0.5f, 8}));
    EXPECT_EQ(read_all(*open_raw(f, true, 1, 0, false)).values, (std::vector<double>{0.5, 8}));

    const std::string empty = write_file("e.raw", "");
    // clang-format off
    const std::vector<std::pair<std::function<void()>, std::string>> refusals = {
        {[&] { open_raw(path, false, 4, 0, false); }, path + ": 48 bytes are not a whole number of observations of 4 float64 values (32 bytes each)"},
        {[&] { open_raw(path, false, 2, 4, false); }, path + ": 4 observations of 2 float64 values need 64 bytes, the file holds 48"},
        {[&] { open_raw(path, false, 7, 7905747460161236407, false); }, path + ": --dims 7 x --observations 7905747460161236407 is too large (more than 9223372036854775807 bytes)"},
        {[&] { open_raw(empty, true, 1, 0, false); }, empty + ": no observations (the file is empty)"},
    };
    // clang-format on
    for (const auto& c : refusals)
        EXPECT_EQ(error_of(c.first), c.second);
}

// A file that another program rewrites while it is read is refused, not half described.
TEST(qnd_stats_sources, a_file_that_changes_size_while_read_is_refused) {
    const std::string path = write_file("grow.bin", bytes_of(std::vector<double>(8, 1.0)));
    for (bool row_major : {false, true}) {
        auto s = open_raw(path, false, 2, 0, row_major);
        std::vector<double> chunk(8);
        ASSERT_EQ(s->read({chunk.data()}, 2), 2);
        ASSERT_EQ(truncate(path.c_str(), 16), 0);
        EXPECT_EQ(error_of([&] { s->read({chunk.data()}, 2); }),
                  path + ": the file shrank while it was read");
        write_file("grow.bin", bytes_of(std::vector<double>(8, 1.0)));
    }
    const std::string text = write_file("grow.txt", "1\n2\n");
    const auto s = open_text(text, 0, header_choice::automatic);
    write_file("grow.txt", "1\n2\n3\n");
    EXPECT_EQ(error_of([&] { read_all(*s); }),
              text + ": the file changed size while it was read (4 bytes when opened, 6 now)");
}

TEST(qnd_stats_sources, the_format_follows_the_extension) {
    EXPECT_EQ(format_of("a/b.NPY"), input_format::npy);
    EXPECT_EQ(format_of("b.csv"), input_format::csv);
    EXPECT_EQ(format_of("b.bin"), input_format::raw);
    EXPECT_EQ(format_of("b.raw"), input_format::raw);
    EXPECT_EQ(format_of("b.txt"), input_format::text);
    EXPECT_EQ(format_of("dir.csv/b"), input_format::text);
    EXPECT_EQ(error_of([] { open_source("/nonexistent/x.csv", tool_options()); }),
              "/nonexistent/x.csv: cannot open: No such file or directory");
}

TEST(qnd_stats_job, weights_mask_and_mean_resolve_against_the_columns) {
    const auto source =
        open_text(write_file("d.csv", "a,w,b,c\n1,10,2,3\n"), ',', header_choice::automatic);
    const auto job = [&](const char* weight, const char* mask, const char* mean = "") {
        tool_options o;
        o.weight_column = weight;
        o.mask = mask;
        o.user_mean = mean;
        return prepare_job(*source, o);
    };
    EXPECT_EQ(job("w", "").names, (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(job("w", "").columns, (std::vector<std::int64_t>{0, 2, 3}));
    EXPECT_EQ(job("w", "").indices, (std::vector<std::int64_t>{1, 0, 1, 1}));
    EXPECT_EQ(job("2", "1,c").indices, (std::vector<std::int64_t>{1, 0, 0, 1}));
    EXPECT_EQ(job("", "b-c").indices, (std::vector<std::int64_t>{0, 0, 1, 1}));
    EXPECT_EQ(job("", "3-4").indices, (std::vector<std::int64_t>{0, 0, 1, 1}));
    EXPECT_TRUE(job("", "").indices.empty());
    EXPECT_EQ(job("w", "", "2.5").user_mean, (std::vector<double>(3, 2.5)));
    EXPECT_EQ(job("", "", "1,-2,3e1,4").user_mean, (std::vector<double>{1, -2, 30, 4}));
    const auto plain = open_text(write_file("p.txt", "1 2 3\n"), 0, header_choice::automatic);
    tool_options o;
    o.weight_column = "1";
    EXPECT_EQ(prepare_job(*plain, o).names, (std::vector<std::string>{"x2", "x3"}));

    // clang-format off
    const std::vector<std::pair<std::function<void()>, std::string>> refusals = {
        {[&] { job("w", "2"); }, "--mask: column 2 holds the weights and is not a dimension"},
        {[&] { job("", "9"); }, "--mask: column 9 is not in 1 to 4"},
        {[&] { job("", "x"); }, "--mask: 'x' is neither a column number (1 to 4) nor a name of the header"},
        {[&] { job("", "4-2"); }, "--mask: the range '4-2' runs backwards"},
        {[&] { job("", "1,,2"); }, "--mask: empty item in '1,,2'"},
        {[&] { job("", "", "1,2"); }, "--mean: 2 values for 4 dimensions (give one, or one per dimension)"},
        {[&] { job("", "", "1,x,3,4"); }, "--mean: 'x' is not a number"},
        {[&] { job("0", ""); }, "--weight-column: column 0 is not in 1 to 4"},
        {[&] { job("q", ""); }, "--weight-column: 'q' is neither a column number (1 to 4) nor a name of the header"},
        {[&] { job("w", "", "1,2,3,4"); }, "--mean: 4 values for 3 dimensions (give one, or one per dimension)"},
        {[&] { prepare_job(*open_text(write_file("one.txt", "1\n"), 0, header_choice::automatic), o); },
         "--weight-column: the data's only column cannot be the weights"},
    };
    // clang-format on
    for (const auto& c : refusals)
        EXPECT_EQ(error_of(c.first), c.second);
}

}  // namespace
}  // namespace qnd_stats
