// A PDF proof sheet of a selection: a title page, then the pictures twelve to a page with their
// numbers, names and ratings, for a client to choose from.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "imaging/Image.h"

namespace ql::ContactSheet {

/// Writes an A4 landscape PDF (842 × 595 points) to `path`, atomically: a failure leaves no
/// file, and an old one at `path` as it was. The title page shows the logo at `logoPath` when
/// it loads, the title and a line with the picture count and today's date; then come grid pages
/// of 4 × 3 cells, each picture fitted and centred in its cell over the caption "n. name" and
/// its rating in stars. `images` sets the count; `names` and `ratings` are read where present.
/// An empty image is a missing picture: its cell stays empty, its caption is drawn. Needs a
/// QGuiApplication. Returns false, with the reason in `error` when given, on any failure.
bool write(const std::string& path, const std::string& title, const std::vector<std::string>& names,
           const std::vector<img::Image>& images, const std::vector<int>& ratings,
           const std::optional<std::string>& logoPath, std::string* error = nullptr);

}  // namespace ql::ContactSheet
