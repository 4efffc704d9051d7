#include "HeadlessHorizon.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <new>
#include <string>

#include "edit/Adjustments.h"
#include "render/Geometry.h"
#include "render/ImageSource.h"
#include "render/Straighten.h"

namespace ql::HeadlessHorizon {
namespace {

/// The whole text as a finite decimal number, in any locale; 0 otherwise.
double parseDegrees(const std::string& text) {
    const char* first = text.data();
    const char* last = first + text.size();
    if (first != last && *first == '+') ++first;
    double value = 0;
    const auto [end, ec] = std::from_chars(first, last, value);
    if (ec != std::errc() || end != last || !std::isfinite(value)) return 0;
    return value;
}

std::string formatted(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value + 0.0);  // + 0.0 prints -0 as 0
    return text;
}

/// The picture upright, at its full size, as an export would read it; empty with the reason in
/// `error` when it can't be opened.
img::Image open(const std::string& path, std::string& error) {
    try {
        ImageSource source(path, 2400);
        img::Image image = source.fullBase(Adjustments{}, &error);
        if (image.empty() && error.empty()) error = "\"" + path + "\" decodes as nothing";
        return image;
    } catch (const ImageSourceError& e) {
        error = e.what();
    } catch (const std::bad_alloc&) {
        error = "not enough memory for \"" + path + "\"";
    }
    return {};
}

}  // namespace

int run(const Arguments& args, Console& console) {
    if (args.size() < 2) {
        console.err << "usage: Quillarium --horizon <image> <degrees>\n";
        return exitWrongUse;
    }
    Adjustments adjustments;
    adjustments.rotation = parseDegrees(args[1]);
    std::string error;
    const img::Image image = open(args[0], error);
    if (image.empty()) {
        console.err << "fatal: " << error << "\n";
        return exitFailed;
    }
    const img::Image tilted = Geometry::apply(adjustments, image, true);
    const auto level = Straighten::level(tilted);
    console.out << "tilted " << formatted(adjustments.rotation) << " -> suggested "
                << (level ? formatted(level->angle) : std::string("nil")) << "\n";
    return exitDone;
}

}  // namespace ql::HeadlessHorizon
