// Writing a file so that readers see either the old file or the whole new one, never a part.
#pragma once

#include <cstdio>
#include <string>

namespace ql::img {

/// Opens a temporary file beside `path`; commit() renames it over `path`. Destroyed without a
/// commit (an error, an exception) it removes the temporary file.
class AtomicFile {
  public:
    /// `stream`: written through stream(). `byPath`: the temporary file is created and closed,
    /// for writers that open a path of their own (temporaryPath()).
    enum class Mode { stream, byPath };
    /// Throws std::runtime_error when the temporary file can't be created.
    explicit AtomicFile(std::string path, Mode mode = Mode::stream);
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
    bool pending_ = true;  // the temporary file is ours to remove
};

}  // namespace ql::img
