// Resolution of the weights, the mask of dimensions and a caller's mean against the file's columns.
#include "stats_job.hpp"

#include <charconv>

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
                       const data_source& data) {
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

std::vector<bool> resolve_mask(const std::string& text, const data_source& data) {
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

}  // namespace

stats_job prepare_job(const data_source& data, const tool_options& options) {
    stats_job job;
    job.path = data.path;
    job.n_columns = data.n_dims;
    job.weights_file = options.weights_file;
    if (!options.weight_column.empty()) {
        job.weight_column = column_of("--weight-column", options.weight_column, data);
        if (data.n_dims == 1)
            throw input_error("--weight-column: the data's only column cannot be the weights");
    }
    std::vector<bool> keep;
    if (!options.mask.empty()) {
        keep = resolve_mask(options.mask, data);
        if (job.weight_column >= 0 && keep[static_cast<std::size_t>(job.weight_column)])
            throw input_error("--mask: column " + std::to_string(job.weight_column + 1) +
                              " holds the weights and is not a dimension");
    }
    // Every column but the weights becomes a dimension, in the file's order.
    for (std::int64_t k = 0; k < data.n_dims; ++k) {
        const auto ku = static_cast<std::size_t>(k);
        if (k != job.weight_column) {
            job.columns.push_back(k);
            job.names.push_back(data.names.empty() ? "x" + std::to_string(k + 1) : data.names[ku]);
        }
        if (!keep.empty() || job.weight_column >= 0)
            job.indices.push_back(k != job.weight_column && (keep.empty() || keep[ku]) ? 1 : 0);
    }

    if (!options.user_mean.empty()) {
        const std::vector<std::string> items = split_list(options.user_mean);
        const std::size_t n = job.columns.size();
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
