// Writes N bytes to standard output and N to standard error, alternating in
// chunks, as fast as the pipes take them: the child's own work must not be
// what the runner benchmark measures.
//
//   bench_writer BYTES_PER_STREAM CHUNK both   stdout, stderr, stdout, ...
//   bench_writer BYTES_PER_STREAM CHUNK single  all 2 x BYTES_PER_STREAM to stdout
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <unistd.h>
#include <vector>

namespace {

bool writeAll(int fd, const char *data, size_t size)
{
    while (size > 0) {
        const ssize_t n = ::write(fd, data, size);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 4)
        return 2;
    const size_t perStream = std::strtoull(argv[1], nullptr, 10);
    const size_t chunk = std::strtoull(argv[2], nullptr, 10);
    const bool single = std::strcmp(argv[3], "single") == 0;
    if (chunk == 0)
        return 2;
    std::vector<char> buffer(chunk, 'x');
    for (size_t i = 0; i < chunk; i += 64)
        buffer[i] = '\n';

    size_t written = 0;
    while (written < perStream) {
        const size_t n = std::min(chunk, perStream - written);
        if (!writeAll(STDOUT_FILENO, buffer.data(), n))
            return 1;
        if (!writeAll(single ? STDOUT_FILENO : STDERR_FILENO, buffer.data(), n))
            return 1;
        written += n;
    }
    return 0;
}
