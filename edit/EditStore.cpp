#include "EditStore.h"

#include <filesystem>

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "AppPaths.h"

namespace ql::EditStore {
namespace {

namespace fs = std::filesystem;

// An edit is a few kilobytes, tens with many brush strokes; a larger file is not one of ours.
constexpr qint64 largestFile = 64 << 20;

std::string createdFolder(const std::string& name) {
    const std::string path = appDataFolder() + "/" + name;
    std::error_code ignored;
    fs::create_directories(path, ignored);
    return path;
}

}  // namespace

std::string standardPath(const std::string& path) {
    return QDir::cleanPath(QFileInfo(QString::fromStdString(path)).absoluteFilePath())
        .toStdString();
}

std::string folder() {
    return createdFolder("Edits");
}

std::string file(const std::string& path) {
    const QByteArray hash = QCryptographicHash::hash(QByteArray::fromStdString(standardPath(path)),
                                                     QCryptographicHash::Sha256);
    return folder() + "/" + hash.toHex().toStdString() + ".json";
}

std::string retiredFolder() {
    return createdFolder("Edits (da chuyen vao du an)");
}

std::optional<Adjustments> read(const std::string& path) {
    QFile f(QString::fromStdString(file(path)));
    if (!f.open(QIODevice::ReadOnly) || f.size() > largestFile) return std::nullopt;
    return Adjustments::decode(f.readAll().toStdString());
}

void retire(const std::string& path) {
    const fs::path from = file(path);
    std::error_code ignored;
    if (!fs::is_regular_file(from, ignored)) return;
    const fs::path to = fs::path(retiredFolder()) / from.filename();
    fs::remove(to, ignored);
    fs::rename(from, to, ignored);
}

}  // namespace ql::EditStore
