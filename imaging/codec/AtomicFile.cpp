#include "AtomicFile.h"

#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace ql::img {

AtomicFile::AtomicFile(std::string path, Mode mode) : path_(std::move(path)) {
    temporary_ = path_ + ".XXXXXX";
    const int fd = ::mkstemp(temporary_.data());
    if (fd < 0) throw std::runtime_error(std::strerror(errno));
    ::fchmod(fd, 0644);
    if (mode == Mode::byPath) {
        ::close(fd);
        return;
    }
    stream_ = ::fdopen(fd, "wb");
    if (!stream_) {
        const int e = errno;
        ::close(fd);
        ::unlink(temporary_.c_str());
        throw std::runtime_error(std::strerror(e));
    }
}

AtomicFile::~AtomicFile() {
    if (stream_) std::fclose(stream_);
    if (pending_) ::unlink(temporary_.c_str());
}

void AtomicFile::commit() {
    pending_ = false;
    if (FILE* s = stream_) {
        stream_ = nullptr;
        const bool written = std::fflush(s) == 0 && !std::ferror(s);
        const int e = errno;
        if (std::fclose(s) != 0 || !written) {
            ::unlink(temporary_.c_str());
            throw std::runtime_error(std::strerror(written ? errno : e));
        }
    }
    if (std::rename(temporary_.c_str(), path_.c_str()) != 0) {
        const int r = errno;
        ::unlink(temporary_.c_str());
        throw std::runtime_error(std::strerror(r));
    }
}

}  // namespace ql::img
