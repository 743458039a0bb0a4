// Reading input through file descriptors, so that large files are read without stdio's copy.
#include "byte_input.hpp"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tool_errors.hpp"

namespace qnd_stats {

namespace {

[[noreturn]] void fail(const std::string& path, const char* what) {
    throw input_error(path + ": " + what + ": " + std::strerror(errno));
}

}  // namespace

byte_input::byte_input(const std::string& p) : path(p) {
    fd = path == "-" ? 0 : ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        fail(path, "cannot open");
    struct stat st {};
    if (::fstat(fd, &st) != 0)
        fail(path, "cannot open");
    if (S_ISDIR(st.st_mode)) {
        errno = EISDIR;
        fail(path, "cannot read");
    }
    seekable = S_ISREG(st.st_mode);
    size = seekable ? static_cast<std::uint64_t>(st.st_size) : 0;
    if (seekable && path == "-")
        position = static_cast<std::uint64_t>(::lseek(fd, 0, SEEK_CUR));
}

byte_input::~byte_input() {
    if (fd > 0)
        ::close(fd);
}

std::size_t byte_input::read(void* to, std::size_t n) {
    auto* p = static_cast<char*>(to);
    std::size_t done = 0;
    while (done < n) {
        const ssize_t r = ::read(fd, p + done, n - done);
        if (r < 0 && errno == EINTR)
            continue;
        if (r < 0)
            fail(path, "cannot read");
        if (r == 0)
            break;
        done += static_cast<std::size_t>(r);
    }
    position += done;
    return done;
}

void byte_input::read_at(void* to, std::size_t n, std::uint64_t offset) {
    auto* p = static_cast<char*>(to);
    std::size_t done = 0;
    while (done < n) {
        const ssize_t r = ::pread(fd, p + done, n - done, static_cast<off_t>(offset + done));
        if (r < 0 && errno == EINTR)
            continue;
        if (r < 0)
            fail(path, "cannot read");
        if (r == 0)
            throw input_error(path + ": the file shrank while it was read");
        done += static_cast<std::size_t>(r);
    }
}

void byte_input::seek(std::uint64_t offset) {
    if (::lseek(fd, static_cast<off_t>(offset), SEEK_SET) < 0)
        fail(path, "cannot read");
    position = offset;
}

std::uint64_t byte_input::current_size() const {
    struct stat st {};
    if (::fstat(fd, &st) != 0)
        fail(path, "cannot read");
    return static_cast<std::uint64_t>(st.st_size);
}

void byte_input::check_unchanged() const {
    if (!seekable)
        return;
    const std::uint64_t now = current_size();
    if (now != size)
        throw input_error(path + ": the file changed size while it was read (" +
                          std::to_string(size) + " bytes when opened, " + std::to_string(now) +
                          " now)");
}

void byte_input::make_seekable() {
    if (seekable)
        return;
    std::FILE* spool = std::tmpfile();
    if (spool == nullptr)
        fail(path, "cannot make a temporary copy");
    const int copy = ::dup(fileno(spool));
    std::fclose(spool);  // the duplicate keeps the unnamed file alive
    if (copy < 0)
        fail(path, "cannot make a temporary copy");
    static char block[1 << 16];
    std::uint64_t total = 0;
    std::size_t n;
    while ((n = read(block, sizeof block)) > 0) {
        for (std::size_t at = 0; at < n;) {
            const ssize_t w = ::write(copy, block + at, n - at);
            if (w < 0 && errno == EINTR)
                continue;
            if (w < 0) {
                ::close(copy);
                fail(path, "cannot make a temporary copy");
            }
            at += static_cast<std::size_t>(w);
        }
        total += n;
    }
    if (fd > 0)
        ::close(fd);
    fd = copy;
    seekable = true;
    size = total;
    position = 0;
    ::lseek(fd, 0, SEEK_SET);
}

std::uint64_t rereadable_standard_input() {
    byte_input in("-");
    if (in.seekable)
        return in.position;
    in.make_seekable();
    if (::dup2(in.fd, 0) < 0)
        fail("-", "cannot make a temporary copy");
    return 0;
}

void rewind_standard_input(std::uint64_t offset) {
    if (::lseek(0, static_cast<off_t>(offset), SEEK_SET) < 0)
        fail("-", "cannot read");
}

}  // namespace qnd_stats
