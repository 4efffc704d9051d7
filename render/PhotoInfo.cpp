#include "PhotoInfo.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <initializer_list>
#include <vector>

namespace ql {
namespace {

using img::Metadata;

// The value of the first key that holds a number.
std::optional<double> firstNumber(const Metadata& m, std::initializer_list<const char*> keys) {
    for (const char* key : keys)
        if (auto v = m.number(key)) return v;
    return std::nullopt;
}

std::optional<long> firstInteger(const Metadata& m, std::initializer_list<const char*> keys) {
    for (const char* key : keys)
        if (auto v = m.integer(key)) return v;
    return std::nullopt;
}

std::optional<double> within(std::optional<double> v, double lo, double hi) {
    if (v && *v >= lo && *v <= hi) return v;
    return std::nullopt;
}

std::string fixed1(double v) {
    char text[48];
    std::snprintf(text, sizeof text, "%.1f", v);
    return text;
}

// One decimal, none when it is 0: "18.5", "50".
std::string shortNumber(double v) {
    std::string s = fixed1(v);
    if (s.ends_with(".0")) s.resize(s.size() - 2);
    return s;
}

std::string lower(std::string_view s) {
    std::string out(s);
    for (char& c : out)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return out;
}

std::string_view trim(std::string_view s) {
    const size_t b = s.find_first_not_of(" \t\r\n");
    if (b == std::string_view::npos) return {};
    return s.substr(b, s.find_last_not_of(" \t\r\n") - b + 1);
}

std::vector<std::string_view> words(std::string_view s) {
    std::vector<std::string_view> out;
    for (size_t i = 0; i < s.size();) {
        const size_t b = s.find_first_not_of(' ', i);
        if (b == std::string_view::npos) break;
        const size_t e = std::min(s.find(' ', b), s.size());
        out.push_back(s.substr(b, e - b));
        i = e;
    }
    return out;
}

// Readers print placeholders for lenses they cannot name: "n/a", "(65535)", "Unknown (42)", "0".
bool usableLens(std::string_view s) {
    const std::string l = lower(trim(s));
    if (l.empty() || l.front() == '(' || l == "n/a" || l == "none" || l.starts_with("unknown"))
        return false;
    const bool letters =
        std::any_of(l.begin(), l.end(), [](unsigned char c) { return std::isalpha(c) != 0; });
    return letters;
}

// "18-55mm f/3.5-5.6" from the four numbers of a lens's focal and aperture range (unknown parts
// are 0/0).
std::optional<std::string> lensFromRange(const Metadata& m, const char* key) {
    const auto part = [&](size_t i) { return within(m.number(key, i), 0.01, 1e5); };
    const auto wide = part(0), tele = part(1), fWide = part(2), fTele = part(3);
    if (!wide) return std::nullopt;
    std::string s = shortNumber(*wide);
    if (tele && shortNumber(*tele) != s) s.append("-").append(shortNumber(*tele));
    s += "mm";
    if (fWide) {
        s.append(" f/").append(shortNumber(*fWide));
        if (fTele && shortNumber(*fTele) != shortNumber(*fWide))
            s.append("-").append(shortNumber(*fTele));
    }
    return s;
}

std::optional<std::string> lensName(const Metadata& m) {
    for (const char* key :
         {"Exif.Photo.LensModel", "Xmp.exifEX.LensModel", "Xmp.aux.Lens", "Exif.Canon.LensModel",
          "Exif.OlympusEq.LensModel", "Exif.Panasonic.LensType"})
        if (auto t = m.text(key); t && usableLens(*t)) return t;
    // Maker notes hold lens codes; Exiv2 knows their names.
    for (const char* key :
         {"Exif.NikonLd3.LensIDNumber", "Exif.NikonLd2.LensIDNumber", "Exif.NikonLd1.LensIDNumber",
          "Exif.CanonCs.LensType", "Exif.Sony2.LensID", "Exif.Sony1.LensID", "Exif.Minolta.LensID",
          "Exif.Pentax.LensType", "Exif.PentaxDng.LensType", "Exif.Samsung2.LensType"})
        if (auto t = m.interpreted(key); t && usableLens(*t)) return t;
    for (const char* key : {"Exif.Photo.LensSpecification", "Exif.Image.LensInfo"})
        if (auto t = lensFromRange(m, key)) return t;
    return std::nullopt;
}

std::optional<double> isoSpeed(const Metadata& m) {
    auto iso = m.number("Exif.Photo.ISOSpeedRatings");
    // 65535 stands for "this or more"; the exact value then sits in a newer tag.
    if (!iso || *iso >= 65535) {
        if (auto exact =
                firstNumber(m, {"Exif.Photo.RecommendedExposureIndex", "Exif.Photo.ISOSpeed"});
            exact && *exact > 0)
            iso = exact;
    }
    if (!iso)
        iso = firstNumber(m, {"Exif.Image.ISOSpeedRatings", "Xmp.exif.ISOSpeedRatings",
                              "Xmp.exifEX.PhotographicSensitivity"});
    return within(iso, 1, 1e7);
}

// The APEX tags stand in only when the direct ones are missing, not when they hold nonsense:
// cameras that write zeros there write zeros in the APEX tags too, which would read as 1 s, f/1.
std::optional<double> exposureTime(const Metadata& m) {
    auto t = firstNumber(m, {"Exif.Photo.ExposureTime", "Xmp.exif.ExposureTime"});
    if (!t)
        if (auto apex =
                firstNumber(m, {"Exif.Photo.ShutterSpeedValue", "Xmp.exif.ShutterSpeedValue"});
            apex && std::abs(*apex) < 64)
            t = std::exp2(-*apex);
    return within(t, 1e-9, 1e5);
}

std::optional<double> fNumber(const Metadata& m) {
    auto f = firstNumber(m, {"Exif.Photo.FNumber", "Xmp.exif.FNumber"});
    if (!f)
        if (auto apex = firstNumber(m, {"Exif.Photo.ApertureValue", "Xmp.exif.ApertureValue"});
            apex && std::abs(*apex) < 64)
            f = std::exp2(*apex / 2);
    return within(f, 0.5, 1000);
}

std::optional<std::string> programName(long v) {
    static const char* const names[] = {
        nullptr,    "Manual", "Program",  "Aperture priority", "Shutter priority",
        "Creative", "Action", "Portrait", "Landscape"};
    if (v < 1 || v > 8) return std::nullopt;
    return names[v];
}

std::optional<std::string> meteringName(long v) {
    static const char* const names[] = {nullptr,      "Average", "Centre-weighted", "Spot",
                                        "Multi-spot", "Pattern", "Partial"};
    if (v == 255) return "Other";
    if (v < 1 || v > 6) return std::nullopt;
    return names[v];
}

// A date and time as EXIF ("2021:06:15 14:30:05") or XMP ("2021-06-15T14:30:05.25+02:00",
// also without seconds, or a date alone) writes it.
struct Stamp {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    double fraction = 0;
    bool hasFraction = false;
    std::optional<int> offsetMinutes;
};

class Cursor {
  public:
    explicit Cursor(std::string_view s) : s_(s) {}
    bool done() const { return i_ == s_.size(); }
    bool take(std::string_view any) {
        if (done() || any.find(s_[i_]) == std::string_view::npos) return false;
        ++i_;
        return true;
    }
    bool digits(int n, int& out) {
        if (s_.size() - i_ < size_t(n)) return false;
        out = 0;
        for (int k = 0; k < n; ++k) {
            const char c = s_[i_ + size_t(k)];
            if (c < '0' || c > '9') return false;
            out = out * 10 + (c - '0');
        }
        i_ += size_t(n);
        return true;
    }
    // Decimal digits after a point, as a fraction of one.
    double fraction() {
        double v = 0, scale = 0.1;
        while (!done() && s_[i_] >= '0' && s_[i_] <= '9') {
            v += (s_[i_++] - '0') * scale;
            scale /= 10;
        }
        return v;
    }
    // "+02:00", "-0530", "Z".
    std::optional<int> offset() {
        if (take("Z")) return 0;
        if (done()) return std::nullopt;
        const int sign = s_[i_] == '-' ? -1 : 1;
        int h = 0, m = 0;
        if (!take("+-") || !digits(2, h)) return std::nullopt;
        take(":");
        if (!digits(2, m) || h > 23 || m > 59) return std::nullopt;
        return sign * (h * 60 + m);
    }

