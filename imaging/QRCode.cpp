#include "QRCode.h"

#include <algorithm>
#include <memory>
#include <string>

#include <qrencode.h>

namespace ql::img {

Image qrCode(std::string_view text, const QRCodeParams& p) {
    if (text.empty()) return {};
    const int module = std::clamp(p.moduleSize, 1, 64);
    const int quiet = std::clamp(p.quietZone, 0, 16);
    static constexpr QRecLevel levels[] = {QR_ECLEVEL_L, QR_ECLEVEL_M, QR_ECLEVEL_Q, QR_ECLEVEL_H};
    const std::string bytes(text);  // the encoder wants a terminated string
    std::unique_ptr<QRcode, decltype(&QRcode_free)> code(
        QRcode_encodeData(int(bytes.size()), reinterpret_cast<const unsigned char*>(bytes.data()),
                          0, levels[int(p.correction)]),
        &QRcode_free);
    if (!code) return {};

    const int n = code->width;
    const int side = (n + 2 * quiet) * module;
    Image image = Image::filled(side, side, {1, 1, 1, 1});
    for (int my = 0; my < n; ++my) {
        for (int mx = 0; mx < n; ++mx) {
            if (!(code->data[my * n + mx] & 1)) continue;  // bit 0: dark module
            for (int y = 0; y < module; ++y)
                for (int x = 0; x < module; ++x)
                    image.set((quiet + mx) * module + x, (quiet + my) * module + y, {0, 0, 0, 1});
        }
    }
    return image;
}

int qrModules(const Image& code, const QRCodeParams& p) {
    if (code.empty()) return 0;
    const int module = std::clamp(p.moduleSize, 1, 64);
    return code.width() / module - 2 * std::clamp(p.quietZone, 0, 16);
}

}  // namespace ql::img
