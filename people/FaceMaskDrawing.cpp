#include "FaceMaskDrawing.h"

#include <QImage>
#include <QPainter>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <new>

#include "FaceMaskShapes.h"
#include "imaging/GaussianBlur.h"
#include "imaging/Simd.h"

namespace ql::FaceParts {
namespace {

using img::Execution;
using img::Image;
using img::simd::v4;
using vision::FaceShape;
namespace simd = img::simd;

constexpr int canvasEdge = 1024;

// How far each part is softened, as a fraction of the picture's long edge.
double softening(Part part) {
    switch (part) {
        case Part::eyes:
            return 0.0015;
        case Part::underEyes:
            return 0.004;
        case Part::teeth:
            return 0.001;
        case Part::clearSkin:
            return 0.003;
        case Part::faceSkin:
            return 0.004;
        case Part::iris:
            return 0.0008;
        case Part::glasses:
            return 0.004;
        case Part::lips:
            return 0.0008;
        case Part::brows:
            return 0.001;
        case Part::lashes:
            return 0.0006;
        case Part::sclera:
            return 0.0006;
    }
    return 0;
}
constexpr double hairSoftening = 0.005;

// The drawing surface: its long edge is 1024 whatever the picture's size, and each axis is scaled
// so that the canvas covers the picture exactly. Shapes are given in picture pixels.
struct Canvas {
    QImage image;
    double sx = 1, sy = 1;
    int pictureLongEdge = 1;

    Canvas(int width, int height, QImage::Format format) {
        pictureLongEdge = std::max(width, height);
        const double s = double(canvasEdge) / pictureLongEdge;
        const int cw = std::clamp(int(std::lround(width * s)), 1, canvasEdge);
        const int ch = std::clamp(int(std::lround(height * s)), 1, canvasEdge);
        image = QImage(cw, ch, format);
        image.fill(Qt::black);
        sx = double(cw) / width;
        sy = double(ch) / height;
    }

    /// Canvas pixels per picture pixel, for line widths given on the canvas.
    double unit() const { return double(canvasEdge) / pictureLongEdge; }

    void paint(const std::vector<FaceShape>& faces,
               const std::function<void(QPainter&, const FaceShape&)>& draw) {
        if (image.isNull()) return;
        QPainter p(&image);
        p.setRenderHint(QPainter::Antialiasing);
        p.setTransform(QTransform::fromScale(sx, sy));
        // Landmarks far off the picture only need to stay far off; the rasteriser need not see
        // absurd numbers.
        const double limit = 10.0 * pictureLongEdge;
        for (const FaceShape& face : faces) {
            p.save();
            draw(p, detail::sanitised(face, limit));
            p.restore();
        }
    }
};

// Grey canvases hold the grey masks; colour ones (32-bit, with alpha for the blending modes) the
// maps whose channels differ.
bool isGrey(const QImage& canvas) {
    return canvas.format() == QImage::Format_Grayscale8;
}

// The smallest rectangle holding every painted (non-black) pixel; empty when none is.
QRect paintedBounds(const QImage& canvas) {
    const bool grey = isGrey(canvas);
    const int w = canvas.width(), h = canvas.height();
    int x0 = w, x1 = -1, y0 = h, y1 = -1;
    for (int y = 0; y < h; ++y) {
        const uchar* line = canvas.constScanLine(y);
        const auto lit = [&](int x) {
            if (grey) return line[x] != 0;
            uint32_t v;
            std::memcpy(&v, line + 4 * x, 4);
            return (v & 0xffffffu) != 0;
        };
        int a = 0;
        while (a < w && !lit(a))
            ++a;
        if (a == w) continue;
        int b = w - 1;
        while (!lit(b))
            --b;
        x0 = std::min(x0, a), x1 = std::max(x1, b);
        y0 = std::min(y0, y), y1 = std::max(y1, y);
    }
    return x1 < 0 ? QRect() : QRect(QPoint(x0, y0), QPoint(x1, y1));
}

// The canvas pixels in `r` as four floats each, values 0…1 in red, green and blue, alpha 0.
Image cropOf(const QImage& canvas, const QRect& r) {
    const bool grey = isGrey(canvas);
    Image out(r.width(), r.height());
    for (int y = 0; y < r.height(); ++y) {
        const uchar* line = canvas.constScanLine(r.y() + y);
        float* o = out.row(y);
        for (int x = 0; x < r.width(); ++x, o += 4) {
            if (grey) {
                o[0] = o[1] = o[2] = line[r.x() + x] / 255.0f;
            } else {
                uint32_t v;
                std::memcpy(&v, line + 4 * (r.x() + x), 4);
                o[0] = float((v >> 16) & 255) / 255.0f;
                o[1] = float((v >> 8) & 255) / 255.0f;
                o[2] = float(v & 255) / 255.0f;
            }
        }
    }
    return out;
}

// The canvas in `at`, blurred by σ with clamped edges (unblurred below 0.3). The blur runs on
// bands of rows that overlap by `margin`, beyond the reach of the blur, so the result is that of
// one blur; each band stays small enough to live outside the engine's pool of pictures, which
// hands back all it holds whenever a new size is asked for, and the full-size masks then keep
// their mapped memory. Empty when cancelled.
std::vector<v4> blurredCrop(const QImage& canvas, const QRect& at, double sigma, int margin,
                            const Execution& exec) {
    constexpr int bandPixels = 200'000;
    const int w = at.width(), h = at.height();
    const int rows = std::max(16, bandPixels / w - 2 * margin);
    std::vector<v4> out(size_t(w) * size_t(h));
    for (int k0 = 0; k0 < h; k0 += rows) {
        const int k1 = std::min(h, k0 + rows);
        const int s0 = std::max(0, k0 - margin), s1 = std::min(h, k1 + margin);
        Image band = cropOf(canvas, QRect(at.x(), at.y() + s0, w, s1 - s0));
        if (sigma >= 0.3)
            band = img::gaussianBlur(band, {float(sigma), img::EdgeMode::clamp}, exec);
        if (band.empty()) return {};
        std::memcpy(&out[size_t(k0) * size_t(w)], band.row(k0 - s0),
                    size_t(k1 - k0) * size_t(w) * sizeof(v4));
    }
    return out;
}

// The linear filter from canvas to picture along one axis: bilinear where the picture is larger
// than the canvas, a tent one picture pixel wide where it is smaller, so that no canvas pixel is
// passed over. Source indices are clamped to the canvas and then taken relative to the crop; taps
// outside the crop, which is black there, are dropped after normalising.
struct Taps {
    int size = 0;            // taps per picture position
    std::vector<int> index;  // size per position, into the crop
    std::vector<float> weight;
    int begin = 0, end = 0;  // picture positions with any tap inside the crop

