// The readers of text, .npy and raw files: the matrices they build and the exact text of each
// refusal, with its file, line and field.
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "readers.hpp"
#include "tool_errors.hpp"

namespace qnd_stats {
namespace {

struct text_case {
    const char* what;
    std::string contents;
    char delimiter;
    header_choice header;
    std::vector<std::string> names;
    std::int64_t dims;
    std::vector<double> values;  // observation after observation
};

TEST(qnd_stats_text_reader, reads_rows_as_observations) {
    const auto automatic = header_choice::automatic;
    const std::vector<text_case> cases = {
        {"csv with a header", "a,b\n1,2\n3,4\n", ',', automatic, {"a", "b"}, 2, {1, 2, 3, 4}},
        {"no header detected", "1,2\n3,4\n", ',', automatic, {}, 2, {1, 2, 3, 4}},
        {"blanks around fields, CRLF",
         " a , b \r\n 1 , 2 \r\n",
         ',',
         automatic,
         {"a", "b"},
         2,
         {1, 2}},
        {"blank lines and comments skipped",
         "# note\n\nx\n1\n\n  # more\n2\n",
         ',',
         automatic,
         {"x"},
         1,
         {1, 2}},
        {"numbers in quotes, as some writers quote every field",
         "\"a\",\"b\"\n\"1.5\",\" 2\"\n",
         ',',
         automatic,
         {"a", "b"},
         2,
         {1.5, 2}},
        {"no final newline", "1 2\n3 4", 0, automatic, {}, 2, {1, 2, 3, 4}},
        {"runs of blanks and tabs",
         "  1\t\t2   3\n4 5 6\n",
         0,
         automatic,
         {},
         3,
         {1, 2, 3, 4, 5, 6}},
        {"forms of numbers",
         "+1.5,-2e3,.25,1E-2\n",
         ',',
         automatic,
         {},
         4,
         {1.5, -2000, 0.25, 0.01}},
        {"quoted names with the delimiter",
         "\"a,1\",\"say \"\"b\"\"\"\n1,2\n",
         ',',
         automatic,
         {"a,1", "say \"b\""},
         2,
         {1, 2}},
        {"numeric header forced", "1;2\n3;4\n", ';', header_choice::present, {"1", "2"}, 2, {3, 4}},
        {"header refused: its row must be numbers",
         "7,8\n",
         ',',
         header_choice::absent,
         {},
         2,
         {7, 8}},
    };
    for (const text_case& c : cases) {
        SCOPED_TRACE(c.what);
        data_matrix m;
        ASSERT_NO_THROW(m = parse_text("f", c.contents, c.delimiter, c.header));
        EXPECT_EQ(m.names, c.names);
        EXPECT_EQ(m.n_dims, c.dims);
        EXPECT_FALSE(m.row_major);
        EXPECT_EQ(m.n_observations, static_cast<std::int64_t>(c.values.size()) / c.dims);
        EXPECT_EQ(m.values, c.values);
    }
}

TEST(qnd_stats_text_reader, refusals_name_file_line_and_field) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"a,b\n1,2\n3\n", "data.csv, line 3: 1 field, expected 2 as on line 1"},
        {"# c\n1,2\n\n3,4,5\n", "data.csv, line 4: 3 fields, expected 2 as on line 2"},
        {"a,b\n1,2\n3,x4\n", "data.csv, line 3, field 2: 'x4' is not a number"},
        {"1,2\n3,\n", "data.csv, line 2, field 2: empty field"},
        {"1,2\n1e999,2\n", "data.csv, line 2, field 1: '1e999' is out of the range of double"},
        {"1,2\n\"3x\",4\n", "data.csv, line 2, field 1: '3x' is not a number"},
        {"1,2\n3,4 5\n", "data.csv, line 2, field 2: '4 5' is not a number"},
        {"1,2\n+-3,4\n", "data.csv, line 2, field 1: '+-3' is not a number"},
        {"a,,c\n1,2,3\n", "data.csv, line 1, field 2: empty name in the header row"},
        {"a,b\n", "data.csv: no observations"},
        {"", "data.csv: no observations"},
        {"\n# only a comment\n", "data.csv: no observations"},
    };
    for (const auto& c : cases) {
        std::string text = "(no error)";
        try {
            parse_text("data.csv", c.first, ',', header_choice::automatic);
        } catch (const input_error& e) {
            text = e.what();
        }
        EXPECT_EQ(text, c.second) << c.first;
    }
}

