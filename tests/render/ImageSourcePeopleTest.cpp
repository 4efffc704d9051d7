// The people of an open photo: found once, drawn at every base's size, and only when an edit
// uses them; the exporter applies what they steer.
#include <gtest/gtest.h>

#include "render/Exporter.h"
#include "render/ImageSource.h"
#include "render/Pipeline.h"

namespace ql {
namespace {

const std::string kMen = QL_SAMPLES_DIR "/three_men_night_flash.jpg";
const std::string kChart = QL_SAMPLES_DIR "/colorchart_canon550d.dng";

double valueAt(const img::Image& mask, double fx, double fy) {
    return mask.at(int(fx * (mask.width() - 1)), int(fy * (mask.height() - 1))).r;
}

Adjustments peopleEdit() {
    Adjustments a;
    a.people.exposure = 1;
    return a;
}

TEST(ImageSourcePeople, AnEditWithoutPeopleWorkAnalysesNothing) {
    ImageSource source(kMen, 800);
    const img::Image base = source.previewBase({});
    Adjustments a;
    a.exposure = 0.5, a.clarity = -20;  // softening doesn't spare skin, so needs no faces
    EXPECT_TRUE(source.maskIfNeeded(a, base).empty());
    EXPECT_FALSE(source.facesIfNeeded(a, base));
    EXPECT_EQ(source.peopleAnalyses(), 0);
}

TEST(ImageSourcePeople, MasksFollowTheBaseSizeFromOneAnalysis) {
    ImageSource source(kMen, 800);
    const img::Image preview = source.previewBase({});
    const img::Image person = source.maskIfNeeded(peopleEdit(), preview);
    ASSERT_EQ(person.width(), preview.width());
    ASSERT_EQ(person.height(), preview.height());

    Adjustments retouch;
    retouch.retouch.eyes = 40;
    const auto faces = source.facesIfNeeded(retouch, preview);
    ASSERT_TRUE(faces);
    ASSERT_TRUE(faces->info);
    ASSERT_GE(faces->info->faces.size(), 3u);  // three men facing the camera
    EXPECT_FALSE(faces->eyes.empty());
    EXPECT_FALSE(faces->lips.empty());
    for (const auto& face : faces->info->faces) {
        const double fx = face.box.midX() / preview.width(),
                     fy = face.box.midY() / preview.height();
        EXPECT_GT(valueAt(person, fx, fy), 0.5) << "a face outside the person mask";
        EXPECT_GT(valueAt(faces->skin, fx, fy), 0.9) << "no skin disc on a face";
    }
    EXPECT_EQ(source.peopleAnalyses(), 2);  // people once, faces once

    // The full picture reuses both findings.
    const img::Image full = source.fullBase({});
    const img::Image fullPerson = source.maskIfNeeded(peopleEdit(), full);
    const auto fullFaces = source.facesIfNeeded(retouch, full);
    // The pipeline's mask stays at the size the people were found at (on the preview), in the
    // picture's proportions; the pipeline stretches it over the larger picture.
    ASSERT_GT(full.longEdge(), preview.longEdge());
    EXPECT_EQ(fullPerson.longEdge(), preview.longEdge());
    EXPECT_NEAR(double(fullPerson.width()) / fullPerson.height(),
                double(full.width()) / full.height(), 0.01);
    EXPECT_EQ(source.personMask(full)->width(), full.width());
    ASSERT_TRUE(fullFaces);
    EXPECT_EQ(fullFaces->skin.width(), full.width());
    EXPECT_EQ(source.peopleAnalyses(), 2);
    const double k = double(full.width()) / preview.width();
    EXPECT_NEAR(fullFaces->info->faces[0].box.x, faces->info->faces[0].box.x * k, 2 * k);

    // Skin protection alone wants the skin discs and nothing finer.
    Adjustments clarity;
    clarity.clarity = 30;
    const auto skinOnly = source.facesIfNeeded(clarity, preview);
    ASSERT_TRUE(skinOnly);
    EXPECT_FALSE(skinOnly->skin.empty());
    EXPECT_TRUE(skinOnly->eyes.empty());
}

TEST(ImageSourcePeople, OnlyKeepsTheFacesNearItsPoints) {
    ImageSource source(kMen, 800);
    const img::Image preview = source.previewBase({});
    const auto all = source.faceMask(preview, true);
    ASSERT_TRUE(all && all->info && all->info->faces.size() >= 2);
    const auto& first = all->info->faces[0].box;
    const NPoint at{first.midX() / preview.width(), first.midY() / preview.height()};
    const auto one = source.faceMask(preview, true, {at});
    ASSERT_TRUE(one && one->info);
    ASSERT_EQ(one->info->faces.size(), 1u);
    EXPECT_EQ(one->info->faces[0].box, first);
    EXPECT_FALSE(source.faceMask(preview, true, {{0.001, 0.999}}));  // a corner holds no face
}

TEST(ImageSourcePeople, APhotoWithoutPeopleIsSearchedOnce) {
    ImageSource source(kChart, 800);
    const img::Image base = source.previewBase({});
    Adjustments a = peopleEdit();
    a.portrait.smooth = 50;
    // Without people whatever stands in front is the subject, so a mask may still come.
    const img::Image first = source.maskIfNeeded(a, base);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(source.maskIfNeeded(a, base).sharesPixelsWith(first));
        EXPECT_FALSE(source.facesIfNeeded(a, base));
    }
    EXPECT_EQ(source.peopleAnalyses(), 2);
}

TEST(ImageSourcePeople, TheExporterLightsThePeopleAndNotTheBackground) {
    ImageSource source(kMen, 800);
    const Pipeline pipeline;
    ExportOptions options;
    options.limitSize = true, options.longEdge = 600;
    const img::Image plain = Exporter::render(source, {}, pipeline, options, {});
    const img::Image lit = Exporter::render(source, peopleEdit(), pipeline, options, {});
    ASSERT_EQ(plain.width(), lit.width());
    const auto faces = source.faceMask(plain, false);
    ASSERT_TRUE(faces);
    const img::Image person = *source.personMask(plain);
    int inside = 0, outside = 0;
    double gainInside = 0, gainOutside = 0;
    for (int y = 0; y < plain.height(); y += 4)
        for (int x = 0; x < plain.width(); x += 4) {
            const double m = person.at(x, y).r;
            const double before = img::luma(plain.at(x, y).r, plain.at(x, y).g, plain.at(x, y).b);
            const double after = img::luma(lit.at(x, y).r, lit.at(x, y).g, lit.at(x, y).b);
            if (before < 0.02) continue;
            if (m > 0.95) ++inside, gainInside += after / before;
            if (m < 0.05) ++outside, gainOutside += after / before;
        }
    ASSERT_GT(inside, 50);
    ASSERT_GT(outside, 50);
    EXPECT_GT(gainInside / inside, 1.5);  // one stop up where people are
    EXPECT_NEAR(gainOutside / outside, 1.0, 0.05);
}

}  // namespace
}  // namespace ql
