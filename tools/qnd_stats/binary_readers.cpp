// Binary data files: NumPy .npy (float32 or float64, one or two axes, C or Fortran order) and raw.
#include <charconv>
#include <cstring>
#include <limits>
#include <regex>

#include "readers.hpp"
#include "tool_errors.hpp"

namespace qnd_stats {

namespace {

std::uint64_t little_endian(const std::string& s, std::size_t at, std::size_t bytes) {
    std::uint64_t v = 0;
    for (std::size_t k = 0; k < bytes; ++k)
        v |= static_cast<std::uint64_t>(static_cast<unsigned char>(s[at + k])) << (8 * k);
    return v;
}

// The bytes of `a` x `b` values of `element` bytes each, as claimed by a header or the command
// line; a product that does not fit in memory's address range is refused before anything is
// allocated, so that a wrapped count can never pass as a small file.
std::size_t claimed_bytes(const std::string& path,
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
    return static_cast<std::size_t>(bytes);
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
void copy_values(const char* src, std::size_t count, bool swap, std::vector<double>& out) {
    out.resize(count);
    unsigned char bytes[sizeof(F)];
    for (std::size_t i = 0; i < count; ++i) {
        std::memcpy(bytes, src + i * sizeof(F), sizeof(F));
        if (swap)
            for (std::size_t k = 0; k < sizeof(F) / 2; ++k)
                std::swap(bytes[k], bytes[sizeof(F) - 1 - k]);
        F v;
        std::memcpy(&v, bytes, sizeof(F));
        out[i] = static_cast<double>(v);
    }
}

}  // namespace

data_matrix parse_npy(const std::string& path, const std::string& contents) {
    static const char magic[] = "\x93NUMPY";
    if (contents.size() < 10 || contents.compare(0, 6, magic, 6) != 0)
        throw input_error(path + ": not a NumPy .npy file (no \\x93NUMPY at its start)");
    const int major = static_cast<unsigned char>(contents[6]);
    if (major < 1 || major > 3)
        throw input_error(path + ": .npy format version " + std::to_string(major) +
                          " is not supported (1, 2 or 3 only)");
    const std::size_t len_bytes = major == 1 ? 2 : 4;
    if (contents.size() < 8 + len_bytes)
        throw input_error(path + ": the .npy header is cut short");
    const std::size_t header_len = little_endian(contents, 8, len_bytes);
    const std::size_t data_start = 8 + len_bytes + header_len;
    if (contents.size() < data_start)
        throw input_error(path + ": the .npy header is cut short");
    const std::string header = contents.substr(8 + len_bytes, header_len);

    const std::string descr = dict_value(path, header, "descr");
    const std::string order = dict_value(path, header, "fortran_order");
    const std::string shape_text = dict_value(path, header, "shape");

    // descr is quoted: '<f8', '>f4', '|f8' or '=f8'.
    const std::string type = descr.substr(1, descr.size() - 2);
    const bool known = type.size() == 3 && std::strchr("<>|=", type[0]) != nullptr &&
                       type[1] == 'f' && (type[2] == '4' || type[2] == '8');
    if (!known)
        throw input_error(path + ": element type " + descr +
                          " is not supported (float32 or float64 only)");
    const bool float32 = type[2] == '4';
    const bool big = type[0] == '>';
    const bool machine_little = [] {
        const std::uint16_t one = 1;
        unsigned char b;
        std::memcpy(&b, &one, 1);
        return b == 1;
    }();
    const bool swap = big == machine_little;

    std::vector<std::int64_t> shape;
    const std::regex number(R"(\d+)");
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

    data_matrix m;
    m.n_observations = shape[0];
    m.n_dims = shape.size() == 2 ? shape[1] : 1;
    // Axis 0 is the observation: C order keeps one observation's dimensions together.
    m.row_major = order == "True" && shape.size() == 2;
    if (m.n_observations == 0)
        throw input_error(path + ": no observations (shape " + shape_text + ")");
    if (m.n_dims == 0)
        throw input_error(path + ": no dimensions (shape " + shape_text + ")");

    const std::size_t element = float32 ? 4 : 8;
    const std::size_t needed =
        claimed_bytes(path, static_cast<std::uint64_t>(m.n_observations),
                      static_cast<std::uint64_t>(m.n_dims), element, "shape " + shape_text);
    const std::size_t count = needed / element;
    const std::size_t held = contents.size() - data_start;
    if (held != needed)
        throw input_error(path + ": shape " + shape_text + " of " +
                          (float32 ? "float32" : "float64") + " needs " + std::to_string(needed) +
                          " bytes of data, the file holds " + std::to_string(held));
    if (float32)
        copy_values<float>(contents.data() + data_start, count, swap, m.values);
    else
        copy_values<double>(contents.data() + data_start, count, swap, m.values);
    return m;
}

data_matrix parse_raw(const std::string& path,
                      const std::string& contents,
                      bool float32,
                      std::int64_t dims,
                      std::int64_t observations,
                      bool row_major) {
    const std::size_t element = float32 ? 4 : 8;
    const char* type = float32 ? "float32" : "float64";
    const std::size_t row_bytes =
        claimed_bytes(path, static_cast<std::uint64_t>(dims), 1, element, "--dims");
    if (observations == 0) {
        if (contents.size() % row_bytes != 0)
            throw input_error(path + ": " + std::to_string(contents.size()) +
                              " bytes are not a whole number of observations of " +
                              std::to_string(dims) + " " + type + " values (" +
                              std::to_string(row_bytes) + " bytes each)");
        observations = static_cast<std::int64_t>(contents.size() / row_bytes);
        if (observations == 0)
            throw input_error(path + ": no observations (the file is empty)");
    } else {
        const std::size_t needed = claimed_bytes(
            path, static_cast<std::uint64_t>(dims), static_cast<std::uint64_t>(observations),
            element,
            "--dims " + std::to_string(dims) + " x --observations " + std::to_string(observations));
        if (contents.size() != needed)
            throw input_error(path + ": " + std::to_string(observations) + " observations of " +
                              std::to_string(dims) + " " + type + " values need " +
                              std::to_string(needed) + " bytes, the file holds " +
                              std::to_string(contents.size()));
    }
    data_matrix m;
    m.n_dims = dims;
    m.n_observations = observations;
    m.row_major = row_major;
    const std::size_t count = contents.size() / element;
    if (float32)
        copy_values<float>(contents.data(), count, false, m.values);
    else
        copy_values<double>(contents.data(), count, false, m.values);
    return m;
}

}  // namespace qnd_stats
