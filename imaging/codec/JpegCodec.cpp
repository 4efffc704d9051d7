#include "JpegCodec.h"

#include <algorithm>
#include <atomic>
#include <csetjmp>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>
#include <type_traits>

#include <jpeglib.h>
// After jpeglib.h, which it needs.
#include <jerror.h>

#include "AtomicFile.h"
#include "DecodeError.h"
#include "InputColour.h"
#include "OutputSamples.h"
#include "imaging/Orientation.h"

namespace ql::img {
namespace {

// libjpeg reports errors through a callback that must not return: it jumps back to the frame
// that started the work. Everything that frame touches after setjmp lives in a session object on
// the heap, so nothing is left indeterminate by the jump.
struct ErrorManager {
    jpeg_error_mgr base{};
    std::jmp_buf jump{};
    char message[JMSG_LENGTH_MAX] = {};
};

void onError(j_common_ptr info) {
    auto* e = reinterpret_cast<ErrorManager*>(info->err);
    (*info->err->format_message)(info, e->message);
    std::longjmp(e->jump, 1);
}

// Warnings stay quiet, except the end of data before the end of the picture: a truncated file
// is damaged, and decoding on would only paint grey.
void onMessage(j_common_ptr info, int level) {
    if (level < 0 && info->err->msg_code == JWRN_JPEG_EOF) onError(info);
}

void installErrors(ErrorManager& e) {
    jpeg_std_error(&e.base);
    e.base.error_exit = onError;
    e.base.emit_message = onMessage;
}

/// Rows published by one thread and consumed by another, in order.
struct RowProgress {
    std::atomic<int> ready{0};
    std::atomic<bool> stop{false};
    void publish(int rows) {
        ready.store(rows, std::memory_order_release);
        ready.notify_one();
    }
    /// Waits until more than `have` rows are ready; returns how many, or -1 when stopped.
    int waitBeyond(int have) {
        for (;;) {
            if (stop.load(std::memory_order_acquire)) return -1;
            const int n = ready.load(std::memory_order_acquire);
            if (n > have) return n;
            ready.wait(n, std::memory_order_acquire);
        }
    }
    void halt() {
        stop.store(true, std::memory_order_release);
        ready.fetch_add(1, std::memory_order_release);  // wakes a waiter whatever it waits for
        ready.notify_all();
    }
};

/// Rows in batches that two threads take from opposite ends: a helper from the top, the calling
/// thread from the bottom when it has nothing better to do, so that both cores share the
/// conversion whichever side is faster. Each batch is taken exactly once.
class RowBatches {
  public:
    static constexpr int kRows = 32;
    explicit RowBatches(int rows)
        : rows_(rows), bottom_((rows + kRows - 1) / kRows), done_(size_t(bottom_)) {}
    /// The next batch from the top, or -1 when none is left.
    int takeTop() {
        std::lock_guard lock(mutex_);
        return top_ < bottom_ ? top_++ : -1;
    }
    int takeBottom() {
        std::lock_guard lock(mutex_);
        return top_ < bottom_ ? --bottom_ : -1;
    }
    int first(int batch) const { return batch * kRows; }
    int end(int batch) const { return std::min(rows_, (batch + 1) * kRows); }
    void finish(int batch) {
        done_[size_t(batch)].store(1, std::memory_order_release);
        done_[size_t(batch)].notify_all();
    }
    bool finished(int batch) const {
        return done_[size_t(batch)].load(std::memory_order_acquire) != 0;
    }
    void waitFinished(int batch) const { done_[size_t(batch)].wait(0, std::memory_order_acquire); }

  private:
    const int rows_;
    std::mutex mutex_;
    int top_ = 0, bottom_;
    std::vector<std::atomic<uint8_t>> done_;
};

struct DecodeSession {
    jpeg_decompress_struct info{};
    ErrorManager errors;
    bool created = false;
    std::vector<uint8_t> samples;  // decoded rows: all of them, or a ring of ringRows
    int rowBytes = 0;
    int ringRows = 0;      // 0: every row has its own place
    RowProgress consumed;  // with a ring: rows the reader is done with
    std::unique_ptr<InputColour> colour;
    Image image;
    RowProgress progress;
    std::unique_ptr<RowBatches> batches;
    std::jthread converter;

