#include "Diagnosis.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "WhiteBalanceCorrection.h"
#include "edit/AppLanguage.h"

namespace ql::Diagnosis {

namespace {

using Status = Finding::Status;

std::string tr(std::string_view key) {
    return localized(key);
}

std::string format(const char* pattern, double value) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, pattern, value);
    return buffer;
}

std::string ev(double value) {
    return format("%+.1f EV", value);
}
std::string whole(double value) {
    return format("%.0f", value);
}

// Small shares keep a decimal so that 0.4 % does not read as nothing.
std::string share(double fraction) {
    if (fraction < 0.001) return "0%";
    return format(fraction < 0.1 ? "%.1f%%" : "%.0f%%", fraction * 100);
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

Finding finding(std::string id, std::string_view title, Status status, std::string detail,
                std::optional<std::string> fix = std::nullopt) {
    return {std::move(id), tr(title), status, std::move(detail), std::move(fix)};
}

std::optional<std::string> unlessGood(Status status, std::string fix) {
    if (status == Status::good) return std::nullopt;
    return fix;
}

Finding faces(const std::vector<FaceInfo>& faces, const AutoTone& tone) {
    std::vector<double> lumas;
    for (const FaceInfo& face : faces)
        lumas.push_back(face.luma);
    const double m = median(lumas);
    const double exposure = tone.exposure;
    Status status = Status::good;
    std::string_view text = "Khuôn mặt đủ sáng, rõ nét.";
    if (m < 0.28) {
        status = Status::bad, text = "Khuôn mặt tối, khó nhìn rõ người.";
    } else if (m < 0.42) {
        status = Status::warn, text = "Khuôn mặt hơi tối.";
    } else if (m > 0.75) {
        status = Status::warn, text = "Khuôn mặt quá sáng, dễ mất chi tiết da.";
    }
    std::string detail = tr(text) + " " + tr("Độ sáng da") + " " + format("%.0f%%", m * 100) +
                         " (" + tr("đẹp nhất khoảng 45–65%") + ").";
    std::string fix = tone.peopleExposure > 0
                          ? tr("Làm sáng riêng người") + " " + ev(tone.peopleExposure) + ", " +
                                tr("cả ảnh") + " " + ev(exposure) + " (" +
                                tr("nền trắng không bị cháy") + ")"
                          : tr("Chỉnh sáng theo khuôn mặt: phơi sáng") + " " + ev(exposure);
    return {"faces", tr("Khuôn mặt") + " (" + std::to_string(faces.size()) + ")", status,
            std::move(detail), unlessGood(status, std::move(fix))};
}

Finding exposure(const PhotoAnalysis& a) {
    const double e = a.autoTone.exposure;
    const Status status = std::abs(e) < 0.25  ? Status::good
                          : std::abs(e) < 0.6 ? Status::warn
                                              : Status::bad;
    std::string_view text = "Độ sáng chung ổn.";
    if (e > 0.2)
        text = a.stats.faces.empty() ? "Ảnh còn tối so với mức đẹp."
                                     : "Nên sáng thêm để khuôn mặt rõ hơn.";
    else if (e < -0.2)
        text = "Ảnh hơi dư sáng.";
    std::string detail =
        tr(text) + " " + tr("Độ sáng giữa ảnh") + " " + format("%.0f%%", a.stats.p50 * 100) + ".";
    return finding("exposure", "Độ sáng chung", status, std::move(detail),
                   unlessGood(status, tr("Phơi sáng") + " " + ev(e)));
}

Finding highlights(const PhotoAnalysis& a) {
    const double c = a.stats.clippedHighlights;
    std::optional<std::string> fix;
    if (a.autoTone.highlights < -20)
        fix =
            tr("Vùng sáng") + " " + whole(a.autoTone.highlights) + " " + tr("để lấy lại chi tiết");
    if (c <= 0.005)
        return finding("highlights", "Vùng cháy sáng", Status::good,
                       tr("Hầu như không có chỗ cháy sáng."), fix);
    return finding(
        "highlights", "Vùng cháy sáng", c <= 0.03 ? Status::warn : Status::bad,
        share(c) + " " + tr("ảnh trắng xóa, mất chi tiết (thường là trời, áo trắng, đèn)."), fix);
}

Finding shadows(const PhotoAnalysis& a) {
    const double c = a.stats.clippedShadows;
    const bool closed = a.stats.p10 < 0.12;
    const Status status = c > 0.05               ? Status::bad
                          : (c > 0.01 || closed) ? Status::warn
                                                 : Status::good;
    std::string detail = c > 0.01 ? share(c) + " " + tr("ảnh đen đặc, mất chi tiết.")
                         : closed ? tr("Vùng tối hơi bí, chi tiết trong bóng râm khó thấy.")
                                  : tr("Vùng tối giữ được chi tiết.");
    std::optional<std::string> fix;
    if (a.autoTone.shadows > 15 && status != Status::good)
        fix = tr("Vùng tối") + " +" + whole(a.autoTone.shadows) + " " + tr("để mở bóng râm");
    return finding("shadows", "Vùng tối", status, std::move(detail), std::move(fix));
}

Finding contrast(const PhotoAnalysis& a) {
    const double span = a.stats.p90 - a.stats.p10;
    if (span < 0.4)
        return finding("contrast", "Độ tương phản", Status::warn,
                       tr("Ảnh hơi nhạt, thiếu chiều sâu."),
                       tr("Tương phản") + " +" + whole(a.autoTone.contrast));
    if (span > 0.85)
        return finding("contrast", "Độ tương phản", Status::warn,
                       tr("Tương phản gắt: sáng rất sáng, tối rất tối."),
                       tr("Giảm vùng sáng, mở vùng tối"));
    return finding("contrast", "Độ tương phản", Status::good, tr("Tương phản vừa phải."));
}

Finding whiteBalance(const PhotoAnalysis& a, const PhotoFacts& facts) {
    const double error = WhiteBalanceCorrection::warmthError(a, facts);
    if (std::abs(error) <= 40)
        return finding("wb", "Cân bằng trắng", Status::good,
                       tr("Màu trắng gần chuẩn, không ám màu rõ."));
    // A negative error means the picture is warmer than neutral.
    const bool warm = error <= 0;
    return finding("wb", "Cân bằng trắng", std::abs(error) <= 80 ? Status::warn : Status::bad,
                   tr(warm ? "Ảnh hơi ấm (ám vàng) so với trắng chuẩn."
                           : "Ảnh hơi lạnh (ám xanh) so với trắng chuẩn."),
                   tr(warm ? "Làm mát bớt một chút" : "Làm ấm lên một chút"));
}

Finding skin(const std::vector<FaceInfo>& faces) {
    std::vector<double> hues, saturations;
    for (const FaceInfo& face : faces) {
        hues.push_back(face.hue);
        saturations.push_back(face.saturation);
    }
    const double h = median(hues), s = median(saturations);
    Status status = Status::warn;
    std::string_view text;
    if (h < 8 || h > 340)
        text = "Da hơi đỏ/hồng.";
    else if (h > 42)
        text = "Da hơi vàng/xanh, thiếu sắc hồng.";
    else if (s < 0.12)
        text = "Da nhợt, thiếu sức sống.";
    else if (s > 0.55)
        text = "Da quá đậm màu (cam).";
    else
        status = Status::good, text = "Màu da tự nhiên.";
    return finding("skin", "Màu da", status,
                   tr(text) + " " + tr("Sắc độ") + " " + format("%.0f°", h) + ".",
                   unlessGood(status, tr("Chỉnh dải màu Cam trong Trộn màu")));
}

Finding color(const PhotoAnalysis& a) {
    const double s = a.stats.meanSaturation;
    Status status = Status::good;
    std::string_view text = "Màu tươi vừa phải.";
    if (s > 0.5) {
        status = Status::warn, text = "Màu đã rất đậm, không nên tăng thêm.";
    } else if (s < 0.2 && a.stats.p50 > 0.55) {
        // A white interior is pale by nature, not dull.
        text = "Cảnh nhiều màu trắng nên màu nhạt là tự nhiên; tăng nhẹ cho các mảng màu nổi hơn.";
    } else if (s < 0.12) {
        status = Status::bad, text = "Màu rất nhạt, ảnh trông xỉn.";
    } else if (s < 0.2) {
        status = Status::warn, text = "Màu hơi nhạt.";
    }
    std::optional<std::string> fix;
    if (s <= 0.5 && a.autoTone.vibrance >= 10)
        fix = tr("Độ rực") + " +" + whole(a.autoTone.vibrance);
    return finding("color", "Độ tươi màu", status, tr(text), std::move(fix));
}

Finding level(double lean) {
    if (std::abs(lean) < 0.5) return finding("level", "Độ nghiêng", Status::good, tr("Ảnh thẳng."));
    const bool tilted = std::abs(lean) >= 1.5;
    return finding("level", "Độ nghiêng", tilted ? Status::warn : Status::good,
                   tr("Ảnh nghiêng khoảng") + " " + format("%.1f°", lean) + ".",
                   tilted ? std::optional(tr("Bấm Nắn thẳng tự động")) : std::nullopt);
}

Finding sharp(const PhotoAnalysis& a) {
    const bool faces = !a.stats.faces.empty();
    if (a.stats.sharpness < 0.22)
        return finding("sharp", "Độ nét", Status::warn,
                       tr(faces ? "Khuôn mặt hơi mềm, có thể lấy nét trượt."
                                : "Ảnh hơi mềm, có thể do rung tay hoặc lấy nét trượt."),
                       tr("Làm nét +30 (không cứu được ảnh rung nhiều)"));
    return finding("sharp", "Độ nét", Status::good, tr(faces ? "Khuôn mặt nét." : "Ảnh nét."));
}

Finding noise(int iso) {
    const bool high = iso >= 6400;
    return finding(
        "noise", "Nhiễu hạt", high ? Status::bad : Status::warn,
        tr("Chụp ISO") + " " + std::to_string(iso) + ", " + tr("vùng tối dễ lấm tấm hạt."),
        tr(high ? "Giảm nhiễu +40" : "Giảm nhiễu +20"));
}

Finding file(const PhotoFacts& facts) {
    const PhotoInfo& info = facts.info;
    std::vector<std::string> parts;
    for (const auto* stored : {&info.camera, &info.iso, &info.shutter, &info.aperture, &info.focal})
        if (*stored) parts.push_back(**stored);
    if (info.program) parts.push_back(tr("chế độ") + " " + *info.program);
    if (info.flashFired) parts.push_back(tr(*info.flashFired ? "có đèn flash" : "không flash"));
    if (info.whiteBalanceManual)
        parts.push_back(
            tr(*info.whiteBalanceManual ? "cân bằng trắng đặt tay" : "cân bằng trắng tự động"));
    if (info.metering) parts.push_back(tr("đo sáng") + " " + *info.metering);
    if (info.exposureBias && *info.exposureBias != 0)
        parts.push_back(tr("bù sáng") + " " + ev(*info.exposureBias));
    std::string detail;
    for (size_t i = 0; i < parts.size(); ++i) {
        if (i) detail += " · ";
        detail += parts[i];
    }
    if (facts.isRAW) {
        if (facts.cameraLook) {
            const double match = std::max(100 - 250 * facts.cameraLook->after, 0.0);
            detail += ' ';
            detail +=
                tr("Màu gốc lấy theo màu máy ảnh, học từ ảnh JPEG máy nhúng trong file RAW "
                   "(khớp");
            detail += ' ';
            detail += whole(std::round(match));
            detail += "%).";
        } else {
            detail += ' ';
            detail +=
                tr("File RAW không có ảnh JPEG của máy, nên dùng màu trung tính của "
                   "Quillarium.");
        }
    }
    return finding("file", "Thông tin trong file", Status::good, std::move(detail));
}

}  // namespace

