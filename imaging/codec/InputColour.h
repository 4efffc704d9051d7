// Decoded samples to the engine's pixels: the file's colour space (its embedded ICC profile, or
// sRGB when it has none) converted into linear sRGB float RGBA, premultiplied.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

namespace ql::img {

enum class SampleType { u8, u16, f32 };

/// How one row of decoded samples is laid out: 1 (grey), 2 (grey, alpha), 3 (RGB) or 4 (RGBA, or
/// CMYK) interleaved channels of one type, in native byte order.
struct SampleLayout {
    int channels = 3;
    SampleType type = SampleType::u8;
    bool cmyk = false;
    bool invertedCmyk = false;  // as Adobe writes CMYK JPEGs: 0 means full ink
    bool extraIsAlpha = true;   // false: a fourth (or second) channel that is ignored
    bool hasAlpha() const { return !cmyk && extraIsAlpha && (channels == 2 || channels == 4); }
    int colourChannels() const { return cmyk ? 4 : channels >= 3 ? 3 : 1; }
};

/// A conversion built once per file and then applied row by row, from any number of threads.
class InputColour {
  public:
    /// sRGB-encoded samples (float samples are taken as linear sRGB, as float files usually are).
    static InputColour srgb(SampleLayout layout);
    /// Samples in the colour space of an embedded ICC profile. A profile that lcms can't parse,
    /// or whose colour space doesn't fit the samples, falls back to srgb().
    static InputColour fromIcc(std::span<const uint8_t> icc, SampleLayout layout);
    /// Samples encoded with the sRGB curve but Display P3 primaries (HEIF files that say so in
    /// their colour box instead of a profile).
    static InputColour displayP3(SampleLayout layout);

    /// Converts `width` pixels of samples into `width` × 4 floats.
    void convertRow(const void* samples, int width, float* rgba) const;

    /// True when the conversion came from the embedded profile (not the sRGB fallback).
    bool usesProfile() const;
    /// True for opaque 8-bit RGB already in sRGB: encoding the converted pixels to 8-bit sRGB
    /// gives back every sample exactly, so a picture nothing changes may skip the conversion.
    bool keepsEightBitCodes() const;

    struct State;

  private:
    explicit InputColour(std::shared_ptr<const State> state) : state_(std::move(state)) {}
    std::shared_ptr<const State> state_;
};

}  // namespace ql::img