    ~DecodeSession() {
        if (converter.joinable()) {
            progress.halt();
            converter.join();
        }
        if (created) jpeg_destroy_decompress(&info);
    }
};

std::vector<uint8_t> readIcc(j_decompress_ptr info) {
    JOCTET* data = nullptr;
    unsigned int size = 0;
    std::vector<uint8_t> icc;
    if (jpeg_read_icc_profile(info, &data, &size) && data) icc.assign(data, data + size);
    std::free(data);
    return icc;
}

void convertBatch(DecodeSession* s, int batch) {
    for (int y = s->batches->first(batch); y < s->batches->end(batch); ++y)
        s->colour->convertRow(s->samples.data() + size_t(y) * size_t(s->rowBytes), s->image.width(),
                              s->image.row(y));
}

// Converts decoded rows into the image from the top, as the decoder delivers them.
void convertRows(DecodeSession* s) {
    for (int b; (b = s->batches->takeTop()) >= 0;) {
        const int need = s->batches->end(b);
        for (int ready = s->progress.ready.load(); ready < need;)
            if ((ready = s->progress.waitBeyond(ready)) < 0) return;
        convertBatch(s, b);
    }
}

bool readHeader(DecodeSession* s, std::span<const uint8_t> bytes) {
    if (setjmp(s->errors.jump)) return false;
    jpeg_create_decompress(&s->info);
    s->created = true;
    jpeg_mem_src(&s->info, bytes.data(), static_cast<unsigned long>(bytes.size()));
    jpeg_save_markers(&s->info, JPEG_APP0 + 2, 0xFFFF);
    jpeg_read_header(&s->info, TRUE);
    return true;
}

// The decoder's output: the file's own samples (grey, RGB or CMYK) at 1/reduction, with the
// conversion that takes them to linear sRGB. Runs inside the caller's setjmp frame.
void prepareSamples(DecodeSession* s, int reduction) {
    jpeg_decompress_struct& info = s->info;
    SampleLayout layout;
    switch (info.jpeg_color_space) {
        case JCS_GRAYSCALE:
            info.out_color_space = JCS_GRAYSCALE, layout.channels = 1;
            break;
        case JCS_CMYK:
        case JCS_YCCK:
            info.out_color_space = JCS_CMYK, layout.channels = 4, layout.cmyk = true;
            layout.invertedCmyk = info.saw_Adobe_marker;
            break;
        default:
            info.out_color_space = JCS_RGB, layout.channels = 3;
            break;
    }
    info.scale_num = 1;
    info.scale_denom = unsigned(reduction);
    jpeg_calc_output_dimensions(&info);
    checkDimensions(info.output_width, info.output_height);
    s->colour = std::make_unique<InputColour>(InputColour::fromIcc(readIcc(&info), layout));
    s->rowBytes = int(info.output_width) * layout.channels;
}

uint8_t* sampleRow(DecodeSession* s, int y) {
    const int slot = s->ringRows > 0 ? y % s->ringRows : y;
    return s->samples.data() + size_t(slot) * size_t(s->rowBytes);
}

// Decodes every row into s->samples, publishing each batch when another thread waits on them.
// With a ring, a row's place is reused only once the reader has consumed the row before; a
// reader that stops stops the decoding too. Runs inside the caller's setjmp frame.
void readRows(DecodeSession* s, bool publish) {
    jpeg_decompress_struct& info = s->info;
    const int rows = s->ringRows > 0 ? s->ringRows : int(info.output_height);
    s->samples.resize(size_t(s->rowBytes) * size_t(rows));
    jpeg_start_decompress(&info);
    int consumed = 0;
    while (info.output_scanline < info.output_height) {
        JSAMPROW batch[16];
        const int first = int(info.output_scanline);
        const int want = std::min<int>(16, int(info.output_height) - first);
        while (s->ringRows > 0 && first + want - s->ringRows > consumed)
            if ((consumed = s->consumed.waitBeyond(consumed)) < 0) return;
        for (int i = 0; i < want; ++i)
            batch[i] = sampleRow(s, first + i);
        jpeg_read_scanlines(&info, batch, JDIMENSION(want));
        if (publish) s->progress.publish(int(info.output_scanline));
    }
    jpeg_finish_decompress(&info);
}

bool prepare(DecodeSession* s, int reduction) {
    if (setjmp(s->errors.jump)) return false;
    prepareSamples(s, reduction);
    return true;
}

bool readAll(DecodeSession* s, bool publish) {
    if (setjmp(s->errors.jump)) return false;
    readRows(s, publish);
    return true;
}

bool decode(DecodeSession* s, bool parallel) {
    if (setjmp(s->errors.jump)) return false;
    const jpeg_decompress_struct& info = s->info;
    s->image = Image::forOverwrite(int(info.output_width), int(info.output_height));
    s->batches = std::make_unique<RowBatches>(int(info.output_height));
    if (parallel) s->converter = std::jthread(convertRows, s);
    readRows(s, parallel);
    return true;
}

}  // namespace

JpegHeader readJpegHeader(std::span<const uint8_t> bytes) {
    auto s = std::make_unique<DecodeSession>();
    installErrors(s->errors);
    s->info.err = &s->errors.base;
    if (!readHeader(s.get(), bytes)) throw DecodeError(s->errors.message);
    return {int(s->info.image_width), int(s->info.image_height)};
}

int jpegReductionFor(int width, int height, int targetLongEdge) {
    const int longEdge = std::max(width, height);
    int reduction = 1;
    while (reduction < 8 && longEdge / (reduction * 2) >= targetLongEdge)
        reduction *= 2;
    return reduction;
}

Image decodeJpeg(std::span<const uint8_t> bytes, int reduction, const Execution& exec) {
    if (reduction != 1 && reduction != 2 && reduction != 4 && reduction != 8) reduction = 1;
    auto s = std::make_unique<DecodeSession>();
    installErrors(s->errors);
    s->info.err = &s->errors.base;
    if (!readHeader(s.get(), bytes)) throw DecodeError(s->errors.message);
    checkDimensions(s->info.image_width, s->info.image_height);
    const bool parallel = exec.threadCount() > 1;
    if (!prepare(s.get(), reduction) || !decode(s.get(), parallel))
        throw DecodeError(s->errors.message);
    // The decoder is done: this thread takes its share of the conversion from the bottom.
    for (int b; (b = s->batches->takeBottom()) >= 0;)
        convertBatch(s.get(), b);
    if (parallel) s->converter.join();
    if (exec.cancelled()) return {};
    return std::move(s->image);
}

namespace {

// The compressed bytes grow in a vector the session owns. libjpeg's own memory destination hands
// its buffer over only when compression finishes; a stopped or failed one would leave the pointer
// it first gave out dangling once the buffer had grown.
struct VectorDestination {
    jpeg_destination_mgr base{};
    std::vector<uint8_t> bytes;
};
// libjpeg hands back `base`; the whole is found from it.
static_assert(std::is_standard_layout_v<VectorDestination>);

constexpr size_t firstOutputSize = size_t(1) << 16;

// An exception must not unwind through libjpeg's frames: a failure becomes libjpeg's own error,
// raised once the handler is left.
void growOutput(j_compress_ptr info, VectorDestination* d, size_t size) {
    bool grown = true;
    try {
        d->bytes.resize(size);
    } catch (...) {
        grown = false;
    }
    if (!grown) ERREXIT1(info, JERR_OUT_OF_MEMORY, 10);
}

void startOutput(j_compress_ptr info) {
    auto* d = reinterpret_cast<VectorDestination*>(info->dest);
    growOutput(info, d, firstOutputSize);
    d->base.next_output_byte = d->bytes.data();
    d->base.free_in_buffer = d->bytes.size();
}

boolean moreOutput(j_compress_ptr info) {
    auto* d = reinterpret_cast<VectorDestination*>(info->dest);
    const size_t used = d->bytes.size();
    growOutput(info, d, used * 2);
    d->base.next_output_byte = d->bytes.data() + used;
    d->base.free_in_buffer = d->bytes.size() - used;
    return TRUE;
}

void endOutput(j_compress_ptr info) {
    auto* d = reinterpret_cast<VectorDestination*>(info->dest);
    d->bytes.resize(d->bytes.size() - d->base.free_in_buffer);
}

struct EncodeSession {
    jpeg_compress_struct info{};
    ErrorManager errors;
    VectorDestination output;
    bool created = false;
    std::vector<uint8_t> samples;
    std::unique_ptr<RowBatches> batches;
    std::jthread converter;
    bool stopped = false;

