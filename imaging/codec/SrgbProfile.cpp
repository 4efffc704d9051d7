#include "SrgbProfile.h"

#include <lcms2.h>

namespace ql::img {

const std::vector<uint8_t>& srgbIccProfile() {
    static const std::vector<uint8_t> bytes = [] {
        std::vector<uint8_t> out;
        cmsHPROFILE p = cmsCreate_sRGBProfile();
        if (!p) return out;
        cmsUInt32Number size = 0;
        if (cmsSaveProfileToMem(p, nullptr, &size) && size > 0) {
            out.resize(size);
            if (!cmsSaveProfileToMem(p, out.data(), &size)) out.clear();
        }
        cmsCloseProfile(p);
        return out;
    }();
    return bytes;
}

}  // namespace ql::img
