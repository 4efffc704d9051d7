// The table of the edit record's fields: declared once, read by the decoder, the encoder, the
// history line, the settings groups, and later by the sliders and the agents' schema.
#pragma once

#include <optional>
#include <span>
#include <string_view>

#include "Adjustments.h"

namespace ql {

/// A slider's range in display units.
struct SliderRange {
    double min = 0;
    double max = 0;
    double step = 1;
};

struct AdjustmentField {
    std::string_view key;                // JSON key, equal to the field's name
    std::string_view label;              // Vietnamese, a localisation key
    std::optional<SliderRange> range;    // plain numbers only
    std::optional<SettingsGroup> group;  // none: the field never travels to another photo
    bool cube = false;                   // the colour cube depends on it

    // Type-erased access, generated from the member pointer.
    bool (*read)(const Json& value, Adjustments& into) = nullptr;  // false: keeps the default
    /// Writes `key` into `object`, or nothing for an absent optional.
    void (*write)(const Adjustments& from, std::string_view key, OrderedJson& object) = nullptr;
    bool (*equal)(const Adjustments& a, const Adjustments& b) = nullptr;
    void (*copy)(const Adjustments& from, Adjustments& into) = nullptr;
    /// The value of a plain number field (optional ones when present).
    std::optional<double> (*number)(const Adjustments& a) = nullptr;
    /// Sets a plain number field (an optional one becomes present); other fields ignore it.
    void (*setNumber)(Adjustments& a, double value) = nullptr;
};

/// All 52 fields in declared order.
std::span<const AdjustmentField> adjustmentFields();

/// The field with this key, or null.
const AdjustmentField* adjustmentField(std::string_view key);

}  // namespace ql
