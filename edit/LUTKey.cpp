#include "LUTKey.h"

#include "AdjustmentFields.h"

namespace ql {

LUTKey::LUTKey(const Adjustments& adjustments) {
    for (const auto& f : adjustmentFields())
        if (f.cube) f.copy(adjustments, values_);
}

bool LUTKey::isIdentity() const {
    static const LUTKey identity(Adjustments::defaults());
    return *this == identity;
}

}  // namespace ql
