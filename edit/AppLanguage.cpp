#include "AppLanguage.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

#include <QFile>
#include <QSettings>

#include "StringsCatalog.h"

namespace ql {
namespace {

std::atomic<AppLanguage> currentLanguage{AppLanguage::vi};

const StringsCatalog& englishCatalog() {
    static const StringsCatalog catalog = [] {
        QFile file(QStringLiteral(":/quillarium/Localizable.strings"));
        if (!file.open(QIODevice::ReadOnly)) {
            std::fprintf(stderr, "quillarium: the English string catalogue is missing\n");
            return StringsCatalog{};
        }
        const QByteArray text = file.readAll();
        std::string error;
        auto parsed =
            StringsCatalog::parse(std::string_view(text.constData(), text.size()), &error);
        if (!parsed) {
            std::fprintf(stderr, "quillarium: the English string catalogue is damaged (%s)\n",
                         error.c_str());
            return StringsCatalog{};
        }
        return std::move(*parsed);
    }();
    return catalog;
}

std::optional<AppLanguage> named(const std::string& text) {
    if (text.rfind("en", 0) == 0) return AppLanguage::en;
    if (text.rfind("vi", 0) == 0) return AppLanguage::vi;
    return std::nullopt;
}

}  // namespace

namespace language {

AppLanguage current() {
    return currentLanguage.load(std::memory_order_relaxed);
}

void set(AppLanguage language) {
    currentLanguage.store(language, std::memory_order_relaxed);
}

AppLanguage choose(const std::optional<std::string>& setting,
                   const std::function<std::optional<std::string>(const char*)>& environment) {
    if (setting)
        if (const auto chosen = named(*setting)) return *chosen;
    for (const char* variable : {"LANGUAGE", "LC_ALL", "LC_MESSAGES", "LANG"}) {
        const auto value = environment(variable);
        if (!value || value->empty()) continue;
        // LANGUAGE is a priority list; its first entry is the preferred language.
        const std::string first = value->substr(0, value->find(':'));
        return first.rfind("en", 0) == 0 ? AppLanguage::en : AppLanguage::vi;
    }
    return AppLanguage::vi;
}

void startInChosenLanguage() {
    QSettings settings(QStringLiteral("Quillarium"), QStringLiteral("Quillarium"));
    std::optional<std::string> setting;
    const QVariant stored = settings.value(QString::fromLatin1(settingKey));
    if (stored.isValid()) setting = stored.toString().toStdString();
    set(choose(setting, [](const char* name) -> std::optional<std::string> {
        const char* value = std::getenv(name);
        if (!value) return std::nullopt;
        return std::string(value);
    }));
}

}  // namespace language

std::string localized(std::string_view key, AppLanguage language) {
    if (language == AppLanguage::en)
        if (const std::string* english = englishCatalog().find(key)) return *english;
    return std::string(key);
}

std::string localized(std::string_view key) {
    return localized(key, language::current());
}

}  // namespace ql
