// Files that a test program writes, kept in a directory of its own (test programs run in
// parallel) that is removed with everything in it when the program ends; and .npy contents.
#pragma once

#include <stdlib.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

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

// The bytes of v, each value byte-swapped when `swap`.
template <typename T>
std::string bytes_of(const std::vector<T>& v, bool swap = false) {
    std::string s(v.size() * sizeof(T), '\0');
    std::memcpy(&s[0], v.data(), s.size());
    for (std::size_t i = 0; swap && i < v.size(); ++i)
        std::reverse(s.begin() + i * sizeof(T), s.begin() + (i + 1) * sizeof(T));
    return s;
}

// A .npy file as NumPy writes it: magic, version, little-endian header length, a dict padded
// with blanks to a multiple of 64 bytes and ended by a newline, then the data.
inline std::string npy(const std::string& dict, const std::string& data, int version = 1) {
    const std::size_t len_bytes = version == 1 ? 2 : 4;
    std::string header = dict;
    while ((8 + len_bytes + header.size() + 1) % 64 != 0)
        header += ' ';
    header += '\n';
    std::string s = "\x93NUMPY" + std::string{static_cast<char>(version), '\0'};
    for (std::size_t k = 0; k < len_bytes; ++k)
        s += static_cast<char>((header.size() >> (8 * k)) & 0xff);
    return s + header + data;
}

}  // namespace qnd_stats