    Taps(int pictureCount, int canvasCount, int cropStart, int cropCount) {
        const double ratio = double(canvasCount) / pictureCount, reach = std::max(1.0, ratio);
        size = int(std::ceil(2 * reach));  // taps closer than `reach`, the only ones weighing
        index.assign(size_t(pictureCount) * size_t(size), 0);
        weight.assign(index.size(), 0.0f);
        begin = pictureCount, end = 0;
        std::vector<double> w(static_cast<size_t>(size));
        for (int i = 0; i < pictureCount; ++i) {
            const double c = (i + 0.5) * ratio - 0.5;
            const int first = int(std::floor(c - reach)) + 1;
            double sum = 0;
            for (int k = 0; k < size; ++k)
                sum += w[size_t(k)] = std::max(0.0, 1 - std::abs(first + k - c) / reach);
            bool inside = false;
            for (int k = 0; k < size; ++k) {
                const int at = std::clamp(first + k, 0, canvasCount - 1) - cropStart;
                if (at < 0 || at >= cropCount || w[size_t(k)] <= 0) continue;
                const size_t slot = size_t(i) * size_t(size) + size_t(k);
                index[slot] = at;
                weight[slot] = float(w[size_t(k)] / sum);
                inside = true;
            }
            if (inside) begin = std::min(begin, i), end = std::max(end, i + 1);
        }
    }
    bool active(int i) const { return i >= begin && i < end; }
};

// The crop (blurred) at its place in the canvas, resampled to the picture; transparent black
// elsewhere. Only the rows and columns the crop reaches are written: the rest of the mask is
// memory the system has not even mapped. A pixel's alpha is its largest channel, so the mask is
// white (or the hair map's colours) laid over nothing at that strength.
Image resampled(const std::vector<v4>& crop, const QRect& at, const QSize& canvas, int width,
                int height, const Execution& exec) {
    const Taps rows(height, canvas.height(), at.y(), at.height());
    const Taps cols(width, canvas.width(), at.x(), at.width());
    Image out;
    try {
        out = Image(width, height);
    } catch (const std::bad_alloc&) {
        return {};  // a picture too large for memory gets no mask rather than an abort
    }
    if (cols.begin >= cols.end) return out;
    const int cw = at.width();
    const v4 one = simd::splat(1);
    const bool ok = img::parallelFor(0, height, exec, [&](int y0, int y1) {
        std::vector<v4> line(static_cast<size_t>(cw));
        for (int y = y0; y < y1; ++y) {
            if (!rows.active(y)) continue;
            float* o = out.row(y);
            std::fill(line.begin(), line.end(), simd::splat(0));
            for (int k = 0; k < rows.size; ++k) {
                const size_t slot = size_t(y) * size_t(rows.size) + size_t(k);
                const v4 w = simd::splat(rows.weight[slot]);
                if (rows.weight[slot] == 0) continue;
                const v4* src = &crop[size_t(rows.index[slot]) * size_t(cw)];
                for (int x = 0; x < cw; ++x)
                    line[size_t(x)] += w * src[x];
            }
            for (int x = cols.begin; x < cols.end; ++x) {
                v4 v = simd::splat(0);
                const size_t base = size_t(x) * size_t(cols.size);
                for (int k = 0; k < cols.size; ++k)
                    v += cols.weight[base + size_t(k)] * line[size_t(cols.index[base + size_t(k)])];
                v = v > one ? one : v;
                v[3] = std::max({v[0], v[1], v[2]});
                simd::store(o + 4 * x, v);
            }
        }
    });
    return ok ? out : Image{};
}

// The canvas made a picture-sized mask, softened by a Gaussian of σ = soften × the picture's long
// edge with clamped edges. The blur runs on the canvas, around what was painted, before the canvas
// is scaled to the picture: there σ is soften × 1024 canvas pixels (at least 0.6) whatever the
// picture's size, the blur touches a small crop instead of a full-size picture, and the blurred
// canvas is smooth enough for the linear filter that scales it. That filter spreads the canvas too
// (a tent of half-width t adds t²/6), so the blur leaves that much out and the total is the σ asked
// for; where shrinking spreads more than σ, the shrinking alone softens.
Image softened(const Canvas& canvas, int width, int height, double soften, const Execution& exec) {
    if (exec.cancelled()) return {};
    const QImage& image = canvas.image;
    const QRect painted = paintedBounds(image);
    const double sigma = soften * canvasEdge;
    const double reach =
        std::max({1.0, double(image.width()) / width, double(image.height()) / height});
    const double blur = std::sqrt(std::max(0.0, sigma * sigma - reach * reach / 6));
    QRect at(0, 0, 0, 0);  // nothing painted: no tap reaches the crop and the mask is black
    std::vector<v4> crop;
    if (!painted.isEmpty()) {
        const int margin = int(std::ceil(3.5 * sigma)) + 2;
        at = painted.adjusted(-margin, -margin, margin, margin) & image.rect();
        crop = blurredCrop(image, at, blur, margin, exec);
        if (crop.empty()) return {};
    }
    return resampled(crop, at, image.size(), width, height, exec);
}

}  // namespace

Image mask(Part part, const std::vector<FaceShape>& faces, int width, int height,
           const Execution& exec) {
    if (width <= 0 || height <= 0) return {};
    Canvas canvas(width, height, QImage::Format_Grayscale8);
    const double unit = canvas.unit();
    canvas.paint(faces,
                 [&](QPainter& p, const FaceShape& f) { detail::paintPart(p, part, f, unit); });
    return softened(canvas, width, height, softening(part), exec);
}

Image colourMask(const std::vector<FaceShape>& faces, int width, int height,
                 const Execution& exec) {
    if (width <= 0 || height <= 0) return {};
    Canvas canvas(width, height, QImage::Format_ARGB32_Premultiplied);
    canvas.paint(faces, detail::paintHairZones);
    return softened(canvas, width, height, hairSoftening, exec);
}

Image sculptMap(const std::vector<FaceShape>& faces, int width, int height, const Execution& exec) {
    if (width <= 0 || height <= 0) return {};
    Canvas canvas(width, height, QImage::Format_ARGB32_Premultiplied);
    canvas.paint(faces, detail::paintSculpt);
    return softened(canvas, width, height, 0, exec);
}

Image skinDisc(const std::vector<vision::Rect>& boxes, int width, int height,
               const Execution& exec) {
    if (width <= 0 || height <= 0) return {};
    std::vector<FaceShape> faces(boxes.size());
    for (size_t i = 0; i < boxes.size(); ++i)
        faces[i].box = boxes[i];
    Canvas canvas(width, height, QImage::Format_ARGB32_Premultiplied);
    canvas.paint(faces, [](QPainter& p, const FaceShape& f) { detail::paintSkinDisc(p, f.box); });
    return softened(canvas, width, height, 0, exec);
}

FaceMasks masks(const std::vector<FaceShape>& faces, int width, int height, const FaceMasks& skin,
                const Execution& exec) {
    FaceMasks out = skin;
    if (faces.empty() || width <= 0 || height <= 0) return out;
    const struct {
        img::Image FaceMasks::*member;
        Part part;
    } parts[] = {{&FaceMasks::clearSkin, Part::clearSkin}, {&FaceMasks::eyes, Part::eyes},
                 {&FaceMasks::underEyes, Part::underEyes}, {&FaceMasks::teeth, Part::teeth},
                 {&FaceMasks::faceSkin, Part::faceSkin},   {&FaceMasks::iris, Part::iris},
                 {&FaceMasks::glasses, Part::glasses},     {&FaceMasks::lips, Part::lips},
                 {&FaceMasks::brows, Part::brows},         {&FaceMasks::lashes, Part::lashes},
                 {&FaceMasks::sclera, Part::sclera}};
    for (const auto& [member, part] : parts)
        out.*member = mask(part, faces, width, height, exec);
    out.hairRegion = colourMask(faces, width, height, exec);
    out.sculpt = sculptMap(faces, width, height, exec);
    return out;
}

}  // namespace ql::FaceParts
