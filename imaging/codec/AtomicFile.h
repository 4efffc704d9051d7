// Writing a file so that readers see either the old file or the whole new one, never a part.
#pragma once

#include <cstdio>
#include <string>

namespace ql::img {

/// Opens a temporary file beside `path`; commit() renames it over `path`. Destroyed without a
/// commit (an error, an exception) it removes the temporary file.
class AtomicFile {
  public:
    explicit AtomicFile(std::string path);  // throws std::runtime_error when it can't be created
    ~AtomicFile();
    AtomicFile(const AtomicFile&) = delete;
    AtomicFile& operator=(const AtomicFile&) = delete;

    FILE* stream() const { return stream_; }
    const std::string& temporaryPath() const { return temporary_; }
    /// Flushes, closes and renames; throws std::runtime_error on any failure.
    void commit();

  private:
    std::string path_, temporary_;
    FILE* stream_ = nullptr;
};

}  // namespace ql::img
