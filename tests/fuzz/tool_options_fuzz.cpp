// qnd-stats's command line on arbitrary arguments: the bytes split at NUL into argv. The parser
// either returns options or refuses with usage_error or input_error; anything else is a finding.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "options.hpp"
#include "tool_errors.hpp"

using namespace qnd_stats;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    std::vector<std::string> words{"qnd-stats", ""};
    for (std::size_t i = 0; i < size; ++i)
        if (bytes[i] == 0)
            words.emplace_back();
        else
            words.back() += static_cast<char>(bytes[i]);
    std::vector<const char*> argv;
    for (const std::string& w : words)
        argv.push_back(w.c_str());
    try {
        parse_options(static_cast<int>(argv.size()), argv.data());
    } catch (const usage_error&) {
    } catch (const input_error&) {
    }
    return 0;
}
