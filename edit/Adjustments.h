// The one record of an edit. The render engine is a pure function of it; nothing in an image
// file is ever changed.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "AppLanguage.h"
#include "AppliedPreset.h"
#include "Backdrop.h"
#include "BrushStroke.h"
#include "ColorGrading.h"
#include "ColorProfile.h"
#include "Crop.h"
#include "LensFix.h"
#include "LocalEdit.h"
#include "MaskLayer.h"
#include "PhotoStyle.h"
#include "Portrait.h"
#include "RestoreOld.h"
#include "SettingsGroup.h"
#include "ToneCurves.h"

namespace ql {

/// Slider values are in display units (mostly -100…100, `exposure` in EV). The fields, their JSON
/// keys, labels, ranges and groups are declared once, in the table of AdjustmentFields.h.
struct Adjustments {
    std::optional<double> rawTemperature;  // kelvin; absent means as shot
    std::optional<double> rawTint;         // decoder's tint units; absent means as shot
    double temperature = 0;                // white balance of non-RAW files, slider units
    double tint = 0;
    double exposure = 0;
    double contrast = 0;
    double highlights = 0;
    double shadows = 0;
    double whites = 0;
    double blacks = 0;
    double texture = 0;
    double clarity = 0;
    double dehaze = 0;
    double vibrance = 0;
    double saturation = 0;
    ToneCurves curves;
    BandValues mixHue{};
    BandValues mixSaturation{};
    BandValues mixLuminance{};
    GradeWheel gradeShadows;
    GradeWheel gradeMidtones;
    GradeWheel gradeHighlights;
    GradeWheel gradeGlobal;
    double gradeBlending = 50;
    double gradeBalance = 0;
    double sharpening = 0;
    double noiseReduction = 0;
    double skinEven = 0;
    FaceRetouch retouch;
    Portrait portrait;
    RestoreOld restore;
    std::vector<MaskLayer> layers;
    std::vector<BrushStroke> heals;
    double vignette = 0;  // negative darkens
    double vignetteMidpoint = 50;
    double grain = 0;
    int quarterTurns = 0;  // clockwise, 0…3
    bool flipHorizontal = false;
    double perspectiveVertical = 0;
    double perspectiveHorizontal = 0;
    double rotation = 0;           // degrees
    std::optional<CropRect> crop;  // absent: no crop
    CropAspect cropAspect = CropAspect::original;
    ColorProfile profile = ColorProfile::camera;
    LocalEdit people;      // inside the person mask
    LocalEdit background;  // outside the person mask
    std::optional<PhotoStyle> style;
    double styleStrength = 100;
    std::optional<std::string> expertNote;
    std::optional<AppliedPreset> preset;
    std::optional<Backdrop> backdrop;
    LensFix lens;

    /// The neutral record.
    static const Adjustments& defaults();

    /// Exact equality over every field.
    bool operator==(const Adjustments&) const = default;

    /// Reads a record the forgiving way: any subset of keys, each failing key keeping its default.
    /// Fails only when `json` is not an object.
    static std::optional<Adjustments> fromJson(const Json& json);

    /// Parses JSON text and reads it as above. Text that is no JSON, too deep, or whose top level
    /// is no object fails with a description in `error`.
    static std::optional<Adjustments> decode(std::string_view text, std::string* error = nullptr);

    /// Every key in declared order; optional ones only when present.
    OrderedJson toJson() const;
    std::string encode(bool pretty = false) const;

    /// The record as it would be without its preset: the preset's `before` when it is on and
    /// readable, otherwise this record with the mark dropped.
    Adjustments withoutPreset() const;

    /// This record with the fields of the named groups taken from `from`.
    Adjustments taking(const std::set<SettingsGroup>& groups, const Adjustments& from) const;

    /// One short line for the history list: what changed from `old` to this record.
    /// The record as the renderer applies it: every number finite and inside its slider's range
    /// (a value that is not finite takes its default), curve points clamped to 0…1 and those
    /// that are not finite dropped. Ranges are what the sliders mean; far beyond them is noise.
    Adjustments withinRanges() const;

    std::string changes(const Adjustments& old) const;
    std::string changes(const Adjustments& old, AppLanguage language) const;
};

template <>
struct Codec<Adjustments> {
    static bool read(const Json& j, Adjustments& out);
    static OrderedJson write(const Adjustments& a) { return a.toJson(); }
};

}  // namespace ql
