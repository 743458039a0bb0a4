// qnd-stats's sources on arbitrary bytes. The first byte picks the source and its settings; the
// rest is the file. A source either gives as many observations as it claims, read a few at a
// time, or refuses with input_error: any other exception or a sanitizer report is a finding.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "data_source.hpp"
#include "tool_errors.hpp"

using namespace qnd_stats;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size < 3)
        return 0;
    const std::uint8_t how = bytes[0];
    // The file lives in memory; the sources open it by its path like any other.
    const int fd = memfd_create("input", 0);
    if (fd < 0 || write(fd, bytes + 3, size - 3) != static_cast<ssize_t>(size - 3))
        std::abort();
    const std::string path = "/proc/self/fd/" + std::to_string(fd);
    try {
        std::unique_ptr<data_source> s;
        switch (how % 3) {
            case 0: {
                const char delimiters[] = {',', '\t', ' ', ';'};
                const header_choice headers[] = {header_choice::automatic, header_choice::present,
                                                 header_choice::absent};
                s = open_text(path, delimiters[(how / 3) % 4], headers[bytes[1] % 3]);
                break;
            }
            case 1:
                s = open_npy(path);
                break;
            default:
                // Dimensions and observations as a command line may give them, huge ones too.
                s = open_raw(path, how & 8,
                             1 + (bytes[1] % 16) * (how & 16 ? std::int64_t{1} << 58 : 1),
                             bytes[2] == 255 ? std::int64_t{1} << 61 : bytes[2], how & 32);
        }
        const std::int64_t rows = 1 + bytes[2] % 5;
        std::vector<double> chunk(static_cast<std::size_t>(rows * s->n_dims));
        std::int64_t seen = 0;
        while (const std::int64_t r = s->read({chunk.data()}, rows)) {
            if (r < 0 || r > rows)
                std::abort();
            seen += r;
        }
        if (s->n_dims < 1 || seen < 1 || (s->total >= 0 && seen != s->total))
            std::abort();
    } catch (const input_error&) {
    }
    close(fd);
    return 0;
}
