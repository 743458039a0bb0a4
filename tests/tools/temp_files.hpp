// Files that a test program writes, kept in a directory of its own (test programs run in
// parallel) that is removed with everything in it when the program ends.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

namespace qnd_stats {

inline std::string temp_path(const std::string& name) {
    struct directory {
        std::string path;
        directory() {
            std::string pattern = ::testing::TempDir() + "qnd_stats_XXXXXX";
            path = std::string(mkdtemp(pattern.data())) + "/";
        }
        ~directory() { std::filesystem::remove_all(path); }
    };
    static const directory dir;
    return dir.path + name;
}

inline std::string write_file(const std::string& name, const std::string& contents) {
    const std::string path = temp_path(name);
    std::ofstream(path, std::ios::binary) << contents;
    return path;
}

}  // namespace qnd_stats
