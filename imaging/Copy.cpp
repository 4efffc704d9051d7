#include "Copy.h"

#include <cstring>

namespace ql::img {

Image copy(const Image& input, const Execution& exec) {
    if (input.empty()) return input;
    Image out = Image::forOverwrite(input.width(), input.height());
    const size_t rowBytes = size_t(input.width()) * 4 * sizeof(float);
    const bool done = parallelFor(0, input.height(), exec, [&](int y0, int y1) {
        std::memcpy(out.row(y0), input.row(y0), rowBytes * size_t(y1 - y0));
    });
    return done ? out : Image{};
}

}  // namespace ql::img
