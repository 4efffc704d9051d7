// The people of a person mask told apart: its foreground cut into connected regions, a region
// that holds several people split between them, and the regions no one claims kept as objects.
#pragma once

#include <cstdint>
#include <vector>

#include "BodyPose.h"
#include "FaceShape.h"
#include "imaging/Execution.h"

namespace ql::vision {

/// What marks one person, in the mask's pixels.
struct PersonSeed {
    std::vector<Point> points;  // face centre, body joints, points along the bones
};

/// The seeds of the people in a picture: each pose is one person, with every face that sits on
/// its shoulders; a face on no pose's shoulders is a person of its own. Pixels of the mask.
std::vector<PersonSeed> personSeeds(const std::vector<Rect>& faces,
                                    const std::vector<BodyPose>& poses);

struct PersonInstance {
    int person = -1;     // index of the seed, or -1 for a foreground object no seed is on
    int area = 0;        // pixels
    double overlap = 0;  // the sum of min(instance, guide): the guide's mass over the instance
    int left = 0, top = 0, right = 0, bottom = 0;  // bounds, right and bottom exclusive
};

struct PersonInstances {
    int width = 0, height = 0;
    std::vector<int32_t> labels;  // per pixel: 0 outside, i + 1 inside instances[i]
    std::vector<PersonInstance> instances;

    /// Splits the pixels of `guide` (width × height values, 0…1) at or above `threshold` into
    /// 8-connected regions, drops regions smaller than `minArea`, and cuts a region that holds
    /// the seeds of several people so that each pixel goes to the person with the nearest seed.
    /// Empty for an empty guide.
    static PersonInstances separate(const float* guide, int width, int height, float threshold,
                                    const std::vector<PersonSeed>& seeds, int minArea,
                                    const img::Execution& exec = {});
};

/// Whether the person mask keeps an instance: it has pixels, and the guide covers more than 4 %
/// of it, or the guide is so nearly empty (`guideCoverage`, its mean, below 0.002) that there is
/// nothing to test against.
bool keepInstance(const PersonInstance& instance, double guideCoverage);

}  // namespace ql::vision
