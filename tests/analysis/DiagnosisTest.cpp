#include "analysis/Diagnosis.h"

#include <gtest/gtest.h>

#include "edit/AppLanguage.h"

namespace ql {
namespace {

using Status = Finding::Status;

class DiagnosisTest : public ::testing::Test {
  protected:
    void SetUp() override { language::set(AppLanguage::vi); }

    // Mid tones, moderate contrast and colour, sharp, neutral white: nothing to say.
    static PhotoAnalysis clean() {
        PhotoAnalysis a;
        a.stats.p10 = 0.2, a.stats.p50 = 0.45, a.stats.p90 = 0.8;
        a.stats.meanSaturation = 0.3;
        a.stats.sharpness = 0.5;
        return a;
    }

    // A copy, so that it outlives the report it came from.
    static std::optional<Finding> find(const PhotoReport& r, const std::string& id) {
        for (const Finding& f : r.findings)
            if (f.id == id) return f;
        return std::nullopt;
    }
};

TEST_F(DiagnosisTest, ScoreVerdictAndOrder) {
    const PhotoReport good = Diagnosis::make(clean(), {});
    EXPECT_EQ(good.score, 100);
    EXPECT_EQ(good.verdict, "Ảnh tốt, chỉ cần chọn phong cách.");
    EXPECT_FALSE(find(good, "faces"));
    EXPECT_FALSE(find(good, "skin"));
    EXPECT_FALSE(find(good, "level"));
    EXPECT_FALSE(find(good, "noise"));  // no ISO known

    PhotoAnalysis bad;  // all zeros: flat, grey, soft, crushed
    bad.stats.faces = {{{0.4, 0.3, 0.1, 0.1}, 0.1, 60, 0.05}};
    bad.stats.clippedHighlights = 0.2, bad.stats.clippedShadows = 0.2;
    bad.stats.lean = 5;
    bad.autoTone.exposure = 1.2;
    bad.neutralTemperature = 100;
    PhotoFacts facts;
    facts.info.iso = "ISO 12800";
    const PhotoReport worst = Diagnosis::make(bad, facts);
    EXPECT_EQ(worst.score, 20);
    EXPECT_EQ(worst.verdict, "Cần chỉnh nhiều để ảnh đẹp.");
    ASSERT_EQ(worst.findings.size(), 12u);
    EXPECT_EQ(worst.findings.back().id, "file");
    EXPECT_EQ(worst.findings.back().status, Status::good);
    // Worst first; among equals, the order of the checks.
    std::vector<std::string> ids;
    for (const Finding& f : worst.findings)
        ids.push_back(f.id);
    EXPECT_EQ(ids,
              (std::vector<std::string>{"faces", "exposure", "highlights", "shadows", "wb", "color",
                                        "noise", "contrast", "skin", "level", "sharp", "file"}));
    EXPECT_EQ(worst.findings[0].title, "Khuôn mặt (1)");
    EXPECT_EQ(worst.faces.size(), 1u);

    // 2 warnings score 88, a bad and 2 warnings 74.
    PhotoAnalysis some = clean();
    some.stats.sharpness = 0.1;
    some.stats.lean = -2;
    EXPECT_EQ(Diagnosis::make(some, {}).score, 88);
    some.autoTone.exposure = -0.8;
    const PhotoReport fair = Diagnosis::make(some, {});
    EXPECT_EQ(fair.score, 74);
    EXPECT_EQ(fair.verdict, "Khá, chỉnh vài điểm sẽ đẹp hơn rõ.");
    EXPECT_EQ(find(fair, "exposure")->detail, "Ảnh hơi dư sáng. Độ sáng giữa ảnh 45%.");
    EXPECT_EQ(find(fair, "exposure")->fix, "Phơi sáng -0.8 EV");
    EXPECT_EQ(find(fair, "level")->detail, "Ảnh nghiêng khoảng -2.0°.");
}

TEST_F(DiagnosisTest, Thresholds) {
    PhotoAnalysis a = clean();
    a.stats.meanSaturation = 0.15, a.stats.p50 = 0.6;  // white interior
    EXPECT_EQ(find(Diagnosis::make(a, {}), "color")->status, Status::good);
    a.stats.p50 = 0.5;
    EXPECT_EQ(find(Diagnosis::make(a, {}), "color")->status, Status::warn);

    a = clean();
    a.stats.clippedHighlights = 0.005;
    EXPECT_EQ(find(Diagnosis::make(a, {}), "highlights")->status, Status::good);
    a.stats.clippedHighlights = 0.03;
    a.autoTone.highlights = -34;
    const std::optional<Finding> h = find(Diagnosis::make(a, {}), "highlights");
    EXPECT_EQ(h->status, Status::warn);
    EXPECT_EQ(h->detail, "3.0% ảnh trắng xóa, mất chi tiết (thường là trời, áo trắng, đèn).");
    EXPECT_EQ(h->fix, "Vùng sáng -34 để lấy lại chi tiết");
    a.stats.clippedHighlights = 0.13;
    EXPECT_EQ(find(Diagnosis::make(a, {}), "highlights")->detail.substr(0, 4), "13% ");

    a = clean();
    a.stats.p10 = 0.1;  // closed shadows without clipping
    a.autoTone.shadows = 20;
    const std::optional<Finding> s = find(Diagnosis::make(a, {}), "shadows");
    EXPECT_EQ(s->status, Status::warn);
    EXPECT_EQ(s->detail, "Vùng tối hơi bí, chi tiết trong bóng râm khó thấy.");
    EXPECT_EQ(s->fix, "Vùng tối +20 để mở bóng râm");
}

TEST_F(DiagnosisTest, FaceFix) {
    PhotoAnalysis a = clean();
    // The median is element n/2 of the sorted lumas: 0.3 here, not the mean.
    a.stats.faces = {{{}, 0.9, 20, 0.3}, {{}, 0.1, 20, 0.3}, {{}, 0.3, 20, 0.3}};
    a.autoTone.exposure = 0.1;
    const std::optional<Finding> f = find(Diagnosis::make(a, {}), "faces");
    EXPECT_EQ(f->status, Status::warn);
    EXPECT_EQ(f->detail, "Khuôn mặt hơi tối. Độ sáng da 30% (đẹp nhất khoảng 45–65%).");
    EXPECT_EQ(f->fix, "Chỉnh sáng theo khuôn mặt: phơi sáng +0.1 EV");
    a.autoTone.peopleExposure = 0.6;
    EXPECT_EQ(find(Diagnosis::make(a, {}), "faces")->fix,
              "Làm sáng riêng người +0.6 EV, cả ảnh +0.1 EV (nền trắng không bị cháy)");
    a.stats.faces = {{{}, 0.5, 20, 0.3}};
    const PhotoReport good = Diagnosis::make(a, {});
    EXPECT_FALSE(find(good, "faces")->fix);
    EXPECT_EQ(find(good, "skin")->detail, "Màu da tự nhiên. Sắc độ 20°.");
}

TEST_F(DiagnosisTest, WhiteBalanceInMired) {
    PhotoAnalysis a = clean();
    PhotoFacts raw;
    raw.isRAW = true;
    raw.asShotTemperature = 5000;  // 200 mired
    a.neutralTemperature = 4000;   // 250 mired: error -50, warmer than neutral
    std::optional<Finding> wb = find(Diagnosis::make(a, raw), "wb");
    EXPECT_EQ(wb->status, Status::warn);
    EXPECT_EQ(wb->detail, "Ảnh hơi ấm (ám vàng) so với trắng chuẩn.");
    EXPECT_EQ(wb->fix, "Làm mát bớt một chút");
    a.neutralTemperature = 10000;  // 100 mired: error +100
    wb = find(Diagnosis::make(a, raw), "wb");
    EXPECT_EQ(wb->status, Status::bad);
    EXPECT_EQ(wb->fix, "Làm ấm lên một chút");
    a.lookWarmth = 30;  // the camera look's cast takes precedence
    EXPECT_EQ(find(Diagnosis::make(a, raw), "wb")->status, Status::good);
}

TEST_F(DiagnosisTest, NoiseAndFileFacts) {
    PhotoFacts facts;
    facts.info.iso = "ISO 1600";
    const std::optional<Finding> n = find(Diagnosis::make(clean(), facts), "noise");
    ASSERT_TRUE(n);
    EXPECT_EQ(n->status, Status::warn);
    EXPECT_EQ(n->detail, "Chụp ISO 1600, vùng tối dễ lấm tấm hạt.");
    EXPECT_EQ(n->fix, "Giảm nhiễu +20");
    facts.info.iso = "ISO 6400";
    EXPECT_EQ(find(Diagnosis::make(clean(), facts), "noise")->fix, "Giảm nhiễu +40");
    facts.info.iso = "ISO 1250";
    EXPECT_FALSE(find(Diagnosis::make(clean(), facts), "noise"));

    facts.info.camera = "Canon EOS 550D", facts.info.shutter = "1/250s";
    facts.info.program = "Manual", facts.info.flashFired = false;
    facts.info.whiteBalanceManual = true, facts.info.exposureBias = -0.7;
    facts.isRAW = true;
    const PhotoReport r = Diagnosis::make(clean(), facts);
    EXPECT_EQ(r.score, 100);
    EXPECT_EQ(r.findings.back().detail,
              "Canon EOS 550D · ISO 1250 · 1/250s · chế độ Manual · không flash · cân bằng trắng "
              "đặt tay · bù sáng -0.7 EV File RAW không có ảnh JPEG của máy, nên dùng màu trung "
              "tính của Quillarium.");
    facts.info = {};
    facts.cameraLook = ImageSource::LookFit{0.3, 0.1};
    EXPECT_EQ(
        Diagnosis::make(clean(), facts).findings.back().detail,
        " Màu gốc lấy theo màu máy ảnh, học từ ảnh JPEG máy nhúng trong file RAW (khớp 75%).");
}

TEST_F(DiagnosisTest, MergeColorsWeightsByShare) {
    const std::vector<DominantColor> merged = Diagnosis::mergeColors({
        {0, 0.2, 0.2, 0.2, 0.3, "xám"},
        {1, 0.9, 0.1, 0.1, 0.35, "đỏ"},
        {2, 0.6, 0.6, 0.0, 0.1, "xám"},
        {3, 0.1, 0.8, 0.1, 0.2, "xanh lá"},
    });
    ASSERT_EQ(merged.size(), 3u);
    EXPECT_EQ(merged[0].name, "xám");
    EXPECT_EQ(merged[0].id, 0);
    EXPECT_NEAR(merged[0].share, 0.4, 1e-12);
    EXPECT_NEAR(merged[0].r, 0.3, 1e-12);  // (0.2·0.3 + 0.6·0.1) / 0.4
    EXPECT_NEAR(merged[0].b, 0.15, 1e-12);
    EXPECT_EQ(merged[1].name, "đỏ");
    EXPECT_EQ(merged[2].name, "xanh lá");
}

}  // namespace
}  // namespace ql