PhotoReport make(const PhotoAnalysis& analysis, const PhotoFacts& facts) {
    const ImageStats& stats = analysis.stats;
    const bool hasFaces = !stats.faces.empty();
    PhotoReport report;
    auto& findings = report.findings;
    if (hasFaces) findings.push_back(faces(stats.faces, analysis.autoTone));
    findings.push_back(exposure(analysis));
    findings.push_back(highlights(analysis));
    findings.push_back(shadows(analysis));
    findings.push_back(contrast(analysis));
    findings.push_back(whiteBalance(analysis, facts));
    if (hasFaces) findings.push_back(skin(stats.faces));
    findings.push_back(color(analysis));
    if (stats.lean) findings.push_back(level(*stats.lean));
    findings.push_back(sharp(analysis));
    if (const int iso = facts.isoNumber(); iso >= 1600) findings.push_back(noise(iso));

    int score = 100;
    for (const Finding& f : findings)
        score -= f.status == Status::bad ? 14 : f.status == Status::warn ? 6 : 0;
    report.score = std::max(score, 20);
    report.verdict = tr(report.score >= 88   ? "Ảnh tốt, chỉ cần chọn phong cách."
                        : report.score >= 70 ? "Khá, chỉnh vài điểm sẽ đẹp hơn rõ."
                                             : "Cần chỉnh nhiều để ảnh đẹp.");

    std::stable_sort(findings.begin(), findings.end(), [](const Finding& a, const Finding& b) {
        return static_cast<int>(a.status) > static_cast<int>(b.status);
    });
    findings.push_back(file(facts));  // facts, not a judgement: never scored

    report.colors = mergeColors(stats.colors);
    for (const FaceInfo& face : stats.faces)
        report.faces.push_back(face.rect);
    return report;
}

std::vector<DominantColor> mergeColors(const std::vector<DominantColor>& colors) {
    std::vector<DominantColor> merged;
    for (const DominantColor& c : colors) {
        auto same = std::find_if(merged.begin(), merged.end(),
                                 [&](const DominantColor& m) { return m.name == c.name; });
        if (same == merged.end()) {
            merged.push_back(c);
            continue;
        }
        const double total = same->share + c.share;
        if (total > 0) {
            same->r = (same->r * same->share + c.r * c.share) / total;
            same->g = (same->g * same->share + c.g * c.share) / total;
            same->b = (same->b * same->share + c.b * c.share) / total;
        }
        same->share = total;
    }
    std::stable_sort(
        merged.begin(), merged.end(),
        [](const DominantColor& a, const DominantColor& b) { return a.share > b.share; });
    return merged;
}

}  // namespace ql::Diagnosis
