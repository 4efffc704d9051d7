// The model files of people analysis: where they are found and which of them could be loaded.
// A missing or broken model disables only the analysis that needs it, with one log line.
#pragma once

#include <optional>
#include <string>

namespace ql::vision {

enum class ModelFile {
    faceDetector,        // BlazeFace, faces and six keypoints
    faceMesh,            // 468 face landmarks
    iris,                // eye contour and iris
    selfieSegmentation,  // person probability
    multiPose,           // MoveNet body joints
    faceAligner,         // dlib's five-point shape predictor
    faceDescriptor,      // dlib's ResNet face descriptor
    faceCascade,         // OpenCV's Haar cascade for frontal faces
    profileCascade,      // and for faces turned to one side
};

const char* fileName(ModelFile model);

/// The folder the models are read from: $QUILLARIUM_MODELS when set, else share/quillarium/models
/// under the installed program's prefix when it exists, else the source tree's resources/models.
std::string modelFolder();

/// Reads the models from `folder` from now on (empty: back to the default), dropping every model
/// loaded so far. For tests and for a user's own model folder.
void setModelFolder(const std::string& folder);

/// The model's path when its file exists; otherwise logs the missing file once and gives nothing.
std::optional<std::string> modelPath(ModelFile model);

/// Logs once that the model's file exists but could not be loaded.
void reportBrokenModel(ModelFile model, const std::string& why);

/// Bumped by setModelFolder: a loaded model of an older generation is loaded again.
int modelGeneration();

}  // namespace ql::vision
