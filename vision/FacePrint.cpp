#include "FacePrint.h"

#include <dlib/dnn.h>
#include <dlib/image_processing/shape_predictor.h>
#include <dlib/image_transforms/interpolation.h>
#include <dlib/opencv/cv_image.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <opencv2/core.hpp>

#include "LoadedModel.h"
#include "PrintDistance.h"

namespace ql::vision {

namespace {

// The descriptor network, declared layer by layer because its file holds weights only; the types
// must match the file exactly. dlib nests from the output down to the input.
namespace net {

using namespace dlib;

// Two 3x3 convolutions with batch norm folded into `affine`, the first one strided.
template <long filters, int stride, class In>
using twoConvs =
    affine<con<filters, 3, 3, 1, 1, relu<affine<con<filters, 3, 3, stride, stride, In>>>>>;

template <long filters, class In>
using block = relu<add_prev1<twoConvs<filters, 1, tag1<In>>>>;

// Halves the resolution; the shortcut is the input pooled 2x2.
template <long filters, class In>
using downBlock =
    relu<add_prev2<avg_pool<2, 2, 2, 2, skip1<tag2<twoConvs<filters, 2, tag1<In>>>>>>>;

template <class In>
using stem = max_pool<3, 3, 2, 2, relu<affine<con<32, 7, 7, 2, 2, In>>>>;

template <class In>
using filters32 = block<32, block<32, block<32, In>>>;
template <class In>
using filters64 = block<64, block<64, block<64, downBlock<64, In>>>>;
template <class In>
using filters128 = block<128, block<128, downBlock<128, In>>>;
template <class In>
using filters256 = downBlock<256, block<256, block<256, downBlock<256, In>>>>;

using Descriptor =
    loss_metric<fc_no_bias<128, avg_pool_everything<filters256<filters128<
                                    filters64<filters32<stem<input_rgb_image_sized<150>>>>>>>>>;

}  // namespace net

constexpr int chipSize = 150;
constexpr double chipPadding = 0.25;
constexpr double minFaceSide = 8;  // pixels; smaller boxes hold no recognisable face

LoadedModel<dlib::shape_predictor>& aligner() {
    static LoadedModel<dlib::shape_predictor> model(
        ModelFile::faceAligner, [](const std::string& path) {
            auto p = std::make_unique<dlib::shape_predictor>();
            dlib::deserialize(path) >> *p;
            return p;
        });
    return model;
}

LoadedModel<net::Descriptor>& descriptor() {
    static LoadedModel<net::Descriptor> model(ModelFile::faceDescriptor,
                                              [](const std::string& path) {
                                                  auto n = std::make_unique<net::Descriptor>();
                                                  dlib::deserialize(path) >> *n;
                                                  return n;
                                              });
    return model;
}

}  // namespace

std::optional<FacePrint> FacePrint::of(const Bitmap& bitmap, const Rect& box) {
    if (bitmap.empty() || bitmap.rgb.size() < size_t(bitmap.width) * size_t(bitmap.height) * 3)
        return std::nullopt;
    // A face cut off at the picture's edge still gets a print; a box with hardly any of it inside
    // the picture, or an absurd one, gets none.
    const double x0 = std::max(box.minX(), 0.0), y0 = std::max(box.minY(), 0.0);
    const double x1 = std::min(box.maxX(), double(bitmap.width));
    const double y1 = std::min(box.maxY(), double(bitmap.height));
    if (!(box.width >= minFaceSide && box.height >= minFaceSide) || !(x1 - x0 >= minFaceSide) ||
        !(y1 - y0 >= minFaceSide) || box.width > 4.0 * bitmap.longEdge())
        return std::nullopt;

    try {
        // dlib reads the pixels in place: its rgb_pixel has the bitmap's byte order, and the
        // aligner and the chip extraction only look at the pixels they need.
        const cv::Mat mat(bitmap.height, bitmap.width, CV_8UC3,
                          const_cast<uint8_t*>(bitmap.rgb.data()));
        const dlib::cv_image<dlib::rgb_pixel> image(mat);
        const dlib::rectangle rect(std::lround(box.minX()), std::lround(box.minY()),
                                   std::lround(box.maxX()) - 1, std::lround(box.maxY()) - 1);

        dlib::full_object_detection shape;
        if (!aligner().use([&](dlib::shape_predictor& sp) { shape = sp(image, rect); }))
            return std::nullopt;
        if (shape.num_parts() != 5) return std::nullopt;

        dlib::matrix<dlib::rgb_pixel> chip;
        dlib::extract_image_chip(image, dlib::get_face_chip_details(shape, chipSize, chipPadding),
                                 chip);

        dlib::matrix<float, 0, 1> d;
        if (!descriptor().use([&](net::Descriptor& n) { d = n(chip); })) return std::nullopt;
        if (d.size() != 128) return std::nullopt;

        FacePrint print;
        for (int i = 0; i < 128; ++i) {
            if (!std::isfinite(d(i))) return std::nullopt;
            print.values[size_t(i)] = d(i);
        }
        return print;
    } catch (const std::exception&) {
        // dlib::error and cv::Exception both derive from std::exception.
        return std::nullopt;
    }
}

float FacePrint::distance(const FacePrint& a, const FacePrint& b) {
    return euclidean(a.values, b.values);
}

}  // namespace ql::vision
