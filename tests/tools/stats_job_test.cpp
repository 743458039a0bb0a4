// Resolution of weights, masks and a caller's mean against the data, and the refusals' texts.
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "readers.hpp"
#include "stats_job.hpp"
#include "temp_files.hpp"
#include "tool_errors.hpp"

namespace qnd_stats {
namespace {

// Three observations of the columns a, w, b, c.
data_matrix sample() {
    return parse_text("d.csv", "a,w,b,c\n1,10,2,3\n4,20,5,6\n7,30,8,9\n", ',',
                      header_choice::automatic);
}

TEST(qnd_stats_job, weight_column_leaves_the_dimensions) {
    tool_options o;
    o.weight_column = "w";
    const stats_job job = prepare_job(sample(), o);
    EXPECT_EQ(job.names, (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(job.weights, (std::vector<double>{10, 20, 30}));
    EXPECT_EQ(job.data.n_dims, 3);
    EXPECT_EQ(job.data.values, (std::vector<double>{1, 2, 3, 4, 5, 6, 7, 8, 9}));
    o.weight_column = "2";
    EXPECT_EQ(prepare_job(sample(), o).weights, (std::vector<double>{10, 20, 30}));
}

TEST(qnd_stats_job, masks_by_number_range_and_name_count_the_file_columns) {
    tool_options o;
    o.weight_column = "2";
    o.mask = "1,c";
    EXPECT_EQ(prepare_job(sample(), o).indices, (std::vector<std::int64_t>{1, 0, 1}));
    o.mask = "3-4";
    EXPECT_EQ(prepare_job(sample(), o).indices, (std::vector<std::int64_t>{0, 1, 1}));
    o = tool_options();
    o.mask = "b-c";
    EXPECT_EQ(prepare_job(sample(), o).indices, (std::vector<std::int64_t>{0, 0, 1, 1}));
    o.mask = "";
    EXPECT_TRUE(prepare_job(sample(), o).indices.empty());
    // Without a header the dimensions are named after their columns.
    o.weight_column = "1";
    const stats_job plain =
        prepare_job(parse_text("p", "1 2 3\n4 5 6\n", 0, header_choice::automatic), o);
    EXPECT_EQ(plain.names, (std::vector<std::string>{"x2", "x3"}));
}

TEST(qnd_stats_job, caller_mean_is_one_value_or_one_per_dimension) {
    tool_options o;
    o.user_mean = "2.5";
    EXPECT_EQ(prepare_job(sample(), o).user_mean, (std::vector<double>(4, 2.5)));
    o.user_mean = "1,-2,3e1,4";
    EXPECT_EQ(prepare_job(sample(), o).user_mean, (std::vector<double>{1, -2, 30, 4}));
}

TEST(qnd_stats_job, weights_file_must_match_the_observations) {
    tool_options o;
    o.weights_file = write_file("w_ok.txt", "weight\n0.5\n1\n2\n");
    EXPECT_EQ(prepare_job(sample(), o).weights, (std::vector<double>{0.5, 1, 2}));

    const std::vector<std::pair<std::string, std::string>> cases = {
        {write_file("w_short.txt", "1\n2\n"), "w_short.txt: 2 weights for 3 observations"},
        {write_file("w_wide.csv", "1,2\n3,4\n5,6\n"),
         "w_wide.csv: 2 columns; a weights file has one"},
        {write_file("w_bad.txt", "1\nheavy\n3\n"),
         "w_bad.txt, line 2, field 1: 'heavy' is not a number"},
    };
    for (const auto& c : cases) {
        o.weights_file = c.first;
        std::string text = "(no error)";
        try {
            prepare_job(sample(), o);
        } catch (const input_error& e) {
            text = e.what();
        }
        EXPECT_EQ(text, temp_path(c.second));
    }
}

TEST(qnd_stats_job, refusals_name_the_option) {
    struct refusal {
        const char* weight_column;
        const char* mask;
        const char* mean;
        std::string text;
    };
    const std::vector<refusal> cases = {
        {"q", "", "",
         "--weight-column: 'q' is neither a column number (1 to 4) nor a name of "
         "the header"},
        {"5", "", "", "--weight-column: column 5 is not in 1 to 4"},
        {"", "0", "", "--mask: column 0 is not in 1 to 4"},
        {"", "1,,2", "", "--mask: empty item in '1,,2'"},
        {"", "3-1", "", "--mask: the range '3-1' runs backwards"},
        {"", "a-z", "", "--mask: 'z' is neither a column number (1 to 4) nor a name of the header"},
        {"w", "a,w", "", "--mask: column 2 holds the weights and is not a dimension"},
        {"", "", "1,2", "--mean: 2 values for 4 dimensions (give one, or one per dimension)"},
        {"w", "", "1,2,3,4", "--mean: 4 values for 3 dimensions (give one, or one per dimension)"},
        {"", "", "1,x,3,4", "--mean: 'x' is not a number"},
    };
    for (const refusal& c : cases) {
        tool_options o;
        o.weight_column = c.weight_column;
        o.mask = c.mask;
        o.user_mean = c.mean;
        std::string text = "(no error)";
        try {
            prepare_job(sample(), o);
        } catch (const input_error& e) {
            text = e.what();
        }
        EXPECT_EQ(text, c.text);
    }
    tool_options o;
    o.weight_column = "1";
    std::string text;
    try {
        prepare_job(parse_text("p", "1\n2\n", 0, header_choice::automatic), o);
    } catch (const input_error& e) {
        text = e.what();
    }
    EXPECT_EQ(text, "--weight-column: the data's only column cannot be the weights");
}

}  // namespace
}  // namespace qnd_stats
