// Binary data files: NumPy .npy (float32 or float64, one or two axes, C or Fortran order) and
// raw. A chunk is read straight into its array when the element type and byte order match.
#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>
#include <regex>

#include "byte_input.hpp"
#include "data_source.hpp"
#include "tool_errors.hpp"

namespace qnd_stats {

namespace {

std::uint64_t little_endian(const unsigned char* s, std::size_t bytes) {
    std::uint64_t v = 0;
    for (std::size_t k = 0; k < bytes; ++k)
        v |= static_cast<std::uint64_t>(s[k]) << (8 * k);
    return v;
}

// The bytes of `a` x `b` values of `element` bytes each, as claimed by a header or the command
// line; a product that does not fit in memory's address range is refused before anything is
// allocated, so that a wrapped count can never pass as a small file.
std::uint64_t claimed_bytes(const std::string& path,
                            std::uint64_t a,
                            std::uint64_t b,
                            std::size_t element,
                            const std::string& what) {
    std::uint64_t count = 0;
    std::uint64_t bytes = 0;
    if (__builtin_mul_overflow(a, b, &count) || __builtin_mul_overflow(count, element, &bytes) ||
        bytes > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()))
        throw input_error(path + ": " + what + " is too large (more than " +
                          std::to_string(std::numeric_limits<std::int64_t>::max()) + " bytes)");
    return bytes;
}

// The value of one key of the header's Python dict literal, as its text.
std::string dict_value(const std::string& path, const std::string& header, const char* key) {
    const std::regex pattern(std::string("'") + key + R"('\s*:\s*('[^']*'|True|False|\([^)]*\)))");
    std::smatch m;
    if (!std::regex_search(header, m, pattern))
        throw input_error(path + ": the .npy header has no '" + key + "'");
    return m[1];
}

template <typename F>
void convert(const char* src, std::size_t count, bool swap, const chunk_array& to, std::size_t at) {
    unsigned char bytes[sizeof(F)];
    for (std::size_t i = 0; i < count; ++i) {
        std::memcpy(bytes, src + i * sizeof(F), sizeof(F));
        if (swap)
            std::reverse(bytes, bytes + sizeof(F));
        F v;
        std::memcpy(&v, bytes, sizeof(F));
        to.put(at + i, static_cast<double>(v));
    }
}

struct binary_source : data_source {
    binary_source(const std::string& p) : in(p) { path = p; }

    std::int64_t read(const chunk_array& to, std::int64_t max_rows) override {
        std::int64_t rows = max_rows;
        if (total >= 0)
            rows = std::min(max_rows, total - done);
        if (rows == 0) {
            check_end();
            return 0;
        }
        const auto r = static_cast<std::size_t>(rows);
        const auto d = static_cast<std::size_t>(n_dims);
        const auto next = static_cast<std::uint64_t>(first + done);
        if (row_major) {
            // One run of observations per dimension, at its place in the file.
            for (std::size_t k = 0; k < d; ++k)
                fill(to, k * r, r, [&](void* at, std::size_t bytes, std::uint64_t skip) {
                    in.read_at(at, bytes,
                               data_offset +
                                   (k * static_cast<std::uint64_t>(file_total) + next) * element +
                                   skip);
                    return bytes;
                });
        } else if (in.seekable) {
            fill(to, 0, r * d, [&](void* at, std::size_t bytes, std::uint64_t skip) {
                in.read_at(at, bytes, data_offset + next * d * element + skip);
                return bytes;
            });
        } else {
            const std::size_t got = fill(
                to, 0, r * d,
                [&](void* at, std::size_t bytes, std::uint64_t) { return in.read(at, bytes); });
            if (got < r * d) {
                if (total >= 0 || got % d != 0)
                    short_data();
                rows = static_cast<std::int64_t>(got / d);
                if (rows == 0)
                    check_end();
            }
        }
        done += rows;
        return rows;
    }

    // Reads `count` values through `get` (which reads bytes and returns how many it read) into
    // `to` from element `at` on, directly when the types match. Returns the values read.
    template <typename Get>
    std::size_t fill(const chunk_array& to, std::size_t at, std::size_t count, Get&& get) {
        void* direct = nullptr;
        if (!swap && float32 && to.f32)
            direct = to.f32 + at;
        if (!swap && !float32 && to.f64)
            direct = to.f64 + at;
        if (direct)
            return get(direct, count * element, 0) / element;
        std::size_t done_values = 0;
        while (done_values < count) {
            const std::size_t n = std::min(count - done_values, staging.size() / element);
            const std::size_t got = get(staging.data(), n * element, done_values * element);
            const std::size_t values = got / element;
            if (float32)
                convert<float>(staging.data(), values, swap, to, at + done_values);
            else
                convert<double>(staging.data(), values, swap, to, at + done_values);
            done_values += values;
            if (got < n * element)
                break;
        }
        return done_values;
    }

