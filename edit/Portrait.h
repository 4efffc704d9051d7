// The retouch records: the four quick face sliders and the full portrait panel.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "BrushStroke.h"

namespace ql {

/// The quick face sliders, 0…100.
struct FaceRetouch {
    double blemishes = 0;
    double eyes = 0;
    double underEyes = 0;
    double teeth = 0;

    bool operator==(const FaceRetouch&) const = default;
    static auto fields() {
        return std::tuple{
            field("blemishes", &FaceRetouch::blemishes), field("eyes", &FaceRetouch::eyes),
            field("underEyes", &FaceRetouch::underEyes), field("teeth", &FaceRetouch::teeth)};
    }
};

/// A new colour for a feature: hue in degrees, amount 0…100, lightness -100…100.
struct Recolor {
    double hue = 0;
    double amount = 0;
    double lightness = 0;

    bool operator==(const Recolor&) const = default;
    static auto fields() {
        return std::tuple{field("hue", &Recolor::hue), field("amount", &Recolor::amount),
                          field("lightness", &Recolor::lightness)};
    }
};

/// An open eye taken from a donor photo of the same person and laid over a closed one.
struct EyeSwap {
    int face = 0;  // index of the face in this photo
    int from = 0;  // index of the face in the donor photo
    bool skip = false;
    double nudgeX = 0;  // fine placement, fractions of the face width
    double nudgeY = 0;

    bool operator==(const EyeSwap&) const = default;
    static auto fields() {
        return std::tuple{field("face", &EyeSwap::face), field("from", &EyeSwap::from),
                          field("skip", &EyeSwap::skip), field("nudgeX", &EyeSwap::nudgeX),
                          field("nudgeY", &EyeSwap::nudgeY)};
    }
};

/// A garment recoloured: its area grows by colour from `point`, refined by `strokes`.
struct ClothesRecolor {
    NPoint point{0.5, 0.5};
    std::array<double, 3> color{0, 0, 0};  // the picked colour, encoded sRGB
    double hue = 0;
    double amount = 0;
    double lightness = 0;
    double tolerance = 30;
    double saturation = 0;
    double grow = 0;
    double feather = 30;
    bool keepPattern = true;
    std::vector<BrushStroke> strokes;
    std::optional<double> tone;  // a target mean luma, linear

    bool operator==(const ClothesRecolor&) const = default;
    static auto fields() {
        return std::tuple{field("point", &ClothesRecolor::point),
                          field("color", &ClothesRecolor::color),
                          field("hue", &ClothesRecolor::hue),
                          field("amount", &ClothesRecolor::amount),
                          field("lightness", &ClothesRecolor::lightness),
                          field("tolerance", &ClothesRecolor::tolerance),
                          field("saturation", &ClothesRecolor::saturation),
                          field("grow", &ClothesRecolor::grow),
                          field("feather", &ClothesRecolor::feather),
                          field("keepPattern", &ClothesRecolor::keepPattern),
                          field("strokes", &ClothesRecolor::strokes),
                          field("tone", &ClothesRecolor::tone)};
    }
};

/// The studio portrait panel. Doubles are 0…100 unless noted; shape sliders are signed.
struct Portrait {
    std::vector<NPoint> only;  // faces the retouch is limited to; empty means all
    double smooth = 0;
    double wrinkles = 0;
    double freckles = 0;
    double melasma = 0;
    bool bodySkin = false;
    double pores = 0;
    double shine = 0;
    double skinWarmth = 0;      // -100…100
    double skinSaturation = 0;  // -100…100
    double contour = 0;
    bool keepNatural = false;
    std::vector<BrushStroke> skinBrush;
    double enlargeEyes = 0;
    double eyeBalance = 0;
    Recolor eyeColor;
    double gaze = 0;
    double glare = 0;
    double lensCast = 0;
    double whites = 0;
    double irisClarity = 0;
    double brows = 0;
    double lashes = 0;
    Recolor lipColor;
    double lipSaturation = 0;  // -100…100
    std::optional<std::string> openEyesFrom;
    std::vector<EyeSwap> eyeSwaps;
    double eyeBlend = 0;
    double eyeFeather = 0;
    double blackHair = 0;
    Recolor hairColor;
    double greyCover = 0;
    double hairShine = 0;
    std::vector<BrushStroke> hairBrush;
    std::vector<ClothesRecolor> clothes;
    double nose = 0;
    double faceSlim = 0;
    double chin = 0;
    double forehead = 0;
    double mouthWidth = 0;
    double noseLength = 0;
    double eyeDistance = 0;
    double protectBackground = 0;  // 0…100: how still the background stays under shape work
    double belly = 0;
    double slim = 0;
    double waist = 0;
    double shoulders = 0;
    double arms = 0;
    double legs = 0;

    bool isNeutral() const { return *this == Portrait{}; }
    /// Every retouch works from the faces found in the photo.
    bool needsFaces() const { return !isNeutral(); }
    /// Work beyond the face (body skin, hair, clothes, body shape) also needs the person mask.
    bool needsPeople() const {
        return bodySkin || blackHair > 0 || hairColor.amount > 0 || greyCover > 0 ||
               hairShine > 0 || !hairBrush.empty() || !clothes.empty() || belly != 0 ||
               slim != 0 || waist != 0 || shoulders != 0 || arms != 0 || legs != 0 ||
               protectBackground > 0;
    }

    bool operator==(const Portrait&) const = default;
    static auto fields() {
        using P = Portrait;
        return std::tuple{
            field("only", &P::only),
            field("smooth", &P::smooth),
            field("wrinkles", &P::wrinkles),
            field("freckles", &P::freckles),
            field("melasma", &P::melasma),
            field("bodySkin", &P::bodySkin),
            field("pores", &P::pores),
            field("shine", &P::shine),
            field("skinWarmth", &P::skinWarmth),
            field("skinSaturation", &P::skinSaturation),
            field("contour", &P::contour),
            field("keepNatural", &P::keepNatural),
            field("skinBrush", &P::skinBrush),
            field("enlargeEyes", &P::enlargeEyes),
            field("eyeBalance", &P::eyeBalance),
            field("eyeColor", &P::eyeColor),
            field("gaze", &P::gaze),
            field("glare", &P::glare),
            field("lensCast", &P::lensCast),
            field("whites", &P::whites),
            field("irisClarity", &P::irisClarity),
            field("brows", &P::brows),
            field("lashes", &P::lashes),
            field("lipColor", &P::lipColor),
            field("lipSaturation", &P::lipSaturation),
            field("openEyesFrom", &P::openEyesFrom),
            field("eyeSwaps", &P::eyeSwaps),
            field("eyeBlend", &P::eyeBlend),
            field("eyeFeather", &P::eyeFeather),
            field("blackHair", &P::blackHair),
            field("hairColor", &P::hairColor),
            field("greyCover", &P::greyCover),
            field("hairShine", &P::hairShine),
            field("hairBrush", &P::hairBrush),
            field("clothes", &P::clothes),
            field("nose", &P::nose),
            field("faceSlim", &P::faceSlim),
            field("chin", &P::chin),
            field("forehead", &P::forehead),
            field("mouthWidth", &P::mouthWidth),
            field("noseLength", &P::noseLength),
            field("eyeDistance", &P::eyeDistance),
            field("protectBackground", &P::protectBackground),
            field("belly", &P::belly),
            field("slim", &P::slim),
            field("waist", &P::waist),
            field("shoulders", &P::shoulders),
            field("arms", &P::arms),
            field("legs", &P::legs),
        };
    }
};

}  // namespace ql
