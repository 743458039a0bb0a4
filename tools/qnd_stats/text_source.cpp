// Delimited text: a CSV or a whitespace-separated table with an optional header row, read in
// blocks of whole lines that all cores parse at once.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <string_view>
#include <thread>

#include "progress.hpp"
#include "byte_input.hpp"
#include "data_source.hpp"
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

// The fields of a line that holds only plain numbers, without quotes, signs that from_chars
// refuses, or anything to report: appended to `out`. Anything else returns false with `out`
// as it was, and the careful path below takes the line.
bool parse_plain(
    const char* p, const char* end, char delimiter, std::size_t n_dims, std::vector<double>& out) {
    const std::size_t before = out.size();
    auto give_up = [&] {
        out.resize(before);
        return false;
    };
    if (delimiter == 0) {
        while (true) {
            while (p < end && is_blank(*p))
                ++p;
            if (p == end)
                break;
            double v;
            const auto r = std::from_chars(p, end, v);
            if (r.ec != std::errc() || (r.ptr < end && !is_blank(*r.ptr)))
                return give_up();
            out.push_back(v);
            p = r.ptr;
        }
    } else {
        while (true) {
            while (p < end && is_blank(*p) && *p != delimiter)
                ++p;
            double v;
            const auto r = std::from_chars(p, end, v);
            if (r.ec != std::errc())
                return give_up();
            out.push_back(v);
            p = r.ptr;
            while (p < end && is_blank(*p) && *p != delimiter)
                ++p;
            if (p == end)
                break;
            if (*p != delimiter)
                return give_up();
            ++p;
        }
    }
    return out.size() - before == n_dims ? true : give_up();
}

// The careful path: every field split and checked. Returns the error's text after "line N",
// or an empty string when the line's values were appended to `out`.
std::string parse_careful(std::string_view line,
                          char delimiter,
                          std::size_t n_dims,
                          std::int64_t first_line,
                          std::vector<double>& out) {
    std::vector<field> fields;
    split_fields(line, delimiter, fields);
    if (fields.size() != n_dims)
        return ": " + std::to_string(fields.size()) + (fields.size() == 1 ? " field" : " fields") +
               ", expected " + std::to_string(n_dims) + " as on line " + std::to_string(first_line);
    const std::size_t before = out.size();
    for (std::size_t k = 0; k < fields.size(); ++k) {
        double v = 0;
        const number_status st = parse_number(fields[k].text, v);
        if (st == number_status::ok) {
            out.push_back(v);
            continue;
        }
        out.resize(before);
        const std::string at = ", field " + std::to_string(k + 1) + ": ";
        if (st == number_status::empty)
            return at + "empty field";
        if (st == number_status::out_of_range)
            return at + "'" + std::string(trim(fields[k].text)) + "' is out of the range of double";
        return at + "'" + unquote(fields[k]) + "' is not a number";
    }
    return {};
}

// What one thread made of its share of a block of lines.
struct piece {
    std::vector<double> values;
    std::int64_t rows = 0;
    std::int64_t lines = 0;        // lines of the piece, through its last newline
    std::int64_t error_line = -1;  // the first bad line, counted from 0 in the piece
    std::string error;             // its text after "line N"
};

bool is_content(std::string_view line) {
    const std::string_view t = trim(line);
    return !t.empty() && t.front() != '#';
}

void parse_piece(const char* p,
                 const char* end,
                 char delimiter,
                 std::size_t n_dims,
                 std::int64_t first_line,
                 piece& out) {
    out.values.reserve(static_cast<std::size_t>(end - p) / 4);
    while (p < end) {
        const char* eol = static_cast<const char*>(std::memchr(p, '\n', end - p));
        if (eol == nullptr)
            eol = end;
        const std::int64_t line = out.lines++;
        const std::string_view text(p, static_cast<std::size_t>(eol - p));
        p = eol + 1;
        const char* c = text.data();
        const char* c_end = c + text.size();
        while (c < c_end && is_blank(*c))
            ++c;
        if (c == c_end || *c == '#')
            continue;
        if (!parse_plain(c, c_end, delimiter, n_dims, out.values)) {
            out.error = parse_careful(text, delimiter, n_dims, first_line, out.values);
            if (!out.error.empty()) {
                out.error_line = line;
                return;
            }
        }
        ++out.rows;
    }
}

struct text_source : data_source {
    text_source(const std::string& p, char delimiter_, header_choice header, const share& of)
        : in(p), delimiter(delimiter_), meter("reading " + p, in.size), whole(of.size == 1) {
        path = p;
        const unsigned threads = std::thread::hardware_concurrency();
        n_threads = threads == 0 ? 1 : threads;
        block_bytes = std::size_t(4) << 20;
        buf_offset = in.position;
        find_first_line(header);
        if (!whole)
            take_share(of);
    }

