// The part of an edit that the colour cube depends on: equal keys bake equal cubes.
#pragma once

#include "Adjustments.h"

namespace ql {

/// Holds the cube's fields of an edit (those marked in the field table); every other field stays
/// at its default, so plain equality compares exactly the cube's inputs.
class LUTKey {
  public:
    explicit LUTKey(const Adjustments& adjustments);

    /// True when the key equals the one taken from the neutral record.
    bool isIdentity() const;
    const Adjustments& values() const { return values_; }

    bool operator==(const LUTKey&) const = default;

  private:
    Adjustments values_;
};

}  // namespace ql