    ~EncodeSession() {
        if (converter.joinable()) converter.join();
        if (created) jpeg_destroy_compress(&info);
    }
};

void quantizeBatch(EncodeSession* s, const Image* image, int batch) {
    const int w = image->width();
    for (int y = s->batches->first(batch); y < s->batches->end(batch); ++y)
        toSrgb8(image->row(y), w, s->samples.data() + size_t(y) * size_t(w) * 3, 3);
    s->batches->finish(batch);
}

// Runs ahead of the encoder, turning float rows into 8-bit rows from the top.
void quantizeRows(EncodeSession* s, const Image* image) {
    for (int b; (b = s->batches->takeTop()) >= 0;)
        quantizeBatch(s, image, b);
}

// Compresses width × height 8-bit RGB rows that `rowAt(y)` hands over in order; a null row
// stops the work (s->stopped).
template <typename Rows>
bool encode(EncodeSession* s, int width, int height, const JpegWriteOptions* o, Rows& rowAt) {
    if (setjmp(s->errors.jump)) return false;
    jpeg_compress_struct& info = s->info;
    jpeg_create_compress(&info);
    s->created = true;
    s->output.base.init_destination = startOutput;
    s->output.base.empty_output_buffer = moreOutput;
    s->output.base.term_destination = endOutput;
    info.dest = &s->output.base;
    info.image_width = JDIMENSION(width);
    info.image_height = JDIMENSION(height);
    info.input_components = 3;
    info.in_color_space = JCS_RGB;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, std::clamp(o->quality, 1, 100), TRUE);
    // Chroma at full resolution from quality 90 up, where the file is meant to keep fine
    // colour edges (red vestments on white); halved both ways below.
    const int chroma = o->quality >= 90 ? 1 : 2;
    info.comp_info[0].h_samp_factor = chroma, info.comp_info[0].v_samp_factor = chroma;
    info.dct_method = JDCT_ISLOW;
    info.write_JFIF_header = o->exif.empty();
    jpeg_start_compress(&info, TRUE);
    if (!o->exif.empty() && o->exif.size() <= 65533)
        jpeg_write_marker(&info, JPEG_APP0 + 1, o->exif.data(), unsigned(o->exif.size()));
    if (!o->icc.empty()) jpeg_write_icc_profile(&info, o->icc.data(), unsigned(o->icc.size()));
    while (info.next_scanline < info.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(rowAt(int(info.next_scanline)));
        if (!row) {
            s->stopped = true;
            return false;
        }
        jpeg_write_scanlines(&info, &row, 1);
    }
    jpeg_finish_compress(&info);
    return true;
}

std::unique_ptr<EncodeSession> encodeSession() {
    auto s = std::make_unique<EncodeSession>();
    installErrors(s->errors);
    s->info.err = &s->errors.base;
    return s;
}

}  // namespace

