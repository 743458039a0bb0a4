// Resolution of the weights, the mask of dimensions and a caller's mean against the data read.
#include "stats_job.hpp"

#include <charconv>

#include "readers.hpp"
#include "tool_errors.hpp"

namespace qnd_stats {

namespace {

bool parse_int(const std::string& s, std::int64_t& v) {
    const auto r = std::from_chars(s.data(), s.data() + s.size(), v);
    return !s.empty() && r.ec == std::errc() && r.ptr == s.data() + s.size();
}

// The 0-based column that `item` names: a header name first, else a number from 1.
std::int64_t column_of(const std::string& option,
                       const std::string& item,
                       const data_matrix& data) {
    std::int64_t found = -1;
    for (std::size_t k = 0; k < data.names.size(); ++k) {
        if (data.names[k] != item)
            continue;
        if (found >= 0)
            throw input_error(option + ": the name '" + item + "' is on more than one column");
        found = static_cast<std::int64_t>(k);
    }
    if (found >= 0)
        return found;
    std::int64_t n = 0;
    const std::string range = "1 to " + std::to_string(data.n_dims);
    if (!parse_int(item, n))
        throw input_error(option + ": '" + item + "' is neither a column number (" + range + ")" +
                          (data.names.empty() ? "" : " nor a name of the header"));
    if (n < 1 || n > data.n_dims)
        throw input_error(option + ": column " + item + " is not in " + range);
    return n - 1;
}

std::vector<bool> resolve_mask(const std::string& text, const data_matrix& data) {
    std::vector<bool> keep(static_cast<std::size_t>(data.n_dims), false);
    for (const std::string& item : split_list(text)) {
        if (item.empty())
            throw input_error("--mask: empty item in '" + text + "'");
        const std::size_t dash = item.find('-');
        bool is_name = false;
        for (const auto& n : data.names)
            is_name = is_name || n == item;
        if (dash != std::string::npos && dash > 0 && !is_name) {
            const std::int64_t a = column_of("--mask", item.substr(0, dash), data);
            const std::int64_t b = column_of("--mask", item.substr(dash + 1), data);
            if (b < a)
                throw input_error("--mask: the range '" + item + "' runs backwards");
            for (std::int64_t k = a; k <= b; ++k)
                keep[static_cast<std::size_t>(k)] = true;
        } else {
            keep[static_cast<std::size_t>(column_of("--mask", item, data))] = true;
        }
    }
    return keep;
}

std::vector<double> read_weights(const std::string& path,
                                 const tool_options& options,
                                 std::int64_t n_observations) {
    tool_options w;
    w.format = format_of(path);
    w.raw_float32 = options.raw_float32;
    w.raw_dims = 1;
    const data_matrix m = read_data(path, w);
    if (m.n_dims != 1)
        throw input_error(path + ": " + std::to_string(m.n_dims) +
                          " columns; a weights file has one");
    if (m.n_observations != n_observations)
        throw input_error(path + ": " + std::to_string(m.n_observations) + " weights for " +
                          std::to_string(n_observations) + " observations");
    return m.values;
}

}  // namespace

stats_job prepare_job(data_matrix data, const tool_options& options) {
    stats_job job;
    std::int64_t weight_column = -1;
    if (!options.weight_column.empty()) {
        weight_column = column_of("--weight-column", options.weight_column, data);
        if (data.n_dims == 1)
            throw input_error("--weight-column: the data's only column cannot be the weights");
    }
    std::vector<bool> keep;
    if (!options.mask.empty()) {
        keep = resolve_mask(options.mask, data);
        if (weight_column >= 0 && keep[static_cast<std::size_t>(weight_column)])
            throw input_error("--mask: column " + std::to_string(weight_column + 1) +
                              " holds the weights and is not a dimension");
    }

    // Every column but the weights becomes a dimension, in the file's order.
    std::vector<std::int64_t> columns;
    for (std::int64_t k = 0; k < data.n_dims; ++k)
        if (k != weight_column)
            columns.push_back(k);
    for (std::int64_t k : columns) {
        const auto ku = static_cast<std::size_t>(k);
        job.names.push_back(data.names.empty() ? "x" + std::to_string(k + 1) : data.names[ku]);
        if (!keep.empty())
            job.indices.push_back(keep[ku] ? 1 : 0);
    }

    if (weight_column >= 0) {
        job.weights.resize(static_cast<std::size_t>(data.n_observations));
        for (std::int64_t i = 0; i < data.n_observations; ++i)
            job.weights[static_cast<std::size_t>(i)] = data.at(weight_column, i);
        data_matrix dims;
        dims.n_dims = static_cast<std::int64_t>(columns.size());
        dims.n_observations = data.n_observations;
        dims.row_major = data.row_major;
        dims.values.resize(static_cast<std::size_t>(dims.n_dims * dims.n_observations));
        for (std::int64_t d = 0; d < dims.n_dims; ++d)
            for (std::int64_t i = 0; i < dims.n_observations; ++i) {
                const std::int64_t at =
                    dims.row_major ? d * dims.n_observations + i : i * dims.n_dims + d;
                dims.values[static_cast<std::size_t>(at)] =
                    data.at(columns[static_cast<std::size_t>(d)], i);
            }
        job.data = std::move(dims);
    } else {
        job.data = std::move(data);
    }
    job.data.names.clear();

    if (!options.weights_file.empty())
        job.weights = read_weights(options.weights_file, options, job.data.n_observations);

    if (!options.user_mean.empty()) {
        const std::vector<std::string> items = split_list(options.user_mean);
        const auto n = static_cast<std::size_t>(job.data.n_dims);
        if (items.size() != 1 && items.size() != n)
            throw input_error("--mean: " + std::to_string(items.size()) + " values for " +
                              std::to_string(n) + " dimensions (give one, or one per dimension)");
        for (const std::string& item : items) {
            double v = 0;
            const auto r = std::from_chars(item.data(), item.data() + item.size(), v);
            if (item.empty() || r.ec != std::errc() || r.ptr != item.data() + item.size())
                throw input_error("--mean: '" + item + "' is not a number");
            job.user_mean.push_back(v);
        }
        if (job.user_mean.size() == 1)
            job.user_mean.assign(n, job.user_mean[0]);
    }
    return job;
}

}  // namespace qnd_stats
