#include "RandomRecords.h"

namespace ql::testing {
namespace {

struct Filler {
    std::mt19937_64& rng;

    int pick(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng); }

    void fill(double& v) {
        // Values of every shape a slider or a hand-written file produces: whole, fractional,
        // tiny and large, never zero so that no field stays at its default by chance.
        switch (pick(0, 3)) {
            case 0:
                v = pick(-100, 100) + 0.5;
                break;
            case 1:
                v = std::uniform_real_distribution<double>(-1e6, 1e6)(rng);
                break;
            case 2:
                v = std::uniform_real_distribution<double>(1e-9, 1e-3)(rng);
                break;
            default:
                v = pick(1, 12000) + 0.25;
                break;
        }
    }
    void fill(int& v) { v = pick(1, 1000); }
    void fill(bool& v) { v = !v; }
    void fill(std::string& v) {
        static const char* words[] = {"Vùng AI",   "Thánh lễ",   "a\"quoted\\name",
                                      "tab\there", "emoji 🙂", "x"};
        v = words[pick(0, 5)];
    }
    void fill(Uuid& v) { v = Uuid::random(); }
    void fill(Bytes& v) {
        v.data.clear();
        for (int i = pick(1, 40); i > 0; --i)
            v.data.push_back(static_cast<char>(pick(0, 255)));
    }
    template <NamedEnum E>
    void fill(E& v) {
        const auto cases = allCases<E>();
        E other = v;
        while (other == v)
            other = cases[static_cast<size_t>(pick(0, int(cases.size()) - 1))];
        v = other;
    }
    template <class T>
    void fill(std::optional<T>& v) {
        T value{};
        fill(value);
        v = value;
    }
    template <class T, size_t N>
    void fill(std::array<T, N>& v) {
        for (auto& x : v)
            fill(x);
    }
    template <class T>
    void fill(std::vector<T>& v) {
        v.resize(static_cast<size_t>(pick(1, 3)));
        for (auto& x : v)
            fill(x);
    }
    template <Record R>
    void fill(R& r) {
        std::apply([&](const auto&... f) { (fill(r.*(f.member)), ...); }, R::fields());
    }
};

}  // namespace

Adjustments randomAdjustments(std::mt19937_64& rng) {
    Filler f{rng};
    Adjustments a;
    // Listed by hand on purpose: a field missing from the record's table then fails the round
    // trip instead of being skipped by the same table.
    f.fill(a.rawTemperature);
    f.fill(a.rawTint);
    f.fill(a.temperature);
    f.fill(a.tint);
    f.fill(a.exposure);
    f.fill(a.contrast);
    f.fill(a.highlights);
    f.fill(a.shadows);
    f.fill(a.whites);
    f.fill(a.blacks);
    f.fill(a.texture);
    f.fill(a.clarity);
    f.fill(a.dehaze);
    f.fill(a.vibrance);
    f.fill(a.saturation);
    f.fill(a.curves);
    f.fill(a.mixHue);
    f.fill(a.mixSaturation);
    f.fill(a.mixLuminance);
    f.fill(a.gradeShadows);
    f.fill(a.gradeMidtones);
    f.fill(a.gradeHighlights);
    f.fill(a.gradeGlobal);
    f.fill(a.gradeBlending);
    f.fill(a.gradeBalance);
    f.fill(a.sharpening);
    f.fill(a.noiseReduction);
    f.fill(a.skinEven);
    f.fill(a.retouch);
    f.fill(a.portrait);
    f.fill(a.restore);
    f.fill(a.layers);
    f.fill(a.heals);
    f.fill(a.vignette);
    f.fill(a.vignetteMidpoint);
    f.fill(a.grain);
    a.quarterTurns = f.pick(1, 3);
    f.fill(a.flipHorizontal);
    f.fill(a.perspectiveVertical);
    f.fill(a.perspectiveHorizontal);
    f.fill(a.rotation);
    a.crop = CropRect{0.1, 0.2, 0.5 + f.pick(0, 40) / 100.0, 0.25};
    f.fill(a.cropAspect);
    f.fill(a.profile);
    f.fill(a.people);
    f.fill(a.background);
    f.fill(a.style);
    f.fill(a.styleStrength);
    f.fill(a.expertNote);
    f.fill(a.preset);
    f.fill(a.backdrop);
    f.fill(a.lens);
    return a;
}

}  // namespace ql::testing