std::vector<uint8_t> encodeJpeg(const Image& image, const JpegWriteOptions& options,
                                const Execution& exec) {
    if (image.empty()) throw std::runtime_error("there is no image to write");
    auto s = encodeSession();
    const int w = image.width();
    s->samples.resize(image.pixelCount() * 3);
    s->batches = std::make_unique<RowBatches>(image.height());
    if (exec.threadCount() > 1) s->converter = std::jthread(quantizeRows, s.get(), &image);
    auto rowAt = [&](int y) -> const uint8_t* {
        // While the row to encode is not ready, quantise from the bottom instead of waiting.
        const int needed = y / RowBatches::kRows;
        while (!s->batches->finished(needed)) {
            const int b = s->batches->takeBottom();
            if (b >= 0)
                quantizeBatch(s.get(), &image, b);
            else
                s->batches->waitFinished(needed);
        }
        return s->samples.data() + size_t(y) * size_t(w) * 3;
    };
    if (!encode(s.get(), w, image.height(), &options, rowAt))
        throw std::runtime_error(s->errors.message);
    return std::move(s->output.bytes);
}

std::optional<std::vector<uint8_t>> reencodeJpeg(std::span<const uint8_t> bytes, int orientation,
                                                 const JpegWriteOptions& options,
                                                 const Execution& exec) {
    auto d = std::make_unique<DecodeSession>();
    installErrors(d->errors);
    d->info.err = &d->errors.base;
    if (!readHeader(d.get(), bytes)) throw DecodeError(d->errors.message);
    checkDimensions(d->info.image_width, d->info.image_height);
    if (!prepare(d.get(), 1)) throw DecodeError(d->errors.message);
    if (!d->colour->keepsEightBitCodes()) return std::nullopt;
    const int w = int(d->info.output_width), h = int(d->info.output_height);
    orientation = normalizedOrientation(orientation);
    auto e = encodeSession();
    bool ok;
    if (orientation == 1 && exec.threadCount() > 1) {
        // The decoder runs ahead on a helper through a ring of rows that stays in the cache; the
        // encoder takes each row once it is there.
        d->ringRows = std::min(h, 128);
        std::atomic<bool> decoded{true};
        d->converter = std::jthread([&] {
            if (!readAll(d.get(), true)) decoded = false, d->progress.halt();
        });
        int ready = 0;
        auto rowAt = [&](int y) -> const uint8_t* {
            if (y > 0) d->consumed.publish(y);
            while (ready <= y)
                if ((ready = d->progress.waitBeyond(ready)) < 0) return nullptr;
            if (exec.cancelled()) return nullptr;
            return sampleRow(d.get(), y);
        };
        ok = encode(e.get(), w, h, &options, rowAt);
        d->consumed.halt();
        d->converter.join();
        if (!decoded) throw DecodeError(d->errors.message);
    } else {
        if (!readAll(d.get(), false)) throw DecodeError(d->errors.message);
        if (orientation != 1) {
            std::vector<uint8_t> upright(d->samples.size());
            orientPixels(d->samples.data(), w, h, 3, orientation, upright.data(), exec);
            d->samples.swap(upright);
        }
        const bool swap = swapsAxes(orientation);
        const int ow = swap ? h : w;
        auto rowAt = [&](int y) -> const uint8_t* {
            if (exec.cancelled()) return nullptr;
            return d->samples.data() + size_t(y) * size_t(ow) * 3;
        };
        ok = encode(e.get(), ow, swap ? w : h, &options, rowAt);
    }
    if (!ok && e->stopped) return std::nullopt;
    if (!ok) throw std::runtime_error(e->errors.message);
    return std::move(e->output.bytes);
}

void writeJpeg(const Image& image, const std::string& path, const JpegWriteOptions& options,
               const Execution& exec) {
    const std::vector<uint8_t> bytes = encodeJpeg(image, options, exec);
    AtomicFile file(path);
    if (std::fwrite(bytes.data(), 1, bytes.size(), file.stream()) != bytes.size())
        throw std::runtime_error("the disk refused the data");
    file.commit();
}

}  // namespace ql::img
