#include "ExportRecipe.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <cstdio>
#include <ctime>
#include <string_view>

#include "AppPaths.h"
#include "Blanks.h"
#include "PathNames.h"

namespace ql {

namespace {

void replaceAll(std::string& text, std::string_view token, std::string_view by) {
    for (size_t at = text.find(token); at != std::string::npos;
         at = text.find(token, at + by.size()))
        text.replace(at, token.size(), by);
}

ExportRecipe recipe(const char* name, bool enabled, double quality, bool limitSize, double longEdge,
                    const char* subfolder, const char* naming, bool useWatermark) {
    ExportRecipe r;
    r.name = name;
    r.enabled = enabled;
    r.options = {ExportFormat::jpeg, quality, limitSize, longEdge};
    r.subfolder = subfolder;
    r.naming = naming;
    r.useWatermark = useWatermark;
    return r;
}

}  // namespace

std::string_view fileExtension(ExportFormat format) {
    switch (format) {
        case ExportFormat::tiff16:
            return "tif";
        case ExportFormat::png:
            return "png";
        case ExportFormat::jpeg:
            break;
    }
    return "jpg";
}

std::vector<ExportRecipe> ExportRecipe::defaults() {
    return {recipe("Lưu trữ (cỡ gốc)", true, 95, false, 2048, "Luu tru", "{ten}", false),
            recipe("Facebook / web", true, 85, true, 2048, "Facebook", "{du-an}_{so}", true),
            recipe("Zalo / tin nhắn", false, 80, true, 1600, "Zalo", "{du-an}_{so}", false)};
}

ExportRecipe ExportRecipe::added() {
    return recipe("Công thức mới", true, 92, false, 2048, "Moi", "{ten}", false);
}

std::string ExportRecipe::fileName(const std::string& sourcePath, int number,
                                   std::optional<std::chrono::system_clock::time_point> date,
                                   const std::string& project) const {
    const std::string base = baseName(sourcePath);
    std::string name = naming.empty() ? "{ten}" : naming;
    replaceAll(name, "{ten}", base);
    char digits[16];
    std::snprintf(digits, sizeof digits, "%03d", number);
    replaceAll(name, "{so}", digits);
    std::string day;
    if (date) {
        const std::time_t t = std::chrono::system_clock::to_time_t(*date);
        std::tm local{};
        if (localtime_r(&t, &local)) {
            char text[16];
            std::strftime(text, sizeof text, "%Y-%m-%d", &local);
            day = text;
        }
    }
    replaceAll(name, "{ngay}", day);
    replaceAll(name, "{du-an}", project);
    for (char& c : name)
        if (std::string_view(R"(/:\?*"<>|)").find(c) != std::string_view::npos) c = '-';
    name = std::string(trimmedBlanks(name));
    return name.empty() ? base : name;
}

namespace RecipeStore {

std::string defaultPath() {
    return appDataFolder() + "/ExportRecipes.json";
}

std::string encode(const std::vector<ExportRecipe>& recipes) {
    OrderedJson list = OrderedJson::array();
    for (const auto& r : recipes)
        list.push_back(Codec<ExportRecipe>::write(r));
    return list.dump();
}

std::optional<std::vector<ExportRecipe>> decode(std::string_view text) {
    const Json json = Json::parse(text, nullptr, false);
    if (!json.is_array() || json.empty()) return std::nullopt;
    std::vector<ExportRecipe> recipes;
    for (const auto& element : json) {
        ExportRecipe r;
        if (!Codec<ExportRecipe>::read(element, r)) return std::nullopt;
        recipes.push_back(std::move(r));
    }
    return recipes;
}

std::vector<ExportRecipe> load(const std::string& path) {
    QFile file(QString::fromStdString(path));
    // A recipe list is a few kilobytes; anything huge is not ours.
    if (!file.open(QIODevice::ReadOnly) || file.size() > (16 << 20))
        return ExportRecipe::defaults();
    const QByteArray bytes = file.readAll();
    auto recipes = decode(std::string_view(bytes.constData(), size_t(bytes.size())));
    return recipes ? std::move(*recipes) : ExportRecipe::defaults();
}

void save(const std::vector<ExportRecipe>& recipes, const std::string& path) {
    const QString target = QString::fromStdString(path);
    QDir().mkpath(QFileInfo(target).absolutePath());
    QSaveFile file(target);
    if (!file.open(QIODevice::WriteOnly)) return;
    const std::string text = encode(recipes);
    file.write(text.data(), qint64(text.size()));
    file.commit();
}

}  // namespace RecipeStore

}  // namespace ql
