#include "TiffCodec.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>
#include <vector>

#include <tiffio.h>

#include "AtomicFile.h"
#include "DecodeError.h"
#include "InputColour.h"
#include "OutputSamples.h"
#include "SrgbProfile.h"

namespace ql::img {
namespace {

void silenceTiff() {
    static std::once_flag once;
    std::call_once(once, [] {
        TIFFSetErrorHandler(nullptr);
        TIFFSetWarningHandler(nullptr);
    });
}

// A read-only file in memory, handed to libtiff through its client callbacks.
struct Memory {
    std::span<const uint8_t> bytes;
    toff_t offset = 0;
};

tmsize_t memRead(thandle_t h, void* out, tmsize_t n) {
    auto* m = static_cast<Memory*>(h);
    if (n <= 0 || m->offset >= m->bytes.size()) return 0;
    const size_t count = std::min<size_t>(size_t(n), m->bytes.size() - m->offset);
    std::memcpy(out, m->bytes.data() + m->offset, count);
    m->offset += count;
    return tmsize_t(count);
}
tmsize_t memWrite(thandle_t, void*, tmsize_t) {
    return 0;
}
toff_t memSeek(thandle_t h, toff_t off, int whence) {
    auto* m = static_cast<Memory*>(h);
    const toff_t base = whence == SEEK_CUR ? m->offset : whence == SEEK_END ? m->bytes.size() : 0;
    m->offset = base + off;
    return m->offset;
}
int memClose(thandle_t) {
    return 0;
}
toff_t memSize(thandle_t h) {
    return static_cast<Memory*>(h)->bytes.size();
}

struct TiffCloser {
    void operator()(TIFF* t) const { TIFFClose(t); }
};
using TiffHandle = std::unique_ptr<TIFF, TiffCloser>;

template <typename T>
T field(TIFF* tif, ttag_t tag, T fallback) {
    T v{};
    return TIFFGetFieldDefaulted(tif, tag, &v) ? v : fallback;
}

// Interleaved 8/16/32-bit grey or RGB with up to one extra channel, read row by row or tile by
// tile into one buffer of samples.
bool readDirect(TIFF* tif, int w, int h, int spp, int bytesPerSample, std::vector<uint8_t>& out) {
    const size_t rowBytes = size_t(w) * size_t(spp) * size_t(bytesPerSample);
    out.resize(rowBytes * size_t(h));
    if (!TIFFIsTiled(tif)) {
        if (size_t(TIFFScanlineSize(tif)) != rowBytes) return false;
        for (int y = 0; y < h; ++y)
            if (TIFFReadScanline(tif, out.data() + rowBytes * size_t(y), uint32_t(y), 0) < 0)
                return false;
        return true;
    }
    const uint32_t tw = field<uint32_t>(tif, TIFFTAG_TILEWIDTH, 0);
    const uint32_t th = field<uint32_t>(tif, TIFFTAG_TILELENGTH, 0);
    if (tw == 0 || th == 0 || tw > 65536 || th > 65536) return false;
    const size_t pixelBytes = size_t(spp) * size_t(bytesPerSample);
    std::vector<uint8_t> tile(size_t(TIFFTileSize(tif)));
    if (tile.size() < size_t(tw) * th * pixelBytes) return false;
    for (uint32_t ty = 0; ty < uint32_t(h); ty += th)
        for (uint32_t tx = 0; tx < uint32_t(w); tx += tw) {
            if (TIFFReadTile(tif, tile.data(), tx, ty, 0, 0) < 0) return false;
            const uint32_t cw = std::min(tw, uint32_t(w) - tx), ch = std::min(th, uint32_t(h) - ty);
            for (uint32_t y = 0; y < ch; ++y)
                std::memcpy(out.data() + rowBytes * (ty + y) + pixelBytes * tx,
                            tile.data() + size_t(y) * tw * pixelBytes, cw * pixelBytes);
        }
    return true;
}

}  // namespace

namespace {

TiffHandle openMemory(Memory& memory) {
    silenceTiff();
    TiffHandle tif(TIFFClientOpen("memory", "rm", &memory, memRead, memWrite, memSeek, memClose,
                                  memSize, nullptr, nullptr));
    if (!tif) throw DecodeError("not a readable TIFF file");
    return tif;
}

}  // namespace

std::pair<int, int> readTiffSize(std::span<const uint8_t> bytes) {
    Memory memory{bytes};
    TiffHandle tif = openMemory(memory);
    const uint32_t w = field<uint32_t>(tif.get(), TIFFTAG_IMAGEWIDTH, 0);
    const uint32_t h = field<uint32_t>(tif.get(), TIFFTAG_IMAGELENGTH, 0);
    checkDimensions(w, h);
    return {int(w), int(h)};
}

Image decodeTiff(std::span<const uint8_t> bytes, const Execution& exec) {
    Memory memory{bytes};
    TiffHandle tif = openMemory(memory);
    TIFF* t = tif.get();
    const uint32_t w = field<uint32_t>(t, TIFFTAG_IMAGEWIDTH, 0);
    const uint32_t h = field<uint32_t>(t, TIFFTAG_IMAGELENGTH, 0);
    checkDimensions(w, h);
    const int spp = field<uint16_t>(t, TIFFTAG_SAMPLESPERPIXEL, 1);
    const int bps = field<uint16_t>(t, TIFFTAG_BITSPERSAMPLE, 1);
    const int format = field<uint16_t>(t, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
    const int photometric = field<uint16_t>(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
    const int planar = field<uint16_t>(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    uint32_t iccSize = 0;
    void* iccData = nullptr;
    std::span<const uint8_t> icc;
    if (TIFFGetField(t, TIFFTAG_ICCPROFILE, &iccSize, &iccData) && iccData)
        icc = {static_cast<const uint8_t*>(iccData), iccSize};

    const bool grey = photometric == PHOTOMETRIC_MINISBLACK && (spp == 1 || spp == 2);
    const bool rgb = photometric == PHOTOMETRIC_RGB && (spp == 3 || spp == 4);
    const bool integer = format == SAMPLEFORMAT_UINT && (bps == 8 || bps == 16);
    const bool floating = format == SAMPLEFORMAT_IEEEFP && bps == 32;
    std::vector<uint8_t> samples;
    SampleLayout layout;
    if ((grey || rgb) && (integer || floating) && planar == PLANARCONFIG_CONTIG &&
        readDirect(t, int(w), int(h), spp, bps / 8, samples)) {
        layout.channels = spp;
        layout.type = bps == 8 ? SampleType::u8 : bps == 16 ? SampleType::u16 : SampleType::f32;
        // An extra channel not declared as alpha (a mask, a depth map) is not transparency.
        uint16_t count = 0;
        uint16_t* kinds = nullptr;
        if ((spp == 2 || spp == 4) && (!TIFFGetField(t, TIFFTAG_EXTRASAMPLES, &count, &kinds) ||
                                       count == 0 || !kinds || kinds[0] == EXTRASAMPLE_UNSPECIFIED))
            layout.extraIsAlpha = false;
    } else {
        // Everything else through libtiff's own 8-bit RGBA reader. It would flip by the
        // Orientation tag; orientation is applied once, by the caller, from the metadata.
        TIFFSetField(t, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
        std::vector<uint32_t> raster(size_t(w) * h);
        char message[1024] = {};
        if (!TIFFRGBAImageOK(t, message) ||
            !TIFFReadRGBAImageOriented(t, w, h, raster.data(), ORIENTATION_TOPLEFT, 0))
            throw DecodeError("the TIFF data is damaged or of a kind this program can't read");
        samples.resize(raster.size() * 4);
        for (size_t i = 0; i < raster.size(); ++i) {
            const uint32_t p = raster[i];
            samples[i * 4] = uint8_t(TIFFGetR(p)), samples[i * 4 + 1] = uint8_t(TIFFGetG(p));
            samples[i * 4 + 2] = uint8_t(TIFFGetB(p)), samples[i * 4 + 3] = uint8_t(TIFFGetA(p));
        }
        layout.channels = 4, layout.type = SampleType::u8;
        icc = {};  // libtiff has already converted whatever the samples were into RGB
    }
    const InputColour colour = InputColour::fromIcc(icc, layout);
    const size_t rowBytes = samples.size() / h;
    Image image = Image::forOverwrite(int(w), int(h));
    if (!parallelFor(0, int(h), exec, [&](int y0, int y1) {
            for (int y = y0; y < y1; ++y)
                colour.convertRow(samples.data() + rowBytes * size_t(y), int(w), image.row(y));
        }))
        return {};
    return image;
}

void writeTiff16(const Image& image, const std::string& path, const Execution& exec) {
    if (image.empty()) throw std::runtime_error("there is no image to write");
    silenceTiff();
    const int w = image.width(), h = image.height();
    const int channels = isOpaque(image) ? 3 : 4;
    std::vector<uint16_t> samples(image.pixelCount() * size_t(channels));
    parallelFor(0, h, exec, [&](int y0, int y1) {
        for (int y = y0; y < y1; ++y)
            toSrgb16(image.row(y), w, samples.data() + size_t(y) * size_t(w) * size_t(channels),
                     channels);
    });
    AtomicFile file(path);
    {
        TiffHandle tif(TIFFOpen(file.temporaryPath().c_str(), "w"));
        if (!tif) throw std::runtime_error("the TIFF file could not be created");
        TIFF* t = tif.get();
        TIFFSetField(t, TIFFTAG_IMAGEWIDTH, uint32_t(w));
        TIFFSetField(t, TIFFTAG_IMAGELENGTH, uint32_t(h));
        TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, uint16_t(channels));
        TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, uint16_t(16));
        TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, uint16_t(SAMPLEFORMAT_UINT));
        TIFFSetField(t, TIFFTAG_PHOTOMETRIC, uint16_t(PHOTOMETRIC_RGB));
        TIFFSetField(t, TIFFTAG_PLANARCONFIG, uint16_t(PLANARCONFIG_CONTIG));
        TIFFSetField(t, TIFFTAG_ORIENTATION, uint16_t(ORIENTATION_TOPLEFT));
        TIFFSetField(t, TIFFTAG_COMPRESSION, uint16_t(COMPRESSION_NONE));
        TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, TIFFDefaultStripSize(t, 0));
        if (channels == 4) {
            const uint16_t alpha = EXTRASAMPLE_UNASSALPHA;
            TIFFSetField(t, TIFFTAG_EXTRASAMPLES, uint16_t(1), &alpha);
        }
        const std::vector<uint8_t>& icc = srgbIccProfile();
        if (!icc.empty()) TIFFSetField(t, TIFFTAG_ICCPROFILE, uint32_t(icc.size()), icc.data());
        for (int y = 0; y < h; ++y)
            if (TIFFWriteScanline(t, samples.data() + size_t(y) * size_t(w) * size_t(channels),
                                  uint32_t(y), 0) < 0)
                throw std::runtime_error("the disk refused the TIFF data");
        if (!TIFFFlush(t)) throw std::runtime_error("the disk refused the TIFF data");
    }
    file.commit();
}

}  // namespace ql::img
