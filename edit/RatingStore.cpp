#include "RatingStore.h"

#include <filesystem>

#include <QFile>
#include <QSaveFile>

#include "AppPaths.h"
#include "Codec.h"

namespace ql::RatingStore {
namespace {

// Tens of thousands of photos take a few megabytes; far more is no ratings file of ours.
constexpr qint64 largestFile = 256 << 20;

}  // namespace

std::string file() {
    return appDataFolder() + "/Ratings.json";
}

std::string backupFile() {
    return appDataFolder() + "/Ratings (sao luu).json";
}

std::map<std::string, int> load() {
    std::map<std::string, int> ratings;
    QFile f(QString::fromStdString(file()));
    if (!f.open(QIODevice::ReadOnly) || f.size() > largestFile) return ratings;
    const Json json = Json::parse(f.readAll().toStdString(), nullptr, false);
    if (!json.is_object()) return ratings;
    for (const auto& [path, value] : json.items()) {
        int stars = 0;
        if (Codec<int>::read(value, stars)) ratings.emplace(path, stars);
    }
    return ratings;
}

void save(const std::map<std::string, int>& ratings) {
    std::error_code ignored;
    std::filesystem::create_directories(appDataFolder(), ignored);
    std::string text;
    try {
        text = Json(ratings).dump();
    } catch (const Json::exception&) {
        return;  // a key that is no UTF-8
    }
    QSaveFile f(QString::fromStdString(file()));
    if (!f.open(QIODevice::WriteOnly)) return;
    f.write(text.data(), static_cast<qint64>(text.size()));
    f.commit();
}

void retire(const std::vector<std::string>& paths) {
    if (paths.empty()) return;
    std::error_code ignored;
    if (!std::filesystem::exists(backupFile(), ignored))
        std::filesystem::copy_file(file(), backupFile(), ignored);
    auto ratings = load();
    for (const auto& path : paths)
        ratings.erase(path);
    save(ratings);
}

}  // namespace ql::RatingStore
