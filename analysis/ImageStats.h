// What the automatic editors know of a picture: one set of numbers shared by the auto tone,
// the diagnosis, the expert editor and the advisors.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "vision/FaceShape.h"

namespace ql {

/// A face as measured on the picture: the middle of the face, in display values.
struct FaceInfo {
    vision::Rect rect;  // normalised 0…1, origin top left
    double luma = 0;
    double hue = 0;  // degrees
    double saturation = 0;
};

struct DominantColor {
    int id = 0;                  // index of the cluster
    double r = 0, g = 0, b = 0;  // encoded, 0…1
    double share = 0;            // fraction of the sample
    std::string name;            // Vietnamese colour word
};

/// Percentiles and means are of encoded (display) luma; fractions are 0…1.
struct ImageStats {
    double p1 = 0, p5 = 0, p50 = 0, p95 = 0, p99 = 0;
    double p05 = 0;
    double p10 = 0, p90 = 0, p98 = 0;
    double p995 = 0;
    std::vector<FaceInfo> faces;        // filled by the caller
    std::vector<DominantColor> colors;  // filled by the caller
    double sharpness = 0;               // filled by the caller
    std::optional<double> lean;         // degrees, from the level finder
    double leanConfidence = 0;
    double peopleCoverage = 0;
    double mean = 0;
    double clippedHighlights = 0;
    double clippedShadows = 0;
    double meanSaturation = 0;
    double skin = 0;
    double sky = 0;  // upper half only
    double foliage = 0;
    double castR = 1, castB = 1;  // ratios of the estimated neutral to green
};

}  // namespace ql
