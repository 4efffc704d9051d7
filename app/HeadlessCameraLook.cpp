#include "HeadlessCameraLook.h"

#include <chrono>
#include <cstdio>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "imaging/ColorCube.h"
#include "render/CameraLook.h"
#include "render/ImageSource.h"
#include "render/ImageWriter.h"

namespace ql::HeadlessCameraLook {

int run(const Arguments& args, Console& console) {
    if (args.size() < 3) {
        console.err << "usage: Quillarium --camera-look <raw> <plain-out> <looked-out> "
                       "[<camera-out>]\n";
        return exitWrongUse;
    }
    const auto failed = [&](const std::string& why) {
        console.err << "failed: " << why << "\n";
        return exitFailed;
    };
    try {
        ImageSource source(args[0], 2400);
        const img::Image plain = source.previewBase(Adjustments{});
        if (plain.empty()) return failed("\"" + args[0] + "\" gave no picture");

        const std::vector<uint8_t> jpeg = CameraLook::embeddedJPEG(args[0]);
        if (jpeg.empty()) {
            console.out << "no embedded JPEG\n";
            return exitFailed;
        }
        // At the plain picture's size, so that the written copies compare side by side; one that
        // does not decode leaves nothing to fit against.
        const img::Image camera =
            CameraLook::decodeEmbedded(jpeg, source.orientation(), plain.longEdge());

        const auto started = std::chrono::steady_clock::now();
        const CameraLook::Fit fit = CameraLook::fit(plain, camera);
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        if (!fit.lut) {
            console.out << "fit failed\n";
            return exitFailed;
        }
        char line[96];
        std::snprintf(line, sizeof line, "fit in %.2fs, colour difference %.4f -> %.4f\n", seconds,
                      fit.before, fit.error);
        console.out << line;

        const img::Image looked = img::colorCube(plain, {CameraLook::kCubeNodes, fit.lut, true});
        const img::Metadata none;
        writeImage(plain, args[1], ExportFormat::jpeg, 92, none);
        writeImage(looked, args[2], ExportFormat::jpeg, 92, none);
        if (args.size() > 3) writeImage(camera, args[3], ExportFormat::jpeg, 92, none);
        return exitDone;
    } catch (const std::bad_alloc&) {
        return failed("not enough memory for this photo");
    } catch (const std::exception& e) {
        return failed(e.what());
    }
}

}  // namespace ql::HeadlessCameraLook
