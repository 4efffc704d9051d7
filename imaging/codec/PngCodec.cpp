#include "PngCodec.h"

#include <algorithm>
#include <csetjmp>
#include <cstring>
#include <memory>

#include <png.h>

#include "AtomicFile.h"
#include "DecodeError.h"
#include "InputColour.h"
#include "OutputSamples.h"

namespace ql::img {
namespace {

// libpng reports errors by longjmp to the frame that called setjmp(png_jmpbuf); everything
// that frame changes after setjmp lives in this session on the heap.
struct ReadSession {
    png_structp png = nullptr;
    png_infop info = nullptr;
    std::span<const uint8_t> bytes;
    size_t offset = 0;
    std::string error = "the PNG data is damaged";
    std::vector<uint8_t> icc;
    std::vector<uint8_t> samples;
    std::vector<png_bytep> rows;
    SampleLayout layout;
    int width = 0, height = 0;

    ~ReadSession() { png_destroy_read_struct(&png, info ? &info : nullptr, nullptr); }
};

void readBytes(png_structp png, png_bytep out, png_size_t count) {
    auto* s = static_cast<ReadSession*>(png_get_io_ptr(png));
    if (count > s->bytes.size() - s->offset) png_error(png, "the PNG file ends early");
    std::memcpy(out, s->bytes.data() + s->offset, count);
    s->offset += count;
}

void onReadError(png_structp png, png_const_charp message) {
    auto* s = static_cast<ReadSession*>(png_get_error_ptr(png));
    if (message) s->error = message;
    png_longjmp(png, 1);
}

void onWarning(png_structp, png_const_charp) {}

bool readPng(ReadSession* s) {
    if (setjmp(png_jmpbuf(s->png))) return false;
    png_set_read_fn(s->png, s, readBytes);
    // Refuse absurd headers before anything is allocated for them.
    png_set_user_limits(s->png, kMaxSide, kMaxSide);
    png_set_chunk_malloc_max(s->png, 64u << 20);
    png_read_info(s->png, s->info);
    const png_uint_32 w = png_get_image_width(s->png, s->info);
    const png_uint_32 h = png_get_image_height(s->png, s->info);
    checkDimensions(w, h);
    png_charp name = nullptr;
    png_bytep profile = nullptr;
    png_uint_32 profileSize = 0;
    int compression = 0;
    if (png_get_iCCP(s->png, s->info, &name, &compression, &profile, &profileSize) && profile)
        s->icc.assign(profile, profile + profileSize);

    const int bitDepth = png_get_bit_depth(s->png, s->info);
    const int type = png_get_color_type(s->png, s->info);
    if (type == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(s->png);
    if (type == PNG_COLOR_TYPE_GRAY && bitDepth < 8) png_set_expand_gray_1_2_4_to_8(s->png);
    if (png_get_valid(s->png, s->info, PNG_INFO_tRNS)) png_set_tRNS_to_alpha(s->png);
    if (bitDepth == 16) png_set_swap(s->png);  // native (little-endian) order
    png_set_interlace_handling(s->png);
    png_read_update_info(s->png, s->info);

    s->width = int(w), s->height = int(h);
    s->layout.channels = png_get_channels(s->png, s->info);
    s->layout.type = png_get_bit_depth(s->png, s->info) == 16 ? SampleType::u16 : SampleType::u8;
    const size_t rowBytes = png_get_rowbytes(s->png, s->info);
    s->samples.resize(rowBytes * h);
    s->rows.resize(h);
    for (png_uint_32 y = 0; y < h; ++y)
        s->rows[y] = s->samples.data() + rowBytes * y;
    png_read_image(s->png, s->rows.data());
    png_read_end(s->png, nullptr);
    return true;
}

}  // namespace

Image decodePng(std::span<const uint8_t> bytes, const Execution& exec) {
    auto s = std::make_unique<ReadSession>();
    s->bytes = bytes;
    s->png = png_create_read_struct(PNG_LIBPNG_VER_STRING, s.get(), onReadError, onWarning);
    if (!s->png) throw DecodeError("out of memory");
    s->info = png_create_info_struct(s->png);
    if (!s->info) throw DecodeError("out of memory");
    if (!readPng(s.get())) throw DecodeError(s->error);
    const InputColour colour = InputColour::fromIcc(s->icc, s->layout);
    Image image = Image::forOverwrite(s->width, s->height);
    const size_t rowBytes = s->samples.size() / size_t(s->height);
    if (!parallelFor(0, s->height, exec, [&](int y0, int y1) {
            for (int y = y0; y < y1; ++y)
                colour.convertRow(s->samples.data() + rowBytes * size_t(y), s->width, image.row(y));
        }))
        return {};
    return image;
}

namespace {

struct WriteSession {
    png_structp png = nullptr;
    png_infop info = nullptr;
    FILE* stream = nullptr;
    std::string error = "the PNG could not be written";
    std::vector<uint8_t> samples;
    std::vector<png_bytep> rows;

    ~WriteSession() { png_destroy_write_struct(&png, info ? &info : nullptr); }
};

void onWriteError(png_structp png, png_const_charp message) {
    auto* s = static_cast<WriteSession*>(png_get_error_ptr(png));
    if (message) s->error = message;
    png_longjmp(png, 1);
}

bool writeRows(WriteSession* s, int width, int height, int channels) {
    if (setjmp(png_jmpbuf(s->png))) return false;
    png_init_io(s->png, s->stream);
    png_set_IHDR(s->png, s->info, png_uint_32(width), png_uint_32(height), 8,
                 channels == 4 ? PNG_COLOR_TYPE_RGBA : PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_sRGB_gAMA_and_cHRM(s->png, s->info, PNG_sRGB_INTENT_PERCEPTUAL);
    png_set_compression_level(s->png, 6);
    png_write_info(s->png, s->info);
    png_write_image(s->png, s->rows.data());
    png_write_end(s->png, s->info);
    return true;
}

}  // namespace

void writePng8(const Image& image, const std::string& path, const Execution& exec) {
    if (image.empty()) throw std::runtime_error("there is no image to write");
    const int w = image.width(), h = image.height();
    const int channels = isOpaque(image) ? 3 : 4;
    auto s = std::make_unique<WriteSession>();
    s->samples.resize(image.pixelCount() * size_t(channels));
    s->rows.resize(size_t(h));
    parallelFor(0, h, exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y) {
            s->rows[size_t(y)] = s->samples.data() + size_t(y) * size_t(w) * size_t(channels);
            toSrgb8(image.row(y), w, s->rows[size_t(y)], channels);
        }
    });
    s->png = png_create_write_struct(PNG_LIBPNG_VER_STRING, s.get(), onWriteError, onWarning);
    if (!s->png) throw std::runtime_error("out of memory");
    s->info = png_create_info_struct(s->png);
    if (!s->info) throw std::runtime_error("out of memory");
    AtomicFile file(path);
    s->stream = file.stream();
    if (!writeRows(s.get(), w, h, channels)) throw std::runtime_error(s->error);
    file.commit();
}

}  // namespace ql::img
