// The bytes of an input file or of standard input, read in order or at offsets.
#pragma once

#include <cstdint>
#include <string>

namespace qnd_stats {

// An open file descriptor with the path used in error texts. "-" is standard input, which may
// be a pipe: then nothing can be read at an offset and the size is unknown until the end.
struct byte_input {
    explicit byte_input(const std::string& path);
    ~byte_input();
    byte_input(const byte_input&) = delete;
    byte_input& operator=(const byte_input&) = delete;

    // Reads up to n bytes at the current position, fewer only at the end. Returns the count.
    std::size_t read(void* to, std::size_t n);
    // Reads n bytes at an offset from the start; throws input_error if the file has fewer.
    void read_at(void* to, std::size_t n, std::uint64_t offset);
    // Moves a regular file's position to an offset from its start.
    void seek(std::uint64_t offset);
    // The current size of a regular file (it may change while it is read).
    std::uint64_t current_size() const;
    // Refuses a regular file whose size is no longer what it was when it was opened.
    void check_unchanged() const;
    // Copies the rest of a pipe into an unnamed temporary file and reads from that instead, so
    // that offsets work. Nothing happens for a regular file.
    void make_seekable();

    std::string path;
    int fd = -1;
    bool seekable = false;       // a regular file: read_at and current_size work
    std::uint64_t size = 0;      // of a regular file, when it was opened
    std::uint64_t position = 0;  // bytes consumed by read()
};

// Makes standard input a file that can be read more than once (a pipe is first copied into an
// unnamed temporary file) and returns the offset where each reading of it starts.
std::uint64_t rereadable_standard_input();
// Moves standard input back to that offset for the next reading.
void rewind_standard_input(std::uint64_t offset);

}  // namespace qnd_stats
