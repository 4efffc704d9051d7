#include "Fixtures.h"

#include <lcms2.h>
#include <unistd.h>
#include <atomic>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace ql::testing {

TempDir::TempDir() {
    static std::atomic<int> counter{0};
    path_ = std::filesystem::temp_directory_path() /
            ("ql-test-" + std::to_string(::getpid()) + "-" + std::to_string(counter++));
    std::filesystem::create_directories(path_);
}

TempDir::~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
}

void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
    if (!out) throw std::runtime_error("cannot write " + path);
}

std::vector<uint8_t> readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

std::vector<uint8_t> quadrantRGB(int width, int height) {
    std::vector<uint8_t> rgb(size_t(width) * size_t(height) * 3);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            uint8_t* p = &rgb[(size_t(y) * size_t(width) + size_t(x)) * 3];
            const bool right = x >= width / 2, bottom = y >= height / 2;
            // top-left red, top-right green, bottom-left blue, bottom-right grey
            const int r = !right && !bottom ? 220 : right && bottom ? 128 : 30;
            const int g = right && !bottom ? 200 : right && bottom ? 128 : 40;
            const int b = !right && bottom ? 210 : right && bottom ? 128 : 35;
            p[0] = uint8_t(r), p[1] = uint8_t(g), p[2] = uint8_t(b);
        }
    return rgb;
}

std::vector<uint8_t> exifWithOrientation(int orientation) {
    return {'E',
            'x',
            'i',
            'f',
            0,
            0,
            'I',
            'I',
            42,
            0,
            8,
            0,
            0,
            0,  // TIFF header, IFD0 at offset 8
            1,
            0,  // one entry
            0x12,
            0x01,
            3,
            0,
            1,
            0,
            0,
            0,  // Orientation, SHORT, count 1
            uint8_t(orientation),
            0,
            0,
            0,  // value
            0,
            0,
            0,
            0};  // no next IFD
}

std::vector<uint8_t> withApp1(const std::vector<uint8_t>& jpeg,
                              const std::vector<uint8_t>& payload) {
    const uint16_t length = uint16_t(payload.size() + 2);
    std::vector<uint8_t> file = {
        0xFF, 0xD8, 0xFF, 0xE1, uint8_t(length >> 8), uint8_t(length & 0xFF)};
    file.insert(file.end(), payload.begin(), payload.end());
    file.insert(file.end(), jpeg.begin() + 2, jpeg.end());
    return file;
}

std::vector<uint8_t> displayP3Profile() {
    const cmsCIExyY d65{0.3127, 0.3290, 1};
    const cmsCIExyYTRIPLE p3{{0.680, 0.320, 1}, {0.265, 0.690, 1}, {0.150, 0.060, 1}};
    const cmsFloat64Number srgbCurve[5] = {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045};
    cmsToneCurve* curve = cmsBuildParametricToneCurve(nullptr, 4, srgbCurve);
    cmsToneCurve* curves[3] = {curve, curve, curve};
    cmsHPROFILE profile = cmsCreateRGBProfile(&d65, &p3, curves);
    cmsUInt32Number size = 0;
    cmsSaveProfileToMem(profile, nullptr, &size);
    std::vector<uint8_t> bytes(size);
    cmsSaveProfileToMem(profile, bytes.data(), &size);
    cmsCloseProfile(profile);
    cmsFreeToneCurve(curve);
    return bytes;
}

}  // namespace ql::testing
