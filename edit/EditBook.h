// Every edit, snapshot list and metadata record of one tab's photos, held in memory. The book
// reaches the disk only inside a project file; the older per-photo files are only read, by
// importEarlierEdits.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Adjustments.h"
#include "EditSnapshot.h"
#include "PhotoMeta.h"

namespace ql {

/// Callable from any thread: batch jobs and exports read and write it off the main thread. Photos
/// are keyed by standard path (EditStore::standardPath), so any spelling of a path finds the same
/// entry. No default edit, empty metadata or empty snapshot list is ever kept.
class EditBook {
  public:
    /// The photo's edit; nothing when it has none.
    std::optional<Adjustments> load(const std::string& path) const;
    /// Stores the edit; the default removes it. Fires onChange when the entry changed.
    void save(const Adjustments& adjustments, const std::string& path);

    /// The photo's snapshots; empty when none.
    std::vector<EditSnapshot> snapshots(const std::string& path) const;
    /// Replaces the list (an empty one removes it), then fires onChange.
    void setSnapshots(std::vector<EditSnapshot> list, const std::string& path);

    /// The photo's metadata, or the empty record.
    PhotoMeta meta(const std::string& path) const;
    /// As save, for metadata.
    void setMeta(const PhotoMeta& meta, const std::string& path);

    /// Takes in the older edit files of the photos that have no edit here, then moves those files
    /// aside. A file that is missing or does not decode is passed over and left where it is; an
    /// edit made here meanwhile wins over the file, which then stays too. Fires onChange when
    /// anything was taken in.
    void importEarlierEdits(const std::vector<std::string>& paths);

    /// Runs, queued on the main thread and never under the book's lock, after a change.
    void setOnChange(std::function<void()> callback);

    std::map<std::string, Adjustments> allEdits() const;
    std::map<std::string, std::vector<EditSnapshot>> allSnapshots() const;
    std::map<std::string, PhotoMeta> allMetas() const;

    /// Replaces the whole content, as read from a project; fires nothing.
    void fill(std::map<std::string, Adjustments> edits,
              std::map<std::string, std::vector<EditSnapshot>> snaps,
              std::map<std::string, PhotoMeta> metas);

  private:
    mutable std::mutex lock_;
    std::map<std::string, Adjustments> edits_;
    std::function<void()> onChange_;
    std::map<std::string, std::vector<EditSnapshot>> snaps_;
    std::map<std::string, PhotoMeta> metas_;
};

}  // namespace ql