    // The data ended early: the message says what the header or command line claimed.
    [[noreturn]] void short_data() {
        if (in.seekable)
            throw input_error(path + ": the file shrank while it was read");
        throw input_error(held_message(in.position - data_offset + rest_of_pipe()));
    }

    std::uint64_t rest_of_pipe() {
        std::uint64_t n = 0;
        std::size_t got;
        while ((got = in.read(staging.data(), staging.size())) > 0)
            n += got;
        return n;
    }

    // After the last observation: nothing may follow, and a file may not have changed size.
    void check_end() {
        if (in.seekable) {
            in.check_unchanged();
            return;
        }
        if (total < 0) {
            if (done == 0)
                throw input_error(path + ": no observations (the file is empty)");
            return;
        }
        const std::uint64_t extra = rest_of_pipe();
        if (extra > 0)
            throw input_error(held_message(in.position - data_offset));
    }

    // The error for `held` bytes of data where the header or the command line claims others.
    std::string held_message(std::uint64_t held) const {
        const std::uint64_t row_bytes = static_cast<std::uint64_t>(n_dims) * element;
        if (raw && raw_counted)
            return path + ": " + std::to_string(held) + " bytes are not a whole number of " +
                   "observations of " + std::to_string(n_dims) + " " + type_name() + " values (" +
                   std::to_string(row_bytes) + " bytes each)";
        const std::int64_t claimed = file_total >= 0 ? file_total : total;
        const std::uint64_t needed = static_cast<std::uint64_t>(claimed) * row_bytes;
        if (raw)
            return path + ": " + std::to_string(claimed) + " observations of " +
                   std::to_string(n_dims) + " " + type_name() + " values need " +
                   std::to_string(needed) + " bytes, the file holds " + std::to_string(held);
        return path + ": shape " + shape_text + " of " + type_name() + " needs " +
               std::to_string(needed) + " bytes of data, the file holds " + std::to_string(held);
    }

    const char* type_name() const { return float32 ? "float32" : "float64"; }

    // Keeps this process's share of the observations of the whole file.
    void take_share(const share& of) {
        file_total = total;
        if (of.size > 1) {
            if (!in.seekable)
                throw usage_error(path + ": standard input cannot be shared by " +
                                  std::to_string(of.size) + " processes; give a file");
            first = first_row = of.first_of(total);
            total = of.first_of(total, 1) - first;
        }
    }

    byte_input in;
    bool float32 = false;
    bool swap = false;
    bool raw = false;
    bool raw_counted = false;  // raw without --observations: the file's size decides
    std::size_t element = 8;
    std::uint64_t data_offset = 0;
    std::string shape_text;
    std::int64_t file_total = -1;  // observations in the whole file; total is this share's
    std::int64_t first = 0;        // the share's first observation
    std::int64_t done = 0;
    std::vector<char> staging = std::vector<char>(1 << 16);
};

bool machine_little_endian() {
    const std::uint16_t one = 1;
    unsigned char b;
    std::memcpy(&b, &one, 1);
    return b == 1;
}

}  // namespace