    // Every process reads the header; then each takes the lines that start in its share of the
    // bytes that follow.
    void take_share(const share& of) {
        if (!in.seekable)
            throw usage_error(path + ": standard input cannot be shared by " +
                              std::to_string(of.size) + " processes; give a file");
        const std::uint64_t start = buf_offset + line_start;
        const auto span = static_cast<std::int64_t>(in.size - std::min(in.size, start));
        const std::uint64_t begin = start + static_cast<std::uint64_t>(of.first_of(span));
        if (of.rank + 1 < of.size)
            range_end = start + static_cast<std::uint64_t>(of.first_of(span, 1));
        if (begin == start)
            return;
        first_row = -1;
        // The first line that starts at `begin` or later: the one after the newline at or
        // after begin - 1. Its number is counted only if an error needs it.
        in.seek(begin - 1);
        buf_offset = begin - 1;
        len = line_start = 0;
        at_eof = false;
        next_line = 0;
        lines_unknown = true;
        while (true) {
            const std::size_t from = len;
            fill_buffer(len + (std::size_t(1) << 16));
            const char* nl =
                len > from
                    ? static_cast<const char*>(std::memchr(buf.data() + from, '\n', len - from))
                    : nullptr;
            if (nl != nullptr) {
                line_start = static_cast<std::size_t>(nl - buf.data()) + 1;
                break;
            }
            if (at_eof) {
                line_start = len;
                break;
            }
        }
    }

    // The number of the line at `line` lines after where this share started counting.
    std::int64_t line_number(std::int64_t line) {
        if (!lines_unknown)
            return line;
        std::int64_t newlines = 0;
        std::vector<char> block(1 << 16);
        for (std::uint64_t at = 0; at < share_start;) {
            const std::size_t n =
                static_cast<std::size_t>(std::min<std::uint64_t>(block.size(), share_start - at));
            in.read_at(block.data(), n, at);
            newlines += std::count(block.data(), block.data() + n, '\n');
            at += n;
        }
        return newlines + 1 + line;
    }

    // Reads up to the first line that holds something, which decides the dimensions and
    // whether it names them.
    void find_first_line(header_choice header) {
        std::size_t scanned = 0;
        while (true) {
            if (line_start >= len && at_eof)
                return;  // nothing but blank lines and comments: no observations
            const char* eol = len > scanned ? static_cast<const char*>(std::memchr(
                                                  buf.data() + scanned, '\n', len - scanned))
                                            : nullptr;
            if (eol == nullptr) {
                if (!at_eof) {
                    scanned = len;
                    fill_buffer(len + (std::size_t(1) << 16));
                    continue;
                }
                eol = buf.data() + len;
            }
            const std::size_t line_end = static_cast<std::size_t>(eol - buf.data());
            const std::string_view line(buf.data() + line_start, line_end - line_start);
            if (!is_content(line)) {
                line_start = scanned = std::min(line_end + 1, len);
                ++first_line;
                continue;
            }
            std::vector<field> fields;
            split_fields(line, delimiter, fields);
            n_dims = static_cast<std::int64_t>(fields.size());
            bool is_header = header == header_choice::present;
            if (header == header_choice::automatic) {
                double v;
                for (const field& f : fields)
                    if (parse_number(f.text, v) != number_status::ok)
                        is_header = true;
            }
            if (is_header) {
                for (std::size_t k = 0; k < fields.size(); ++k) {
                    names.push_back(unquote(fields[k]));
                    if (names.back().empty())
                        throw input_error(path + ", line " + std::to_string(first_line) +
                                          ", field " + std::to_string(k + 1) +
                                          ": empty name in the header row");
                }
                line_start = std::min(line_end + 1, len);
                next_line = first_line + 1;
            } else {
                next_line = first_line;
            }
            return;
        }
    }

    // Reads until the buffer holds `want` bytes or the input ends.
    void fill_buffer(std::size_t want) {
        // A file's size is known: a byte more than its rest shows the end without a larger buffer.
        if (in.seekable && in.size >= in.position)
            want = std::min<std::uint64_t>(want, len + (in.size - in.position) + 1);
        if (want > buf.size())
            buf.resize(want);
        if (!at_eof && len < want) {
            const std::size_t n = in.read(buf.data() + len, want - len);
            len += n;
            at_eof = len < want;
            meter.update(in.position);
        }
    }

