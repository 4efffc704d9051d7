#include "Crop.h"

#include <utility>

namespace ql {

std::optional<double> ratio(CropAspect aspect, double original) {
    switch (aspect) {
        case CropAspect::free:
            return std::nullopt;
        case CropAspect::original:
            return original;
        case CropAspect::square:
            return 1.0;
        case CropAspect::r4x5:
            return 0.8;
        case CropAspect::r5x4:
            return 1.25;
        case CropAspect::r2x3:
            return 2.0 / 3.0;
        case CropAspect::r3x2:
            return 1.5;
        case CropAspect::r3x4:
            return 0.75;
        case CropAspect::r4x3:
            return 4.0 / 3.0;
        case CropAspect::r9x16:
            return 0.5625;
        case CropAspect::r16x9:
            return 16.0 / 9.0;
    }
    return std::nullopt;
}

CropAspect transposed(CropAspect aspect) {
    using A = CropAspect;
    static constexpr std::pair<A, A> partners[] = {
        {A::r4x5, A::r5x4}, {A::r2x3, A::r3x2}, {A::r3x4, A::r4x3}, {A::r9x16, A::r16x9}};
    for (const auto& [a, b] : partners) {
        if (aspect == a) return b;
        if (aspect == b) return a;
    }
    return aspect;
}

}  // namespace ql
