// Formatting of the results as a table, CSV or JSON.
#include "report.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace qnd_stats {

namespace {

std::string number(double v, int digits) {
    if (std::isnan(v))
        return "nan";
    if (std::isinf(v))
        return v > 0 ? "inf" : "-inf";
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.*g", digits, v);
    return buf;
}

std::string csv_field(const std::string& s) {
    if (s.find_first_of(",\"\n\r") == std::string::npos)
        return s;
    std::string q = "\"";
    for (char c : s) {
        q += c;
        if (c == '"')
            q += '"';
    }
    return q + "\"";
}

std::string json_string(const std::string& s) {
    std::string q = "\"";
    for (char c : s) {
        const auto u = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            q += '\\';
            q += c;
        } else if (u < 0x20) {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\u%04x", u);
            q += buf;
        } else {
            q += c;
        }
    }
    return q + "\"";
}

std::string json_number(double v, int digits) {
    return std::isfinite(v) ? number(v, digits) : "null";
}

// Columns on a terminal: UTF-8 continuation bytes take none.
std::size_t display_width(const std::string& s) {
    return static_cast<std::size_t>(
        std::count_if(s.begin(), s.end(), [](char c) { return (c & 0xc0) != 0x80; }));
}

const histogram* histogram_of(const report_context& c, const stats_job& job, std::size_t d) {
    if (c.histograms.empty())
        return nullptr;
    const histogram& h = c.histograms[static_cast<std::size_t>(job.columns[d])];
    return h.bins.empty() ? nullptr : &h;
}

// One bar per bin, its height proportional to the bin's count; an empty bin is a blank.
std::string bars(const histogram* h) {
    if (h == nullptr)
        return "-";
    static const char* const levels[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    const double top = *std::max_element(h->bins.begin(), h->bins.end());
    std::string s;
    for (double b : h->bins)
        s += b > 0 ? levels[std::min(7, static_cast<int>(b / top * 8))] : " ";
    return s;
}

std::string bin_list(const histogram* h, int digits, const char* separator) {
    std::string s;
    for (std::size_t k = 0; h != nullptr && k < h->bins.size(); ++k)
        s += (k ? separator : "") + number(h->bins[k], digits);
    return s;
}

std::vector<std::size_t> kept_dims(const stats_job& job) {
    std::vector<std::size_t> dims;
    for (std::size_t d = 0; d < job.columns.size(); ++d)
        if (kept(job, d))
            dims.push_back(d);
    return dims;
}

std::string table(const report_context& c,
                  const stats_job& job,
                  const std::vector<quantity>& results) {
    const std::vector<std::size_t> dims = kept_dims(job);
    // Quantities are rows, dimensions columns: a few dimensions read best side by side.
    std::vector<std::vector<std::string>> cells;
    cells.push_back({""});
    for (std::size_t d : dims)
        cells[0].push_back(job.names[d]);
    for (const quantity& q : results) {
        cells.push_back({q.name});
        for (std::size_t d : dims)
            cells.back().push_back(number(q.values[d], 7));
    }
    if (!c.histograms.empty()) {
        cells.push_back({"histogram"});
        for (std::size_t d : dims)
            cells.back().push_back(bars(histogram_of(c, job, d)));
    }
    std::vector<std::size_t> width(dims.size() + 1, 0);
    for (const auto& row : cells)
        for (std::size_t k = 0; k < row.size(); ++k)
            width[k] = std::max(width[k], display_width(row[k]));

    const std::size_t n = static_cast<std::size_t>(job.n_observations);
    std::string s =
        c.file + ": " + std::to_string(n) + (n == 1 ? " observation" : " observations") + ", " +
        std::to_string(dims.size()) + (dims.size() == 1 ? " dimension" : " dimensions") +
        (weighted(job) ? ", weighted" : "") +
        (job.user_mean.empty() ? "" : ", around the given mean") + "; " +
        (c.use_float ? "float" : "double") + " on " + c.device + "\n";
    for (const auto& row : cells) {
        std::string line = row[0] + std::string(width[0] - display_width(row[0]), ' ');
        for (std::size_t k = 1; k < row.size(); ++k)
            line += "  " + std::string(width[k] - display_width(row[k]), ' ') + row[k];
        s += line + "\n";
    }
    return s;
}

std::string csv(const report_context& c,
                const stats_job& job,
                const std::vector<quantity>& results) {
    const int digits = c.use_float ? 9 : 17;
    std::string s = "dimension";
    for (const quantity& q : results)
        s += "," + q.name;
    s += c.histograms.empty() ? "\n" : ",histogram\n";
    for (std::size_t d : kept_dims(job)) {
        s += csv_field(job.names[d]);
        for (const quantity& q : results)
            s += "," + number(q.values[d], digits);
        if (!c.histograms.empty())
            s += "," + bin_list(histogram_of(c, job, d), digits, " ");
        s += "\n";
    }
    return s;
}

std::string json(const report_context& c,
                 const stats_job& job,
                 const std::vector<quantity>& results) {
    const int digits = c.use_float ? 9 : 17;
    std::string s = "{\n";
    s += "  \"file\": " + json_string(c.file) + ",\n";
    s += "  \"device\": " + json_string(c.device) + ",\n";
    s += "  \"type\": \"" + std::string(c.use_float ? "float" : "double") + "\",\n";
    s += "  \"observations\": " + std::to_string(job.n_observations) + ",\n";
    s += "  \"weighted\": " + std::string(weighted(job) ? "true" : "false") + ",\n";
    s += "  \"dimensions\": [";
    const std::vector<std::size_t> dims = kept_dims(job);
    for (std::size_t k = 0; k < dims.size(); ++k) {
        const std::size_t d = dims[k];
        s += k ? ",\n    {" : "\n    {";
        s += "\"name\": " + json_string(job.names[d]);
        if (!job.user_mean.empty())
            s += ", \"given_mean\": " + json_number(job.user_mean[d], digits);
        for (const quantity& q : results)
            s += ", " + json_string(q.name) + ": " + json_number(q.values[d], digits);
        if (!c.histograms.empty()) {
            const histogram* h = histogram_of(c, job, d);
            s += ", \"histogram\": ";
            s += h == nullptr ? "null"
                              : "{\"low\": " + json_number(h->low, digits) +
                                    ", \"high\": " + json_number(h->high, digits) +
                                    ", \"bins\": [" + bin_list(h, digits, ", ") + "]}";
        }
        s += "}";
    }
    s += dims.empty() ? "]\n}\n" : "\n  ]\n}\n";
    return s;
}

}  // namespace

std::string format_report(const report_context& context,
                          const stats_job& job,
                          const std::vector<quantity>& results,
                          output_format format) {
    switch (format) {
        case output_format::csv:
            return csv(context, job, results);
        case output_format::json:
            return json(context, job, results);
        default:
            return table(context, job, results);
    }
}

}  // namespace qnd_stats