std::unique_ptr<data_source> open_npy(const std::string& path, const share& of) {
    auto s = std::make_unique<binary_source>(path);
    unsigned char prefix[12];
    const std::size_t got = s->in.read(prefix, 10);
    if (got < 10 || std::memcmp(prefix, "\x93NUMPY", 6) != 0)
        throw input_error(path + ": not a NumPy .npy file (no \\x93NUMPY at its start)");
    const int major = prefix[6];
    if (major < 1 || major > 3)
        throw input_error(path + ": .npy format version " + std::to_string(major) +
                          " is not supported (1, 2 or 3 only)");
    const std::size_t len_bytes = major == 1 ? 2 : 4;
    if (len_bytes == 4 && s->in.read(prefix + 10, 2) < 2)
        throw input_error(path + ": the .npy header is cut short");
    const std::uint64_t header_len = little_endian(prefix + 8, len_bytes);
    // Read in pieces, so that a header length the file does not back allocates nothing.
    std::string header;
    while (header.size() < header_len) {
        char piece[4096];
        const std::size_t want = static_cast<std::size_t>(
            std::min<std::uint64_t>(sizeof piece, header_len - header.size()));
        const std::size_t n = s->in.read(piece, want);
        header.append(piece, n);
        if (n < want)
            throw input_error(path + ": the .npy header is cut short");
    }

    const std::string descr = dict_value(path, header, "descr");
    const std::string order = dict_value(path, header, "fortran_order");
    s->shape_text = dict_value(path, header, "shape");

    // descr is quoted: '<f8', '>f4', '|f8' or '=f8'.
    const std::string type = descr.substr(1, descr.size() - 2);
    const bool known = type.size() == 3 && std::strchr("<>|=", type[0]) != nullptr &&
                       type[1] == 'f' && (type[2] == '4' || type[2] == '8');
    if (!known)
        throw input_error(path + ": element type " + descr +
                          " is not supported (float32 or float64 only)");
    s->float32 = type[2] == '4';
    s->element = s->float32 ? 4 : 8;
    s->swap = (type[0] == '>') == machine_little_endian();

    std::vector<std::int64_t> shape;
    const std::regex number(R"(\d+)");
    const std::string& shape_text = s->shape_text;
    for (std::sregex_iterator it(shape_text.begin(), shape_text.end(), number), end; it != end;
         ++it) {
        const std::string digits = it->str();
        std::int64_t n = 0;
        if (std::from_chars(digits.data(), digits.data() + digits.size(), n).ec != std::errc())
            throw input_error(path + ": shape " + shape_text + " is too large (an axis of " +
                              digits + ")");
        shape.push_back(n);
    }
    if (shape.empty() || shape.size() > 2)
        throw input_error(path + ": shape " + shape_text + " has " + std::to_string(shape.size()) +
                          " axes; one (observations) or two (observations, dimensions) are "
                          "supported");
    s->total = shape[0];
    s->n_dims = shape.size() == 2 ? shape[1] : 1;
    // Axis 0 is the observation: C order keeps one observation's dimensions together.
    s->row_major = order == "True" && shape.size() == 2;
    if (s->total == 0)
        throw input_error(path + ": no observations (shape " + shape_text + ")");
    if (s->n_dims == 0)
        throw input_error(path + ": no dimensions (shape " + shape_text + ")");
    const std::uint64_t needed =
        claimed_bytes(path, static_cast<std::uint64_t>(s->total),
                      static_cast<std::uint64_t>(s->n_dims), s->element, "shape " + shape_text);
    s->data_offset = s->in.position;
    // Runs of one dimension lie far apart: a pipe is copied to a file to reach them.
    if (s->row_major && !s->in.seekable) {
        s->in.make_seekable();
        s->data_offset = 0;
    }
    if (s->in.seekable && s->in.size - std::min(s->in.size, s->data_offset) != needed)
        throw input_error(s->held_message(s->in.size - std::min(s->in.size, s->data_offset)));
    s->take_share(of);
    return s;
}

std::unique_ptr<data_source> open_raw(const std::string& path,
                                      bool float32,
                                      std::int64_t dims,
                                      std::int64_t observations,
                                      bool row_major,
                                      const share& of) {
    auto s = std::make_unique<binary_source>(path);
    s->raw = true;
    s->float32 = float32;
    s->element = float32 ? 4 : 8;
    s->n_dims = dims;
    s->row_major = row_major;
    s->data_offset = s->in.position;
    const std::uint64_t row_bytes =
        claimed_bytes(path, static_cast<std::uint64_t>(dims), 1, s->element, "--dims");
    if (observations > 0) {
        s->total = observations;
        claimed_bytes(
            path, static_cast<std::uint64_t>(dims), static_cast<std::uint64_t>(observations),
            s->element,
            "--dims " + std::to_string(dims) + " x --observations " + std::to_string(observations));
    }
    // Runs of one dimension lie far apart: a pipe is copied to a file to reach them.
    if (row_major && !s->in.seekable) {
        s->in.make_seekable();
        s->data_offset = 0;
    }
    if (!s->in.seekable)
        s->raw_counted = observations == 0;
    else if (observations > 0) {
        const std::uint64_t held = s->in.size - s->data_offset;
        if (held != static_cast<std::uint64_t>(observations) * row_bytes)
            throw input_error(s->held_message(held));
    } else {
        const std::uint64_t held = s->in.size - s->data_offset;
        s->raw_counted = true;
        if (held % row_bytes != 0)
            throw input_error(s->held_message(held));
        if (held == 0)
            throw input_error(path + ": no observations (the file is empty)");
        s->total = static_cast<std::int64_t>(held / row_bytes);
    }
    s->take_share(of);
    return s;
}

}  // namespace qnd_stats
