#include "PhotoFacts.h"

#include <cctype>

namespace ql {

PhotoFacts PhotoFacts::of(ImageSource& source) {
    PhotoFacts facts;
    facts.isRAW = source.isRAW();
    facts.asShotTemperature = source.asShotTemperature();
    facts.asShotTint = source.asShotTint();
    facts.info = source.info();
    if (facts.isRAW) facts.cameraLook = source.cameraLookFit();
    return facts;
}

int PhotoFacts::isoNumber() const {
    if (!info.iso) return 0;
    long long value = 0;
    bool any = false;
    for (const char c : *info.iso) {
        if (!std::isdigit(static_cast<unsigned char>(c))) continue;
        any = true;
        value = value * 10 + (c - '0');
        if (value > 100'000'000) return 100'000'000;  // no camera; keeps the arithmetic sane
    }
    return any ? static_cast<int>(value) : 0;
}

}  // namespace ql
