#include "HeadlessRender.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "edit/PathNames.h"
#include "render/Exporter.h"
#include "render/ImageSource.h"
#include "render/ImageWriter.h"
#include "render/Pipeline.h"

namespace ql::HeadlessRender {
namespace {

// An edit with thousands of brush strokes is a few MB; far beyond that is no edit.
constexpr std::uintmax_t maxAdjustmentsBytes = 64u << 20;

std::optional<std::string> readFile(const std::string& path, std::string& error) {
    namespace fs = std::filesystem;
    std::error_code ec;
    const auto status = fs::status(path, ec);
    if (ec) {
        error = "cannot read \"" + path + "\": " + ec.message();
        return std::nullopt;
    }
    if (fs::is_directory(status)) {
        error = "\"" + path + "\" is a folder, not a file";
        return std::nullopt;
    }
    if (fs::is_regular_file(status) && fs::file_size(path, ec) > maxAdjustmentsBytes) {
        error = "\"" + path + "\" is larger than 64 MiB";
        return std::nullopt;
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        error = "cannot read \"" + path + "\": " + std::strerror(errno);
        return std::nullopt;
    }
    std::string text;
    char buffer[65536];
    while (in.read(buffer, sizeof buffer) || in.gcount() > 0) {
        text.append(buffer, static_cast<size_t>(in.gcount()));
        if (text.size() > maxAdjustmentsBytes) {  // a pipe or device that never ends
            error = "\"" + path + "\" is larger than 64 MiB";
            return std::nullopt;
        }
    }
    if (in.bad()) {
        error = "cannot read \"" + path + "\"";
        return std::nullopt;
    }
    return text;
}

}  // namespace

std::optional<Adjustments> readAdjustments(const std::string& path, std::string& error) {
    const auto text = readFile(path, error);
    if (!text) return std::nullopt;
    return Adjustments::decode(*text, &error);
}

int run(const Arguments& args, Console& console) {
    if (args.size() < 2) {
        console.err << "usage: Quillarium --render <input> <output> [adjustments.json]\n";
        return exitWrongUse;
    }
    Adjustments adjustments;
    if (args.size() >= 3) {
        std::string error;
        auto decoded = readAdjustments(args[2], error);
        if (!decoded) {
            console.err << "bad adjustments: " << error << "\n";
            return exitWrongUse;
        }
        adjustments = std::move(*decoded);
    }
    const auto started = std::chrono::steady_clock::now();
    const auto failed = [&](const std::string& why) {
        console.err << "failed: " << why << "\n";
        return exitFailed;
    };
    try {
        ImageSource source(args[0], 2400);
        const Pipeline pipeline;
        const ExportOptions options{exportFormatForPath(args[1]), 92, false, 2048};
        Exporter::exportImage(source, adjustments, pipeline, options, args[1], std::nullopt, {},
                              PhotoMeta{});
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        const std::string name = fileName(args[1]);
        char line[64];
        std::snprintf(line, sizeof line, " %.0fx%.0f raw=%s in %.2fs\n",
                      double(source.fullSize().width), double(source.fullSize().height),
                      source.isRAW() ? "yes" : "no", seconds);
        console.out << "ok " << name << line;
        return exitDone;
    } catch (const ImageSourceError& e) {
        return failed(e.what());
    } catch (const std::bad_alloc&) {
        return failed("not enough memory for this photo");
    } catch (const std::exception& e) {
        return failed(e.what());
    }
}

}  // namespace ql::HeadlessRender
