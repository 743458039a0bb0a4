// qnd-stats's three readers on arbitrary bytes. The first byte picks the reader and its settings;
// the rest is the file. A reader either returns a matrix whose shape matches its values, or
// refuses with input_error: any other exception or a sanitizer report is a finding.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "readers.hpp"
#include "tool_errors.hpp"

using namespace qnd_stats;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size < 3)
        return 0;
    const std::uint8_t how = bytes[0];
    const std::string contents(reinterpret_cast<const char*>(bytes) + 3, size - 3);
    try {
        data_matrix m;
        switch (how % 3) {
            case 0: {
                const char delimiters[] = {',', '\t', ' ', ';'};
                const header_choice headers[] = {header_choice::automatic, header_choice::present,
                                                 header_choice::absent};
                m = parse_text("f", contents, delimiters[(how / 3) % 4], headers[bytes[1] % 3]);
                break;
            }
            case 1:
                m = parse_npy("f.npy", contents);
                break;
            default:
                // Dimensions and observations as a command line may give them, huge ones too.
                m = parse_raw("r.bin", contents, how & 8,
                              1 + (bytes[1] % 16) * (how & 16 ? std::int64_t{1} << 58 : 1),
                              bytes[2] == 255 ? std::int64_t{1} << 61 : bytes[2], how & 32);
        }
        if (m.n_dims < 1 || m.n_observations < 1 ||
            m.values.size() != static_cast<std::size_t>(m.n_dims * m.n_observations))
            std::abort();
    } catch (const input_error&) {
    }
    return 0;
}