  private:
    std::string_view s_;
    size_t i_ = 0;
};

std::optional<Stamp> parseStamp(std::string_view text) {
    Cursor c(trim(text));
    Stamp s;
    if (!c.digits(4, s.year) || !c.take(":-") || !c.digits(2, s.month) || !c.take(":-") ||
        !c.digits(2, s.day))
        return std::nullopt;
    if (!c.done()) {
        if (!c.take(" T") || !c.digits(2, s.hour) || !c.take(":") || !c.digits(2, s.minute))
            return std::nullopt;
        if (c.take(":") && !c.digits(2, s.second)) return std::nullopt;
        if (c.take(".,")) {
            s.fraction = c.fraction();
            s.hasFraction = true;
        }
        if (!c.done() && !(s.offsetMinutes = c.offset())) return std::nullopt;
        if (!c.done()) return std::nullopt;
    }
    using namespace std::chrono;
    const year_month_day date{year(s.year), month(unsigned(s.month)), day(unsigned(s.day))};
    if (s.year < 1700 || s.year > 2200 || !date.ok() || s.hour > 23 || s.minute > 59 ||
        s.second > 60)
        return std::nullopt;
    return s;
}

std::optional<std::chrono::system_clock::time_point> toTimePoint(const Stamp& s) {
    using namespace std::chrono;
    system_clock::time_point t;
    if (s.offsetMinutes) {
        const sys_days date =
            year_month_day{year(s.year), month(unsigned(s.month)), day(unsigned(s.day))};
        t = date + hours(s.hour) + minutes(s.minute) + seconds(s.second) -
            minutes(*s.offsetMinutes);
    } else {
        std::tm tm{};
        tm.tm_year = s.year - 1900;
        tm.tm_mon = s.month - 1;
        tm.tm_mday = s.day;
        tm.tm_hour = s.hour;
        tm.tm_min = s.minute;
        tm.tm_sec = s.second;
        tm.tm_isdst = -1;  // whatever daylight saving time the zone had then
        const std::time_t local = std::mktime(&tm);
        if (local == std::time_t(-1)) return std::nullopt;
        t = system_clock::from_time_t(local);
    }
    return t + duration_cast<system_clock::duration>(duration<double>(s.fraction));
}

}  // namespace

std::string formatShutter(double seconds) {
    if (seconds >= 0.5) return fixed1(seconds) + "s";
    return "1/" + std::to_string(std::lround(1 / seconds)) + "s";
}

std::string formatAperture(double fNumber) {
    return "f/" + fixed1(fNumber);
}

std::string formatFocal(double millimetres) {
    return shortNumber(millimetres) + "mm";
}

std::string cameraName(std::string_view make, std::string_view model) {
    // Company suffixes that only lengthen the name: "OLYMPUS IMAGING CORP.", "Minolta Co., Ltd."
    static const char* const suffixes[] = {"corporation", "corp.",   "corp", "co.", "co",
                                           "co.,ltd.",    "co.,ltd", "ltd.", "ltd", "company",
                                           "imaging",     "optical", "inc.", "inc"};
    std::vector<std::string_view> makeWords = words(trim(make));
    while (makeWords.size() > 1) {
        std::string last = lower(makeWords.back());
        if (last.ends_with(',')) last.pop_back();
        if (std::find(std::begin(suffixes), std::end(suffixes), last) == std::end(suffixes)) break;
        makeWords.pop_back();
    }
    model = trim(model);
    std::string brand;
    for (std::string_view w : makeWords)
        brand.append(brand.empty() ? "" : " ").append(w);
    if (brand.empty() || model.empty()) return brand.empty() ? std::string(model) : brand;
    // A model that starts with the brand ("Canon EOS 550D", "KODAK DX6490") needs no prefix.
    const std::vector<std::string_view> modelWords = words(model);
    const std::string first = lower(modelWords.front());
    for (std::string_view w : makeWords)
        if (lower(w) == first) return std::string(model);
    return brand + " " + std::string(model);
}

std::optional<std::chrono::system_clock::time_point> captureDate(const img::Metadata& m) {
    struct Source {
        const char *date, *subSecond, *offset;
    };
    static const Source sources[] = {
        {"Exif.Photo.DateTimeOriginal", "Exif.Photo.SubSecTimeOriginal",
         "Exif.Photo.OffsetTimeOriginal"},
        {"Exif.Photo.DateTimeDigitized", "Exif.Photo.SubSecTimeDigitized",
         "Exif.Photo.OffsetTimeDigitized"},
        {"Exif.Image.DateTime", "Exif.Photo.SubSecTime", "Exif.Photo.OffsetTime"},
        {"Xmp.exif.DateTimeOriginal", nullptr, nullptr},
        {"Xmp.photoshop.DateCreated", nullptr, nullptr},
        {"Xmp.xmp.CreateDate", nullptr, nullptr},
    };
    for (const Source& source : sources) {
        const auto text = m.text(source.date);
        std::optional<Stamp> stamp = text ? parseStamp(*text) : std::nullopt;
        if (!stamp) continue;
        if (source.subSecond && !stamp->hasFraction)
            if (const auto sub = m.text(source.subSecond)) {
                Cursor c(*sub);
                const double f = c.fraction();
                if (c.done()) stamp->fraction = f;
            }
        if (source.offset && !stamp->offsetMinutes)
            if (const auto offset = m.text(source.offset)) {
                Cursor c(*offset);
                const auto minutes = c.offset();
                if (c.done()) stamp->offsetMinutes = minutes;
            }
        if (auto t = toTimePoint(*stamp)) return t;
    }
    return std::nullopt;
}

PhotoInfo readInfo(const img::Metadata& m) {
    PhotoInfo info;
    if (m.empty()) return info;
    const std::string camera =
        cameraName(m.text("Exif.Image.Make").value_or(m.text("Xmp.tiff.Make").value_or("")),
                   m.text("Exif.Image.Model").value_or(m.text("Xmp.tiff.Model").value_or("")));
    if (!camera.empty()) info.camera = camera;
    info.lens = lensName(m);

    if (const auto iso = isoSpeed(m)) {
        info.isoValue = int(std::lround(*iso));
        info.iso = "ISO " + std::to_string(*info.isoValue);
    }
    if ((info.shutterSeconds = exposureTime(m))) info.shutter = formatShutter(*info.shutterSeconds);
    if ((info.fNumber = fNumber(m))) info.aperture = formatAperture(*info.fNumber);
    info.focalMM =
        within(firstNumber(m, {"Exif.Photo.FocalLength", "Xmp.exif.FocalLength"}), 0.01, 1e5);
    if (info.focalMM) info.focal = formatFocal(*info.focalMM);

    if (const auto flash = m.integer("Exif.Photo.Flash"))
        info.flashFired = (*flash & 1) != 0;
    else if (const auto fired = m.text("Xmp.exif.Flash/exif:Fired"))
        info.flashFired = lower(*fired) == "true";
    if (const auto v = firstInteger(m, {"Exif.Photo.ExposureProgram", "Xmp.exif.ExposureProgram"}))
        info.program = programName(*v);
    if (const auto v = firstInteger(m, {"Exif.Photo.MeteringMode", "Xmp.exif.MeteringMode"}))
        info.metering = meteringName(*v);
    if (const auto v = firstInteger(m, {"Exif.Photo.WhiteBalance", "Xmp.exif.WhiteBalance"});
        v && (*v == 0 || *v == 1))
        info.whiteBalanceManual = *v == 1;
    info.exposureBias = within(
        firstNumber(m, {"Exif.Photo.ExposureBiasValue", "Xmp.exif.ExposureBiasValue"}), -64, 64);
    info.captured = captureDate(m);
    return info;
}

}  // namespace ql
