#include "HeifWriter.h"

#include <cstring>
#include <stdexcept>

#include <libheif/heif.h>

namespace ql::testing {
namespace {

heif_error collect(heif_context*, const void* data, size_t size, void* userdata) {
    auto* out = static_cast<std::vector<uint8_t>*>(userdata);
    const auto* bytes = static_cast<const uint8_t*>(data);
    out->insert(out->end(), bytes, bytes + size);
    return heif_error{heif_error_Ok, heif_suberror_Unspecified, "ok"};
}

void check(heif_error e) {
    if (e.code != heif_error_Ok) throw std::runtime_error(e.message ? e.message : "libheif failed");
}

}  // namespace

std::vector<uint8_t> encodeHeic(int width, int height, const std::vector<uint8_t>& rgb,
                                int quality) {
    if (rgb.size() != size_t(width) * size_t(height) * 3) throw std::invalid_argument("rgb size");
    heif_context* ctx = heif_context_alloc();
    heif_encoder* encoder = nullptr;
    heif_image* image = nullptr;
    std::vector<uint8_t> out;
    try {
        check(heif_context_get_encoder_for_format(ctx, heif_compression_HEVC, &encoder));
        heif_encoder_set_lossy_quality(encoder, quality);
        check(heif_image_create(width, height, heif_colorspace_RGB, heif_chroma_interleaved_RGB,
                                &image));
        check(heif_image_add_plane(image, heif_channel_interleaved, width, height, 8));
        int stride = 0;
        uint8_t* plane = heif_image_get_plane(image, heif_channel_interleaved, &stride);
        for (int y = 0; y < height; ++y)
            std::memcpy(plane + size_t(y) * size_t(stride),
                        rgb.data() + size_t(y) * size_t(width) * 3, size_t(width) * 3);
        check(heif_context_encode_image(ctx, image, encoder, nullptr, nullptr));
        heif_writer writer{1, collect};
        check(heif_context_write(ctx, &writer, &out));
    } catch (...) {
        if (image) heif_image_release(image);
        if (encoder) heif_encoder_release(encoder);
        heif_context_free(ctx);
        throw;
    }
    heif_image_release(image);
    heif_encoder_release(encoder);
    heif_context_free(ctx);
    return out;
}

}  // namespace ql::testing
