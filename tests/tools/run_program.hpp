// Runs a shell command line and keeps its exit status and what it wrote; reads results back by
// name and holds them to a reference.
#pragma once

#include <sys/wait.h>

#include <cmath>
#include <cstdlib>
#include <fstream>
#include <map>
#include <ostream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "temp_files.hpp"

namespace qnd_stats {

struct run_result {
    int status = -1;
    std::string out, err;
    bool operator==(const run_result& o) const {
        return std::tie(status, out, err) == std::tie(o.status, o.out, o.err);
    }
};

inline void PrintTo(const run_result& r, std::ostream* os) {
    *os << "status " << r.status << ", out \"" << r.out << "\", err \"" << r.err << "\"";
}

inline std::string slurp(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    std::stringstream ss;
    ss << f.rdbuf();
    return ss.str();
}

inline run_result run_command(const std::string& command) {
    const std::string out = temp_path("out"), err = temp_path("err");
    const int raw = std::system((command + " > '" + out + "' 2> '" + err + "'").c_str());
    return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, slurp(out), slurp(err)};
}

// Results keyed "dimension quantity".
using named_values = std::map<std::string, double>;

// A CSV report's values, its first column naming the dimension and its header the quantities.
inline named_values values_of(const std::string& csv) {
    named_values v;
    std::istringstream lines(csv);
    std::string header, line;
    std::getline(lines, header);
    std::vector<std::string> names;
    std::istringstream hs(header);
    for (std::string f; std::getline(hs, f, ',');)
        names.push_back(f);
    while (std::getline(lines, line)) {
        std::istringstream fs(line);
        std::string dim, f;
        std::getline(fs, dim, ',');
        for (std::size_t k = 1; std::getline(fs, f, ','); ++k)
            v[dim + " " + names.at(k)] = std::strtod(f.c_str(), nullptr);
    }
    return v;
}

// Each value within `tolerance` of want's, relative; NaN where want has NaN. Kurtosis is held
// relative to c4 / c2^2, not to the excess.
inline void expect_close(const named_values& got, const named_values& want, double tolerance) {
    ASSERT_EQ(got.size(), want.size());
    for (const auto& [k, v] : want) {
        const double g = got.at(k), shift = k.find("kurtosis") != std::string::npos ? 3 : 0;
        if (std::isnan(v))
            EXPECT_TRUE(std::isnan(g)) << k << " = " << g;
        else
            EXPECT_NEAR(g + shift, v + shift, tolerance * std::abs(v + shift)) << k;
    }
}

}  // namespace qnd_stats
