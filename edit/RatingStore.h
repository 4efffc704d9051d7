// The older ratings file of every folder: a flat JSON object from standard path to star count.
// Only retiring its entries writes it now.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace ql::RatingStore {

/// <data>/Ratings.json.
std::string file();

/// <data>/Ratings (sao luu).json, the copy made before the first entry was removed.
std::string backupFile();

/// The ratings; a missing or damaged file reads as none, an entry that is no whole number is
/// skipped.
std::map<std::string, int> load();

/// Writes the ratings atomically; errors are swallowed.
void save(const std::map<std::string, int>& ratings);

/// Drops the entries of `paths` (standard paths), once a project holds their ratings. The first
/// call copies the file to the backup, which is never refreshed. Nothing happens for no paths.
void retire(const std::vector<std::string>& paths);

}  // namespace ql::RatingStore
