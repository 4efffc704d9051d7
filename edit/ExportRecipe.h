// What an export delivers: the file type and size, the stamp, and the recipes that turn one pass
// over a selection into several deliverables.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "Codec.h"
#include "Uuid.h"

namespace ql {

enum class ExportFormat { jpeg, tiff16, png };

template <>
struct EnumNames<ExportFormat> {
    static constexpr std::array<std::string_view, 3> names{"jpeg", "tiff16", "png"};
    static constexpr std::array<std::string_view, 3> labels{"JPEG", "TIFF 16-bit", "PNG"};
};

/// The file extension of a format, without the dot.
std::string_view fileExtension(ExportFormat format);

struct ExportOptions {
    ExportFormat format = ExportFormat::jpeg;
    double quality = 92;  // JPEG only, 0…100
    bool limitSize = false;
    double longEdge = 2048;  // read only with limitSize

    bool operator==(const ExportOptions&) const = default;
    static auto fields() {
        using O = ExportOptions;
        return std::tuple{
            requiredField("format", &O::format), requiredField("quality", &O::quality),
            requiredField("limitSize", &O::limitSize), requiredField("longEdge", &O::longEdge)};
    }
};

struct Watermark {
    enum class Corner { bottomRight, bottomLeft, topRight, topLeft, center };

    std::string text;                      // stamped only when no logo loads
    std::optional<std::string> imagePath;  // a logo file
    Corner corner = Corner::bottomRight;
    double size = 0.12;  // logo width as a fraction of the long edge
    double opacity = 0.8;

    bool operator==(const Watermark&) const = default;
    static auto fields() {
        using W = Watermark;
        return std::tuple{requiredField("text", &W::text), field("imagePath", &W::imagePath),
                          requiredField("corner", &W::corner), requiredField("size", &W::size),
                          requiredField("opacity", &W::opacity)};
    }
};

template <>
struct EnumNames<Watermark::Corner> {
    static constexpr std::array<std::string_view, 5> names{"bottomRight", "bottomLeft", "topRight",
                                                           "topLeft", "center"};
    static constexpr std::array<std::string_view, 5> labels{
        "Góc dưới phải", "Góc dưới trái", "Góc trên phải", "Góc trên trái", "Giữa ảnh"};
};

struct ExportRecipe {
    Uuid id = Uuid::random();
    std::string name;
    bool enabled = true;
    ExportOptions options;
    std::string subfolder;  // blank: the destination itself
    std::string naming = "{ten}";
    bool useWatermark = false;
    Watermark watermark;
    std::string copyright;  // into the metadata, not onto the picture

    bool operator==(const ExportRecipe&) const = default;
    static auto fields() {
        using R = ExportRecipe;
        return std::tuple{requiredField("id", &R::id),
                          requiredField("name", &R::name),
                          requiredField("enabled", &R::enabled),
                          requiredField("options", &R::options),
                          requiredField("subfolder", &R::subfolder),
                          requiredField("naming", &R::naming),
                          requiredField("useWatermark", &R::useWatermark),
                          requiredField("watermark", &R::watermark),
                          requiredField("copyright", &R::copyright)};
    }

    /// The three shipped recipes (archive, web, messaging), each with a fresh id.
    static std::vector<ExportRecipe> defaults();
    /// What the plus button adds.
    static ExportRecipe added();

    /// The file name, without extension, for the photo at `sourcePath`: the tokens {ten} (base
    /// name), {so} (number, three digits), {ngay} (capture date yyyy-MM-dd, or nothing) and
    /// {du-an} (project) replaced in that order, each of / : \ ? * " < > | made a hyphen, blanks
    /// trimmed; the base name when nothing remains.
    std::string fileName(const std::string& sourcePath, int number,
                         std::optional<std::chrono::system_clock::time_point> date,
                         const std::string& project) const;
};

/// The list of recipes kept in one JSON file. Loading is all or nothing: a missing or unreadable
/// file, any recipe with a missing or broken key, or an empty list gives the defaults.
namespace RecipeStore {
/// "ExportRecipes.json" in the application's data folder.
std::string defaultPath();
std::vector<ExportRecipe> load(const std::string& path = defaultPath());
/// Writes atomically; failures are swallowed, the list stays in memory.
void save(const std::vector<ExportRecipe>& recipes, const std::string& path = defaultPath());
/// The list as the store writes it: compact JSON.
std::string encode(const std::vector<ExportRecipe>& recipes);
/// Nullopt unless every recipe decodes whole and there is at least one.
std::optional<std::vector<ExportRecipe>> decode(std::string_view text);
}  // namespace RecipeStore

}  // namespace ql