    // Parses the next block of whole lines. False at the end of the input.
    bool parse_block() {
        if (range_done)
            return false;
        if (lines_unknown && share_start == 0)
            share_start = buf_offset + line_start;
        // Keep the unparsed tail at the front; the rest of the buffer is refilled.
        std::memmove(buf.data(), buf.data() + line_start, len - line_start);
        len -= line_start;
        buf_offset += line_start;
        line_start = 0;
        std::size_t cut = 0;
        while (true) {
            fill_buffer(std::max(block_bytes, len + (std::size_t(1) << 16)));
            if (buf_offset + len >= range_end) {
                // The share ends with the line that holds its last byte.
                if (range_end <= buf_offset)
                    return false;
                const std::size_t last = static_cast<std::size_t>(range_end - buf_offset) - 1;
                const char* nl =
                    static_cast<const char*>(std::memchr(buf.data() + last, '\n', len - last));
                if (nl != nullptr || at_eof) {
                    cut = nl ? static_cast<std::size_t>(nl - buf.data()) + 1 : len;
                    range_done = true;
                    break;
                }
                block_bytes *= 2;
                continue;
            }
            if (at_eof) {
                cut = len;
                break;
            }
            const char* last = static_cast<const char*>(memrchr(buf.data(), '\n', len));
            if (last != nullptr) {
                cut = static_cast<std::size_t>(last - buf.data()) + 1;
                break;
            }
            block_bytes *= 2;  // a line longer than a block
        }
        if (cut == 0)
            return false;

        // One share per thread, each ending at a newline.
        const std::size_t n = cut < (std::size_t(1) << 16) ? 1 : n_threads;
        std::vector<std::size_t> starts{0};
        for (std::size_t k = 1; k < n; ++k) {
            std::size_t at = std::max(starts.back(), cut * k / n);
            const char* nl = static_cast<const char*>(std::memchr(buf.data() + at, '\n', cut - at));
            at = nl ? static_cast<std::size_t>(nl - buf.data()) + 1 : cut;
            starts.push_back(at);
        }
        starts.push_back(cut);
        // Each piece keeps its array from block to block: no fresh pages to fault in each time.
        pieces.resize(n);
        for (piece& pc : pieces) {
            pc.values.clear();
            pc.rows = pc.lines = 0;
            pc.error_line = -1;
        }
        auto work = [&](std::size_t k) {
            parse_piece(buf.data() + starts[k], buf.data() + starts[k + 1], delimiter,
                        static_cast<std::size_t>(n_dims), first_line, pieces[k]);
        };
        std::vector<std::thread> helpers;
        for (std::size_t k = 1; k < n; ++k)
            helpers.emplace_back(work, k);
        work(0);
        for (std::thread& t : helpers)
            t.join();
        for (const piece& pc : pieces) {
            if (pc.error_line >= 0)
                throw input_error(path + ", line " +
                                  std::to_string(line_number(next_line + pc.error_line)) +
                                  pc.error);
            next_line += pc.lines;
        }
        line_start = cut;
        piece_at = 0;
        row_at = 0;
        return true;
    }

    std::int64_t read(const chunk_array& to, std::int64_t max_rows) override {
        const auto d = static_cast<std::size_t>(n_dims);
        std::int64_t got = 0;
        while (got < max_rows && n_dims > 0) {
            if (piece_at == pieces.size()) {
                if (!parse_block())
                    break;
                continue;
            }
            piece& pc = pieces[piece_at];
            const std::int64_t take = std::min(max_rows - got, pc.rows - row_at);
            const double* from = pc.values.data() + static_cast<std::size_t>(row_at) * d;
            const std::size_t count = static_cast<std::size_t>(take) * d;
            const std::size_t at = static_cast<std::size_t>(got) * d;
            if (to.f64)
                std::copy(from, from + count, to.f64 + at);
            else
                for (std::size_t k = 0; k < count; ++k)
                    to.f32[at + k] = static_cast<float>(from[k]);
            row_at += take;
            got += take;
            if (row_at == pc.rows) {
                ++piece_at;
                row_at = 0;
            }
        }
        rows += got;
        if (got == 0)
            finish();
        return got;
    }

    void finish() {
        meter.finish();
        if (rows == 0 && whole)
            throw input_error(path + ": no observations");
        in.check_unchanged();
    }

    byte_input in;
    char delimiter;
    progress_meter meter;
    std::size_t n_threads = 1;
    std::size_t block_bytes = 0;
    std::vector<char> buf;
    std::size_t len = 0;         // bytes of buf that hold input
    std::size_t line_start = 0;  // where the first line not yet parsed starts in buf
    bool at_eof = false;
    std::int64_t first_line = 1;           // the first line that holds something (a header or data)
    std::int64_t next_line = 1;            // the number of the line at line_start
    bool whole = true;                     // the whole file, not a share of several processes
    std::uint64_t buf_offset = 0;          // where buf starts in the input
    std::uint64_t range_end = UINT64_MAX;  // lines that start here or later are another's
    bool range_done = false;
    bool lines_unknown = false;     // a share's lines are counted from its own start
    std::uint64_t share_start = 0;  // where that start is
    std::vector<piece> pieces;
    std::size_t piece_at = 0;
    std::int64_t row_at = 0;
    std::int64_t rows = 0;
};

}  // namespace

std::unique_ptr<data_source> open_text(const std::string& path,
                                       char delimiter,
                                       header_choice header,
                                       const share& of) {
    return std::make_unique<text_source>(path, delimiter, header, of);
}

}  // namespace qnd_stats
