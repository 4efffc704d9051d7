#include "FileBytes.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>

#include "DecodeError.h"

namespace ql::img {
namespace {

struct Fd {
    int fd = -1;
    ~Fd() {
        if (fd >= 0) ::close(fd);
    }
};

}  // namespace

std::vector<uint8_t> readFileBytes(const std::string& path, uint64_t limit) {
    Fd file{::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    if (file.fd < 0) throw DecodeError(std::strerror(errno));
    struct stat st {};
    if (::fstat(file.fd, &st) != 0) throw DecodeError(std::strerror(errno));
    if (S_ISDIR(st.st_mode)) throw DecodeError("it is a folder");
    if (!S_ISREG(st.st_mode)) throw DecodeError("it is not a regular file");
    if (uint64_t(st.st_size) > limit) throw DecodeError("the file is too large");
    std::vector<uint8_t> bytes(size_t(st.st_size));
    size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::read(file.fd, bytes.data() + done, bytes.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) throw DecodeError(std::strerror(errno));
        if (n == 0) break;  // the file shrank while we read it
        done += size_t(n);
    }
    bytes.resize(done);
    return bytes;
}

}  // namespace ql::img
