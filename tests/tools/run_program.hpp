// Runs a shell command line and keeps its exit status and what it wrote.
#pragma once

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "temp_files.hpp"

namespace qnd_stats {

struct run_result {
    int status = -1;
    std::string out, err;
};

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

}  // namespace qnd_stats
