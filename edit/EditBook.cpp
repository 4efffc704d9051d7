#include "EditBook.h"

#include <QCoreApplication>
#include <QMetaObject>

#include "EditStore.h"

namespace ql {
namespace {

/// Runs `callback` later on the main thread; without an application there is no later, so now.
/// Always called after the lock is released, so the callback may use the book.
void notify(std::function<void()> callback) {
    if (!callback) return;
    if (auto* app = QCoreApplication::instance())
        QMetaObject::invokeMethod(app, std::move(callback), Qt::QueuedConnection);
    else
        callback();
}

/// Stores `value` under `key`, or removes the key when the value is neutral. True when the entry
/// changed; an absent entry differs from a present one.
template <class V>
bool put(std::map<std::string, V>& map, const std::string& key, const V& value, bool neutral) {
    const auto it = map.find(key);
    if (neutral) {
        if (it == map.end()) return false;
        map.erase(it);
        return true;
    }
    if (it != map.end() && it->second == value) return false;
    map.insert_or_assign(key, value);
    return true;
}

template <class V, class Neutral>
std::map<std::string, V> keyed(std::map<std::string, V> source, Neutral isNeutral) {
    std::map<std::string, V> out;
    for (auto& [path, value] : source)
        if (!isNeutral(value))
            out.insert_or_assign(EditStore::standardPath(path), std::move(value));
    return out;
}

}  // namespace

std::optional<Adjustments> EditBook::load(const std::string& path) const {
    const std::string key = EditStore::standardPath(path);
    std::lock_guard guard(lock_);
    const auto it = edits_.find(key);
    if (it == edits_.end()) return std::nullopt;
    return it->second;
}

void EditBook::save(const Adjustments& adjustments, const std::string& path) {
    const std::string key = EditStore::standardPath(path);
    std::function<void()> callback;
    {
        std::lock_guard guard(lock_);
        if (put(edits_, key, adjustments, adjustments == Adjustments::defaults()))
            callback = onChange_;
    }
    notify(std::move(callback));
}

std::vector<EditSnapshot> EditBook::snapshots(const std::string& path) const {
    const std::string key = EditStore::standardPath(path);
    std::lock_guard guard(lock_);
    const auto it = snaps_.find(key);
    return it == snaps_.end() ? std::vector<EditSnapshot>{} : it->second;
}

void EditBook::setSnapshots(std::vector<EditSnapshot> list, const std::string& path) {
    const std::string key = EditStore::standardPath(path);
    std::function<void()> callback;
    {
        std::lock_guard guard(lock_);
        if (list.empty())
            snaps_.erase(key);
        else
            snaps_.insert_or_assign(key, std::move(list));
        callback = onChange_;
    }
    notify(std::move(callback));
}

PhotoMeta EditBook::meta(const std::string& path) const {
    const std::string key = EditStore::standardPath(path);
    std::lock_guard guard(lock_);
    const auto it = metas_.find(key);
    return it == metas_.end() ? PhotoMeta{} : it->second;
}

void EditBook::setMeta(const PhotoMeta& meta, const std::string& path) {
    const std::string key = EditStore::standardPath(path);
    std::function<void()> callback;
    {
        std::lock_guard guard(lock_);
        if (put(metas_, key, meta, meta == PhotoMeta{})) callback = onChange_;
    }
    notify(std::move(callback));
}

void EditBook::importEarlierEdits(const std::vector<std::string>& paths) {
    std::vector<std::string> open;
    for (const auto& path : paths)
        open.push_back(EditStore::standardPath(path));
    {
        std::lock_guard guard(lock_);
        std::erase_if(open, [&](const std::string& key) { return edits_.contains(key); });
    }

    // The files are read without the lock; most photos have none.
    std::map<std::string, Adjustments> found;
    for (const auto& key : open)
        if (auto adjustments = EditStore::read(key);
            adjustments && *adjustments != Adjustments::defaults())
            found.insert_or_assign(key, std::move(*adjustments));
    if (found.empty()) return;

    std::vector<std::string> taken;
    std::function<void()> callback;
    {
        std::lock_guard guard(lock_);
        bool added = false;
        for (const auto& [key, adjustments] : found) {
            // An edit made while the files were read wins, and its file stays.
            const auto [it, inserted] = edits_.try_emplace(key, adjustments);
            added |= inserted;
            if (it->second == adjustments) taken.push_back(key);
        }
        if (added) callback = onChange_;
    }
    for (const auto& key : taken)
        EditStore::retire(key);
    notify(std::move(callback));
}

void EditBook::setOnChange(std::function<void()> callback) {
    std::lock_guard guard(lock_);
    onChange_ = std::move(callback);
}

std::map<std::string, Adjustments> EditBook::allEdits() const {
    std::lock_guard guard(lock_);
    return edits_;
}

std::map<std::string, std::vector<EditSnapshot>> EditBook::allSnapshots() const {
    std::lock_guard guard(lock_);
    return snaps_;
}

std::map<std::string, PhotoMeta> EditBook::allMetas() const {
    std::lock_guard guard(lock_);
    return metas_;
}

void EditBook::fill(std::map<std::string, Adjustments> edits,
                    std::map<std::string, std::vector<EditSnapshot>> snaps,
                    std::map<std::string, PhotoMeta> metas) {
    auto e =
        keyed(std::move(edits), [](const Adjustments& a) { return a == Adjustments::defaults(); });
    auto s = keyed(std::move(snaps), [](const auto& list) { return list.empty(); });
    auto m = keyed(std::move(metas), [](const PhotoMeta& meta) { return meta == PhotoMeta{}; });
    std::lock_guard guard(lock_);
    edits_ = std::move(e);
    snaps_ = std::move(s);
    metas_ = std::move(m);
}

}  // namespace ql
