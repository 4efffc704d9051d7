// The export loops of the library: every selected photo through one set of options, or through
// each enabled recipe. They run on a worker thread and report to a BatchJob.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "BatchJob.h"
#include "edit/Adjustments.h"
#include "edit/ExportRecipe.h"
#include "edit/PhotoMeta.h"

namespace ql {

/// Where a batch finds what to bake into each photo: the editor's live record for the open photo,
/// else the saved edit, else the default record; and the photographer's metadata.
struct EditSource {
    std::function<Adjustments(const std::string& url)> adjustments;
    std::function<std::optional<PhotoMeta>(const std::string& url)> meta;
};

/// "Xuất <n> ảnh": the job a batch export reports to.
QString exportJobTitle(int count);

/// `path` itself when nothing is there, else `stem-2.ext`, `stem-3.ext`, … : nothing is
/// overwritten.
std::string freePath(const std::string& folder, const std::string& stem,
                     std::string_view extension);

/// Each photo through each enabled recipe, into `destination` or its subfolder. Photos are
/// numbered by their position in `urls` from 1, the same number in every recipe. A failed recipe
/// fails its photo but the next recipe still runs; a photo that can't be opened fails whole. The
/// cancel flag is read before each photo. `project` names the {du-an} token.
void exportWithRecipes(const std::vector<std::string>& urls,
                       const std::vector<ExportRecipe>& recipes, const std::string& destination,
                       const std::string& project, const EditSource& edits, BatchJob& job);

/// Each photo with one set of options, no stamp and no copyright, named after its source.
void batchExport(const std::vector<std::string>& urls, const std::string& destination,
                 const ExportOptions& options, const EditSource& edits, BatchJob& job);

}  // namespace ql