// A .npy file as NumPy writes it: magic, version, little-endian header length, a dict padded
// with blanks to a multiple of 64 bytes and ended by a newline, then the data.
std::string npy(const std::string& dict, const std::string& data, int version = 1) {
    const std::size_t len_bytes = version == 1 ? 2 : 4;
    std::string header = dict;
    while ((8 + len_bytes + header.size() + 1) % 64 != 0)
        header += ' ';
    header += '\n';
    std::string s = "\x93NUMPY";
    s += static_cast<char>(version);
    s += '\0';
    for (std::size_t k = 0; k < len_bytes; ++k)
        s += static_cast<char>((header.size() >> (8 * k)) & 0xff);
    return s + header + data;
}

template <typename T>
std::string bytes_of(const std::vector<T>& v, bool swap = false) {
    std::string s(v.size() * sizeof(T), '\0');
    std::memcpy(&s[0], v.data(), s.size());
    if (swap)
        for (std::size_t i = 0; i < v.size(); ++i)
            for (std::size_t k = 0; k < sizeof(T) / 2; ++k)
                std::swap(s[i * sizeof(T) + k], s[i * sizeof(T) + sizeof(T) - 1 - k]);
    return s;
}

TEST(qnd_stats_npy_reader, reads_both_types_orders_and_versions) {
    const std::vector<double> six = {1, 2, 3, 4, 5, 6};
    const std::vector<float> six_f = {1.5f, 2, 3, 4, 5, 6.25f};
    struct npy_case {
        const char* what;
        std::string file;
        std::int64_t obs, dims;
        bool row_major;
        std::vector<double> values;
    };
    const std::vector<npy_case> cases = {
        {"C order float64",
         npy("{'descr': '<f8', 'fortran_order': False, 'shape': (3, 2), }", bytes_of(six)), 3, 2,
         false, six},
        {"Fortran order float64",
         npy("{'descr': '<f8', 'fortran_order': True, 'shape': (2, 3), }", bytes_of(six)), 2, 3,
         true, six},
        {"float32, version 2",
         npy("{'descr': '<f4', 'fortran_order': False, 'shape': (6,), }", bytes_of(six_f), 2),
         6,
         1,
         false,
         {1.5, 2, 3, 4, 5, 6.25}},
        {"big-endian float64",
         npy("{'descr': '>f8', 'fortran_order': False, 'shape': (1, 6), }", bytes_of(six, true)), 1,
         6, false, six},
        {"keys in another order, version 3",
         npy("{'shape': (3, 2), 'fortran_order': False, 'descr': '<f8'}", bytes_of(six), 3), 3, 2,
         false, six},
    };
    for (const npy_case& c : cases) {
        SCOPED_TRACE(c.what);
        data_matrix m;
        ASSERT_NO_THROW(m = parse_npy("f.npy", c.file));
        EXPECT_EQ(m.n_observations, c.obs);
        EXPECT_EQ(m.n_dims, c.dims);
        EXPECT_EQ(m.row_major, c.row_major);
        EXPECT_EQ(m.values, c.values);
    }
    // Fortran order: element (observation 1, dimension 2) is at 2 * 2 + 1.
    const data_matrix f = parse_npy(
        "f.npy", npy("{'descr': '<f8', 'fortran_order': True, 'shape': (2, 3), }", bytes_of(six)));
    EXPECT_EQ(f.at(2, 1), 6);
    EXPECT_EQ(f.at(1, 0), 3);
}

