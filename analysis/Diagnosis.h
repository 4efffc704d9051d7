// How good a photo is as it came out of the camera, in a score and in plain words.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "PhotoAnalysis.h"
#include "PhotoFacts.h"

namespace ql {

struct Finding {
    enum class Status { good, warn, bad };  // findings are sorted by this order, worst first
    std::string id, title;
    Status status = Status::good;
    std::string detail;
    std::optional<std::string> fix;
};

struct PhotoReport {
    int score = 100;  // 20…100
    std::string verdict;
    std::vector<Finding> findings;
    std::vector<DominantColor> colors;  // merged by name
    std::vector<vision::Rect> faces;
};

namespace Diagnosis {

/// The findings that apply, worst first, then the file's facts; texts in the current language.
PhotoReport make(const PhotoAnalysis& analysis, const PhotoFacts& facts);

/// Clusters of one name merged (colour weighted by share, shares summed, the first id kept),
/// largest share first.
std::vector<DominantColor> mergeColors(const std::vector<DominantColor>& colors);

}  // namespace Diagnosis

}  // namespace ql
