#include "HeifCodec.h"

#include <algorithm>
#include <memory>
#include <vector>

#include <libheif/heif.h>

#include "DecodeError.h"
#include "InputColour.h"

namespace ql::img {
namespace {

struct ContextFree {
    void operator()(heif_context* c) const { heif_context_free(c); }
};
struct HandleFree {
    void operator()(heif_image_handle* h) const { heif_image_handle_release(h); }
};
struct ImageFree {
    void operator()(heif_image* i) const { heif_image_release(i); }
};
using Context = std::unique_ptr<heif_context, ContextFree>;
using Handle = std::unique_ptr<heif_image_handle, HandleFree>;
using HeifImage = std::unique_ptr<heif_image, ImageFree>;

void check(heif_error e) {
    if (e.code != heif_error_Ok)
        throw DecodeError(e.message ? e.message : "the HEIF data is damaged");
}

Context openContext(std::span<const uint8_t> bytes) {
    Context ctx(heif_context_alloc());
    if (!ctx) throw DecodeError("out of memory");
    heif_context_set_maximum_image_size_limit(ctx.get(), kMaxSide);
    check(
        heif_context_read_from_memory_without_copy(ctx.get(), bytes.data(), bytes.size(), nullptr));
    return ctx;
}

Handle primary(heif_context* ctx) {
    heif_image_handle* h = nullptr;
    check(heif_context_get_primary_image_handle(ctx, &h));
    return Handle(h);
}

// The colour space the samples are in: an ICC profile when there is one, else the colour box.
InputColour colourOf(const heif_image_handle* h, SampleLayout layout) {
    const size_t size = heif_image_handle_get_raw_color_profile_size(h);
    if (size > 0 && size < (64u << 20)) {
        std::vector<uint8_t> icc(size);
        if (heif_image_handle_get_raw_color_profile(h, icc.data()).code == heif_error_Ok)
            return InputColour::fromIcc(icc, layout);
    }
    heif_color_profile_nclx* nclx = nullptr;
    if (heif_image_handle_get_nclx_color_profile(h, &nclx).code == heif_error_Ok && nclx) {
        const bool p3 = nclx->color_primaries == heif_color_primaries_SMPTE_EG_432_1;
        heif_nclx_color_profile_free(nclx);
        if (p3) return InputColour::displayP3(layout);
    }
    return InputColour::srgb(layout);
}

Image decodeHandle(const heif_image_handle* h, const Execution& exec) {
    checkDimensions(heif_image_handle_get_width(h), heif_image_handle_get_height(h));
    const bool alpha = heif_image_handle_has_alpha_channel(h);
    const int bits = heif_image_handle_get_luma_bits_per_pixel(h);
    const bool deep = bits > 8;
    const heif_chroma chroma =
        deep ? (alpha ? heif_chroma_interleaved_RRGGBBAA_LE : heif_chroma_interleaved_RRGGBB_LE)
             : (alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB);
    heif_image* raw = nullptr;
    check(heif_decode_image(h, &raw, heif_colorspace_RGB, chroma, nullptr));
    HeifImage decoded(raw);
    const int w = heif_image_get_width(raw, heif_channel_interleaved);
    const int ht = heif_image_get_height(raw, heif_channel_interleaved);
    checkDimensions(w, ht);
    int stride = 0;
    const uint8_t* plane = heif_image_get_plane_readonly(raw, heif_channel_interleaved, &stride);
    if (!plane) throw DecodeError("the HEIF image has no pixels");
    SampleLayout layout;
    layout.channels = alpha ? 4 : 3;
    layout.type = deep ? SampleType::u16 : SampleType::u8;
    const InputColour colour = colourOf(h, layout);
    const int planeBits =
        deep ? heif_image_get_bits_per_pixel_range(raw, heif_channel_interleaved) : 8;
    const int maxCode = (1 << std::clamp(planeBits, 8, 16)) - 1;
    Image image = Image::forOverwrite(w, ht);
    if (!parallelFor(0, ht, exec, [&](int y0, int y1) {
            std::vector<uint16_t> wide(deep ? size_t(w) * size_t(layout.channels) : 0);
            for (int y = y0; y < y1; ++y) {
                const uint8_t* row = plane + size_t(y) * size_t(stride);
                if (!deep) {
                    colour.convertRow(row, w, image.row(y));
                    continue;
                }
                // Ten- and twelve-bit samples arrive in their own range; stretch to 16 bits.
                const auto* in = reinterpret_cast<const uint16_t*>(row);
                for (size_t i = 0; i < wide.size(); ++i)
                    wide[i] = uint16_t(std::min<uint32_t>(in[i], uint32_t(maxCode)) * 65535u /
                                       uint32_t(maxCode));
                colour.convertRow(wide.data(), w, image.row(y));
            }
        }))
        return {};
    return image;
}

}  // namespace

std::pair<int, int> readHeifSize(std::span<const uint8_t> bytes) {
    Context ctx = openContext(bytes);
    Handle h = primary(ctx.get());
    const int w = heif_image_handle_get_width(h.get()), ht = heif_image_handle_get_height(h.get());
    checkDimensions(w, ht);
    return {w, ht};
}

Image decodeHeif(std::span<const uint8_t> bytes, const Execution& exec) {
    Context ctx = openContext(bytes);
    Handle h = primary(ctx.get());
    return decodeHandle(h.get(), exec);
}

Image decodeHeifThumbnail(std::span<const uint8_t> bytes) {
    try {
        Context ctx = openContext(bytes);
        Handle h = primary(ctx.get());
        const int count = heif_image_handle_get_number_of_thumbnails(h.get());
        if (count <= 0) return {};
        auto ids = std::vector<heif_item_id>(size_t(count));
        heif_image_handle_get_list_of_thumbnail_IDs(h.get(), ids.data(), count);
        Image best;
        for (heif_item_id id : ids) {
            heif_image_handle* t = nullptr;
            if (heif_image_handle_get_thumbnail(h.get(), id, &t).code != heif_error_Ok) continue;
            Handle thumb(t);
            Image image = decodeHandle(thumb.get(), Execution{1});
            if (image.longEdge() > best.longEdge()) best = image;
        }
        return best;
    } catch (const DecodeError&) {
        return {};
    }
}

}  // namespace ql::img
