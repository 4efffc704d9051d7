// The expert editor's own work on one photo: the plan, the composed edit and its self-check.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <set>

#include <QString>

#include "AutoResult.h"
#include "Expert.h"
#include "ImageAnalyzer.h"
#include "PhotoStyleApply.h"
#include "PixelBuffer.h"
#include "WhiteBalanceCorrection.h"
#include "render/Develop.h"

namespace ql::Expert {
namespace {

constexpr double kReviewSide = 480;

std::string lowerCase(std::string_view text) {
    return QString::fromUtf8(text.data(), qsizetype(text.size())).toLower().toStdString();
}

std::string joined(const std::vector<std::string>& parts, const std::string& separator) {
    std::string out;
    for (size_t i = 0; i < parts.size(); ++i) {
        if (i) out += separator;
        out += parts[i];
    }
    return out;
}

bool facesCount(const std::vector<FaceInfo>& faces) {
    return std::any_of(faces.begin(), faces.end(),
                       [](const FaceInfo& f) { return f.rect.width > 0.015; });
}

double steps20(double v) {
    return std::round(v * 20) / 20 + 0.0;
}

/// Sharpening and noise reduction from the ISO the picture effectively has after its lift.
void detail(Adjustments& a, const ExpertPlan& plan, int iso, std::vector<std::string>& notes) {
    const double lift = std::max(a.exposure, 0.0) + 0.5 * std::max(a.people.exposure, 0.0);
    const long long effective = static_cast<long long>(double(iso) * std::exp2(lift));
    if (plan.isRAW) {
        const bool soft = plan.analysis.stats.sharpness < 0.3;
        if (effective < 3200) {
            a.sharpening = soft ? 45 : 30;
            if (effective >= 1600)
                a.noiseReduction = 15;
            else if (effective >= 1000)
                a.noiseReduction = 8;
        } else if (effective < 6400) {
            a.sharpening = 25, a.noiseReduction = 30;
        } else {
            a.sharpening = 20, a.noiseReduction = 45;
        }
    } else {
        a.sharpening = 10;
        if (effective >= 3200) a.noiseReduction = 15;
    }
    std::string note = localized("làm nét ") + std::to_string(int(a.sharpening));
    if (a.noiseReduction > 0)
        note += localized(", giảm nhiễu ") + std::to_string(int(a.noiseReduction)) + " (ISO " +
                std::to_string(effective) + ")";
    notes.push_back(note);
    if (effective > iso * 3 / 2 && a.noiseReduction > 0)
        notes.push_back(localized("tính như ISO ") + std::to_string(effective) +
                        localized(" vì ảnh được kéo sáng"));
}

}  // namespace

std::string noteNumber(const char* format, double value) {
    char text[32];
    std::snprintf(text, sizeof text, format, value);
    std::string out = text;
    if (language::current() == AppLanguage::vi) std::replace(out.begin(), out.end(), '.', ',');
    return out;
}

std::variant<ExpertPlan, NoPlan> plan(ImageSource& source, const PhotoAnalysis& analysis,
                                      const std::optional<Adjustments>& saved,
                                      const ExpertOptions& options) {
    if (options.skipHandEdited && saved && !saved->expertNote) return NoPlan::handEdited;
    const PhotoFacts facts = PhotoFacts::of(source);
    ExpertPlan p;
    p.url = source.url();
    p.analysis = analysis;
    p.info = facts.info;
    p.isRAW = facts.isRAW;
    // A run over its own earlier result starts again from the geometry alone, so that repeated
    // runs don't pile up.
    if (saved)
        p.start =
            saved->expertNote ? Adjustments{}.taking({SettingsGroup::geometry}, *saved) : *saved;
    p.scene =
        scene(analysis.stats, facts.info, WhiteBalanceCorrection::warmthError(analysis, facts));
    const Look look = options.fixedStyle ? Look{*options.fixedStyle, 1.0} : defaultLook(p.scene);
    p.style = look.style;
    p.strength = look.strength;
    p.correction = analysis.autoTone;
    p.notes.push_back(localized("Cảnh ") + localized(enumLabel(p.scene)));
    if (facts.isRAW && facts.cameraLook)
        p.notes.push_back(localized("màu gốc ") +
                          (facts.info.camera ? *facts.info.camera : localized("máy ảnh")));
    return p;
}

Adjustments finish(const ExpertPlan& plan, ImageSource& source, const Pipeline& pipeline,
                   const ExpertOptions& options) {
    namespace wb = WhiteBalanceCorrection;
    const PhotoFacts facts = PhotoFacts::of(source);
    const Adjustments& start = plan.start;
    const ImageStats& stats = plan.analysis.stats;
    std::vector<std::string> notes = plan.notes;

    Adjustments a = keepingNonTone(start);
    wb::apply(a, facts,
              plan.warmth ? wb::Correction{*plan.warmth, plan.tint}
                          : wb::tolerated(wb::warmthError(plan.analysis, facts),
                                          wb::tintError(plan.analysis, facts)));

    const AutoTone& c = plan.correction;
    a.exposure = c.exposure, a.contrast = c.contrast, a.highlights = c.highlights;
    a.shadows = c.shadows, a.whites = c.whites, a.blacks = c.blacks, a.clarity = c.clarity;
    a.dehaze = c.dehaze, a.vibrance = c.vibrance, a.saturation = c.saturation;
    if (c.peopleExposure != 0) a.people.exposure = c.peopleExposure;

    for (const AIAdvice::MixItem& item : plan.mixer)
        if (const auto band = enumFromName<ColorBand>(item.band)) {
            const size_t i = static_cast<size_t>(*band);
            a.mixHue[i] = std::round(item.hue);
            a.mixSaturation[i] = std::round(item.saturation);
            a.mixLuminance[i] = std::round(item.luminance);
        }

    const double strength = std::isfinite(plan.strength) ? std::clamp(plan.strength, 0.0, 1.5) : 1;
    applyStyle(a, plan.style, strength,
               [&](Adjustments& target, double amount) { addWarmth(target, facts, amount); });
    if (plan.style != PhotoStyle::mono) a.vibrance = std::min(a.vibrance, 40.0);
    a.style = plan.style;
    a.styleStrength = std::round(strength * 100);

    std::string look = localized("phong cách ") + lowerCase(localized(enumLabel(plan.style)));
    if (strength < 0.95) {
        look += ' ';
        look += std::to_string(int(std::lround(strength * 100)));
        look += '%';
    }
    notes.push_back(look);
    if (a.people.exposure > 0)
        notes.push_back(localized("làm sáng người ") + noteNumber("%+.2f EV", a.people.exposure));
    if (std::abs(a.exposure) >= 0.1)
        notes.push_back(localized("phơi sáng ") + noteNumber("%+.2f EV", a.exposure));
    if (a.highlights <= -20)
        notes.push_back(localized("cứu vùng sáng ") + std::to_string(int(a.highlights)));

    if (plan.scene == SceneKind::portrait && plan.style != PhotoStyle::mono) {
        const size_t orange = static_cast<size_t>(ColorBand::orange);
        a.people.clarity = std::min(a.people.clarity, -10.0);
        a.mixLuminance[orange] += 6;
        a.mixSaturation[orange] -= 4;
        a.vignette = std::min(a.vignette, -8.0);
        notes.push_back(localized("làm mịn da nhẹ"));
    }
    if (facesCount(stats.faces) && start.skinEven == 0) {
        a.skinEven = plan.scene == SceneKind::portrait ? 50 : 35;
        notes.push_back(localized("đều màu da"));
    }
    if (plan.scene == SceneKind::portrait && start.retouch == FaceRetouch{}) {
        a.retouch.blemishes = 30, a.retouch.eyes = 15, a.retouch.underEyes = 25;
        notes.push_back(localized("xóa vết nhỏ, giảm quầng thâm, sáng mắt nhẹ"));
    }
    // A photographer's own sharpening or noise setting stays.
    if (start.sharpening == 0 && start.noiseReduction == 0)
        detail(a, plan, facts.isoNumber(), notes);
    if (options.straighten && start.rotation == 0 && stats.lean && stats.leanConfidence >= 3.0 &&
        std::abs(*stats.lean) >= 0.8 && std::abs(*stats.lean) <= 4.0) {
        a.rotation = *stats.lean;
        notes.push_back(localized("nắn thẳng ") + noteNumber("%.1f°", *stats.lean));
    }

    a = review(std::move(a), stats, stats.faces, source, pipeline, notes);
    a.expertNote = joined(notes, "; ") + ".";
    return a;
}

Adjustments review(Adjustments a, const ImageStats& original, const std::vector<FaceInfo>& faces,
                   ImageSource& source, const Pipeline& pipeline, std::vector<std::string>& notes) {
    const img::Image base = source.previewBase(Adjustments::defaults());
    if (base.empty()) return a;
    std::set<std::string> fixes;
    for (int round = 0; round < 3; ++round) {
        // Measured without geometry: what is cropped away must not change the verdict.
        const Adjustments flat = a.taking({SettingsGroup::geometry}, Adjustments::defaults());
        const auto buffer = PixelBuffer::make(develop(source, pipeline, flat, base), kReviewSide);
        if (!buffer) break;
        const ImageStats result = ImageAnalyzer::stats(*buffer);

        bool changed = false, lifted = false;
        if (result.clippedHighlights > original.clippedHighlights + 0.012) {
            a.exposure = steps20(a.exposure - 0.15);
            if (a.people.exposure > 0) a.people.exposure = std::max(a.people.exposure - 0.15, 0.0);
            a.highlights = std::max(a.highlights - 10, -80.0);
            fixes.insert(localized("bớt sáng để không cháy"));
            changed = true;
        }
        if (result.clippedShadows > original.clippedShadows + 0.02) {
            a.blacks = std::min(a.blacks + 8, 40.0);
            a.shadows = std::min(a.shadows + 8, 60.0);
            fixes.insert(localized("mở vùng đen"));
            changed = true;
        }
        if (result.meanSaturation > std::max(original.meanSaturation * 1.6, 0.42)) {
            a.saturation -= 5;
            a.vibrance -= 8;
            fixes.insert(localized("bớt màu cho tự nhiên"));
            changed = true;
        }
        if (!faces.empty()) {
            std::vector<vision::Rect> rects;
            for (const FaceInfo& f : faces)
                rects.push_back(f.rect);
            std::vector<double> lumas;
            for (const FaceInfo& f : ImageAnalyzer::faceInfo(rects, *buffer))
                lumas.push_back(f.luma);
            std::sort(lumas.begin(), lumas.end());
            if (!lumas.empty() && lumas[lumas.size() / 2] < 0.4 && a.people.exposure < 0.9 &&
                result.clippedHighlights < original.clippedHighlights + 0.008 &&
                source.personMask(base)) {
                a.people.exposure = steps20(a.people.exposure + 0.15);
                fixes.insert(localized("sáng thêm khuôn mặt"));
                lifted = true;
            }
        }
        if (!changed && !lifted) break;
    }
    if (!fixes.empty())
        notes.push_back(localized("tự kiểm tra: ") +
                        joined(std::vector<std::string>(fixes.begin(), fixes.end()), ", "));
    return a;
}

}  // namespace ql::Expert