TEST(qnd_stats_npy_reader, refusals_say_what_is_wrong) {
    const std::string d6 = bytes_of(std::vector<double>{1, 2, 3, 4, 5, 6});
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"1,2,3\n", "f.npy: not a NumPy .npy file (no \\x93NUMPY at its start)"},
        {npy("{'descr': '<i4', 'fortran_order': False, 'shape': (6,), }", d6),
         "f.npy: element type '<i4' is not supported (float32 or float64 only)"},
        {npy("{'descr': '<f8', 'fortran_order': False, 'shape': (1, 2, 3), }", d6),
         "f.npy: shape (1, 2, 3) has 3 axes; one (observations) or two (observations, "
         "dimensions) are supported"},
        {npy("{'descr': '<f8', 'fortran_order': False, 'shape': (4, 2), }", d6),
         "f.npy: shape (4, 2) of float64 needs 64 bytes of data, the file holds 48"},
        {npy("{'descr': '<f8', 'fortran_order': False, 'shape': (1000000000000000, 1000000), }",
             d6),
         "f.npy: shape (1000000000000000, 1000000) is too large (more than 9223372036854775807 "
         "bytes)"},
        {npy("{'descr': '<f4', 'fortran_order': False, 'shape': (2305843009213693952,), }", d6),
         "f.npy: shape (2305843009213693952,) is too large (more than 9223372036854775807 bytes)"},
        {npy("{'descr': '<f8', 'fortran_order': False, 'shape': (12345678901234567890,), }", d6),
         "f.npy: shape (12345678901234567890,) is too large (an axis of 12345678901234567890)"},
        {npy("{'descr': '<f8', 'fortran_order': False, 'shape': (0, 2), }", ""),
         "f.npy: no observations (shape (0, 2))"},
        {npy("{'descr': '<f8', 'shape': (6,), }", d6),
         "f.npy: the .npy header has no 'fortran_order'"},
        {npy("{'descr': '<f8', 'fortran_order': False, 'shape': (6,), }", d6, 7),
         "f.npy: .npy format version 7 is not supported (1, 2 or 3 only)"},
        {npy("{'descr': '<f8', 'fortran_order': False, 'shape': (6,), }", d6).substr(0, 40),
         "f.npy: the .npy header is cut short"},
    };
    for (const auto& c : cases) {
        std::string text = "(no error)";
        try {
            parse_npy("f.npy", c.first);
        } catch (const input_error& e) {
            text = e.what();
        }
        EXPECT_EQ(text, c.second);
    }
}

TEST(qnd_stats_raw_reader, shapes_and_refusals) {
    const std::string d6 = bytes_of(std::vector<double>{1, 2, 3, 4, 5, 6});
    const data_matrix m = parse_raw("r.bin", d6, false, 2, 0, false);
    EXPECT_EQ(m.n_observations, 3);
    EXPECT_EQ(m.at(1, 2), 6);
    const data_matrix r = parse_raw("r.bin", d6, false, 2, 3, true);
    EXPECT_TRUE(r.row_major);
    EXPECT_EQ(r.at(1, 0), 4);
    const data_matrix f =
        parse_raw("r.bin", bytes_of(std::vector<float>{0.5f, 8}), true, 1, 0, false);
    EXPECT_EQ(f.values, (std::vector<double>{0.5, 8}));

    const std::vector<std::pair<std::function<void()>, std::string>> refusals = {
        {[&] { parse_raw("r.bin", d6, false, 4, 0, false); },
         "r.bin: 48 bytes are not a whole number of observations of 4 float64 values (32 bytes "
         "each)"},
        {[&] { parse_raw("r.bin", d6, false, 2, 4, false); },
         "r.bin: 4 observations of 2 float64 values need 64 bytes, the file holds 48"},
        {[&] { parse_raw("r.bin", d6, false, 7, 7905747460161236407, false); },
         "r.bin: --dims 7 x --observations 7905747460161236407 is too large (more than "
         "9223372036854775807 bytes)"},
        {[&] { parse_raw("r.bin", "", true, 1, 0, false); },
         "r.bin: no observations (the file is empty)"},
    };
    for (const auto& c : refusals) {
        std::string text = "(no error)";
        try {
            c.first();
        } catch (const input_error& e) {
            text = e.what();
        }
        EXPECT_EQ(text, c.second);
    }
}

TEST(qnd_stats_read_data, picks_the_format_by_extension) {
    EXPECT_EQ(format_of("a/b.NPY"), input_format::npy);
    EXPECT_EQ(format_of("b.csv"), input_format::csv);
    EXPECT_EQ(format_of("b.bin"), input_format::raw);
    EXPECT_EQ(format_of("b.raw"), input_format::raw);
    EXPECT_EQ(format_of("b.txt"), input_format::text);
    EXPECT_EQ(format_of("dir.csv/b"), input_format::text);
    std::string text;
    try {
        read_file("/nonexistent/x.csv");
    } catch (const input_error& e) {
        text = e.what();
    }
    EXPECT_EQ(text, "/nonexistent/x.csv: cannot open: No such file or directory");
}

}  // namespace
}  // namespace qnd_stats
