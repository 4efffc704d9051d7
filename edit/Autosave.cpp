#include "Autosave.h"

#include <filesystem>

#include <QSaveFile>

#include "AppPaths.h"

namespace ql::Autosave {

std::string folder() {
    const std::string path = appDataFolder() + "/Autosave";
    std::error_code ignored;
    std::filesystem::create_directories(path, ignored);
    return path;
}

std::string fileFor(const Uuid& workspaceId) {
    return folder() + "/" + workspaceId.string() + ".qlproj";  // string() is upper-case
}

void write(const Uuid& workspaceId, const std::string& projectJson) {
    QSaveFile f(QString::fromStdString(fileFor(workspaceId)));
    if (!f.open(QIODevice::WriteOnly)) return;
    f.write(projectJson.data(), static_cast<qint64>(projectJson.size()));
    f.commit();
}

void remove(const Uuid& workspaceId) {
    std::error_code ignored;
    std::filesystem::remove(fileFor(workspaceId), ignored);
}

}  // namespace ql::Autosave
