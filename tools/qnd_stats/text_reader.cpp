// Delimited text: a CSV or a whitespace-separated table with an optional header row.
#include <charconv>
#include <cmath>
#include <string_view>

#include "progress.hpp"
#include "readers.hpp"
#include "tool_errors.hpp"

namespace qnd_stats {

namespace {

bool is_blank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

std::string_view trim(std::string_view s) {
    while (!s.empty() && is_blank(s.front()))
        s.remove_prefix(1);
    while (!s.empty() && is_blank(s.back()))
        s.remove_suffix(1);
    return s;
}

// One field of a delimited line. A field in double quotes may hold the delimiter; a doubled
// quote inside it stands for one.
struct field {
    std::string_view text;
    bool quoted = false;
};

void split_fields(std::string_view line, char delimiter, std::vector<field>& out) {
    out.clear();
    if (delimiter == 0) {
        std::size_t i = 0;
        while (i < line.size()) {
            while (i < line.size() && is_blank(line[i]))
                ++i;
            const std::size_t start = i;
            while (i < line.size() && !is_blank(line[i]))
                ++i;
            if (i > start)
                out.push_back({line.substr(start, i - start), false});
        }
        return;
    }
    std::size_t i = 0;
    while (true) {
        std::size_t start = i;
        while (start < line.size() && is_blank(line[start]) && line[start] != delimiter)
            ++start;
        if (start < line.size() && line[start] == '"') {
            // Quoted: find the closing quote, skipping doubled ones.
            std::size_t j = start + 1;
            while (j < line.size()) {
                if (line[j] == '"' && j + 1 < line.size() && line[j + 1] == '"')
                    j += 2;
                else if (line[j] == '"')
                    break;
                else
                    ++j;
            }
            std::size_t end = j < line.size() ? j + 1 : j;
            const std::size_t next = line.find(delimiter, end);
            out.push_back({line.substr(start + 1, j - start - 1), true});
            if (next == std::string_view::npos)
                return;
            i = next + 1;
            continue;
        }
        const std::size_t next = line.find(delimiter, i);
        out.push_back(
            {trim(line.substr(i, next == std::string_view::npos ? next : next - i)), false});
        if (next == std::string_view::npos)
            return;
        i = next + 1;
    }
}

enum class number_status { ok, empty, not_a_number, out_of_range };

number_status parse_number(std::string_view s, double& value) {
    s = trim(s);
    if (s.empty())
        return number_status::empty;
    // from_chars takes no '+' sign; a sign before another sign is not a number.
    if (s.front() == '+') {
        s.remove_prefix(1);
        if (s.empty() || s.front() == '-' || s.front() == '+')
            return number_status::not_a_number;
    }
    const auto r = std::from_chars(s.data(), s.data() + s.size(), value);
    if (r.ec == std::errc::result_out_of_range)
        return number_status::out_of_range;
    if (r.ec != std::errc() || r.ptr != s.data() + s.size())
        return number_status::not_a_number;
    return number_status::ok;
}

std::string unquote(const field& f) {
    if (!f.quoted)
        return std::string(f.text);
    std::string s;
    for (std::size_t i = 0; i < f.text.size(); ++i) {
        s += f.text[i];
        if (f.text[i] == '"' && i + 1 < f.text.size() && f.text[i + 1] == '"')
            ++i;
    }
    return s;
}

}  // namespace

data_matrix parse_text(const std::string& path,
                       const std::string& contents,
                       char delimiter,
                       header_choice header) {
    data_matrix m;
    std::vector<field> fields;
    std::size_t first_line = 0;
    bool header_pending = true;
    progress_meter meter("parsing " + path, contents.size());

    std::size_t pos = 0;
    std::size_t line_no = 0;
    while (pos < contents.size()) {
        std::size_t eol = contents.find('\n', pos);
        if (eol == std::string::npos)
            eol = contents.size();
        const std::string_view line(contents.data() + pos, eol - pos);
        const std::size_t line_start = pos;
        pos = eol + 1;
        ++line_no;
        if ((line_no & 0xfff) == 0)
            meter.update(line_start);

        const std::string_view content = trim(line);
        if (content.empty() || content.front() == '#')
            continue;
        split_fields(line, delimiter, fields);
        const std::string where = path + ", line " + std::to_string(line_no);

        if (header_pending) {
            header_pending = false;
            first_line = line_no;
            m.n_dims = static_cast<std::int64_t>(fields.size());
            bool is_header = header == header_choice::present;
            if (header == header_choice::automatic) {
                double v;
                for (const field& f : fields)
                    if (parse_number(f.text, v) != number_status::ok)
                        is_header = true;
            }
            if (is_header) {
                for (std::size_t k = 0; k < fields.size(); ++k) {
                    m.names.push_back(unquote(fields[k]));
                    if (m.names.back().empty())
                        throw input_error(where + ", field " + std::to_string(k + 1) +
                                          ": empty name in the header row");
                }
                continue;
            }
        }
        if (static_cast<std::int64_t>(fields.size()) != m.n_dims)
            throw input_error(where + ": " + std::to_string(fields.size()) +
                              (fields.size() == 1 ? " field" : " fields") + ", expected " +
                              std::to_string(m.n_dims) + " as on line " +
                              std::to_string(first_line));
        for (std::size_t k = 0; k < fields.size(); ++k) {
            double v = 0;
            const number_status st = parse_number(fields[k].text, v);
            if (st == number_status::ok) {
                m.values.push_back(v);
                continue;
            }
            const std::string at = where + ", field " + std::to_string(k + 1) + ": ";
            if (st == number_status::empty)
                throw input_error(at + "empty field");
            if (st == number_status::out_of_range)
                throw input_error(at + "'" + std::string(trim(fields[k].text)) +
                                  "' is out of the range of double");
            throw input_error(at + "'" + unquote(fields[k]) + "' is not a number");
        }
        ++m.n_observations;
    }
    if (m.n_observations == 0)
        throw input_error(path + ": no observations");
    return m;
}

}  // namespace qnd_stats
