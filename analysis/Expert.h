// The expert automatic editor: from a photo's analysis to a complete edit, without any model.
// It names the scene, picks a look, composes the edit, checks its own result at low size, and
// over a batch pulls the frames of one moment toward each other.
#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "AIAdvice.h"
#include "AutoTone.h"
#include "PhotoAnalysis.h"
#include "PhotoFacts.h"
#include "edit/Adjustments.h"
#include "render/ImageSource.h"
#include "render/Pipeline.h"

namespace ql {

enum class SceneKind {
    whiteInterior,
    interior,
    group,
    portrait,
    lowLight,
    outdoorSunny,
    outdoorShade,
    goldenHour
};

template <>
struct EnumNames<SceneKind> {
    static constexpr std::array<std::string_view, 8> names{
        "whiteInterior", "interior",     "group",        "portrait",
        "lowLight",      "outdoorSunny", "outdoorShade", "goldenHour"};
    /// Shown names; localisation keys.
    static constexpr std::array<std::string_view, 8> labels{
        "trong nhà sáng màu", "trong nhà",       "ảnh nhóm",       "chân dung",
        "thiếu sáng",         "ngoài trời nắng", "ngoài trời râm", "nắng chiều ấm"};
};

struct ExpertOptions {
    std::optional<PhotoStyle> fixedStyle;  // every photo gets it at full strength
    bool harmonize = true;
    bool straighten = false;
    bool useAI = false;
    std::optional<std::string> aiInstruction;
    bool skipHandEdited = false;
};

/// One photo's plan between the analysis and the finished edit.
struct ExpertPlan {
    std::string url;
    PhotoAnalysis analysis;
    PhotoInfo info;
    bool isRAW = false;
    SceneKind scene = SceneKind::interior;
    PhotoStyle style = PhotoStyle::natural;
    double strength = 1;
    AutoTone correction;
    /// An override of the white balance correction in the target field's units; absent means
    /// that finish computes it.
    std::optional<double> warmth;
    double tint = 0;  // read only with `warmth`
    std::vector<AIAdvice::MixItem> mixer;
    Adjustments start;  // the edit that existed before
    std::vector<std::string> notes;
};

namespace Expert {

/// The look a scene gets by default, and its strength.
struct Look {
    PhotoStyle style;
    double strength;
};
Look defaultLook(SceneKind scene);

/// `warmth`: negative means warmer than neutral (see WhiteBalanceCorrection::warmthError).
SceneKind scene(const ImageStats& stats, const PhotoInfo& info, double warmth);

/// Why a photo has no plan.
enum class NoPlan { handEdited, unreadable };

/// The plan of an opened and analysed photo. `saved` is its existing edit, if any.
std::variant<ExpertPlan, NoPlan> plan(ImageSource& source, const PhotoAnalysis& analysis,
                                      const std::optional<Adjustments>& saved,
                                      const ExpertOptions& options);

/// The complete edit of a plan, self-checked, with `expertNote` set.
Adjustments finish(const ExpertPlan& plan, ImageSource& source, const Pipeline& pipeline,
                   const ExpertOptions& options);

/// Renders the edit small, measures it against the plain photo's `original` measures and
/// corrects clipping, oversaturation and dark faces, up to three rounds. `notes` gains a line
/// when anything changed.
Adjustments review(Adjustments adjustments, const ImageStats& original,
                   const std::vector<FaceInfo>& faces, ImageSource& source,
                   const Pipeline& pipeline, std::vector<std::string>& notes);

/// The shots of one moment: by capture time, at most `gap` apart, one camera, at most 24.
std::vector<std::vector<std::string>> moments(const std::vector<std::string>& urls,
                                              std::chrono::seconds gap);

/// Pulls the exposures, camera-look warmths and looks of one moment's plans toward each other.
void harmonize(std::vector<ExpertPlan>& plans);

/// A number for a note, with a decimal comma in Vietnamese.
std::string noteNumber(const char* format, double value);

}  // namespace Expert

}  // namespace ql
