#include "Models.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <set>

namespace ql::vision {

namespace {

namespace fs = std::filesystem;

struct State {
    std::mutex mutex;
    std::string folder;  // empty: the default
    int generation = 0;
    std::set<std::pair<int, int>> reported;  // (generation, model) already logged
};

State& state() {
    static State s;
    return s;
}

std::string defaultFolder() {
    if (const char* env = std::getenv("QUILLARIUM_MODELS"); env && *env) return env;
    std::error_code ec;
    const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
    if (!ec) {
        const fs::path installed = exe.parent_path().parent_path() / QL_INSTALL_MODELS_SUFFIX;
        if (fs::is_directory(installed, ec)) return installed.string();
    }
    return QL_SOURCE_MODELS_DIR;
}

// One line per model and folder: a batch of a thousand photos must not print a thousand.
void logOnce(ModelFile model, const std::string& line) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    if (!s.reported.insert({s.generation, int(model)}).second) return;
    std::fprintf(stderr, "quillarium: %s; people analysis that needs it is off\n", line.c_str());
}

}  // namespace

const char* fileName(ModelFile model) {
    static constexpr std::array<const char*, 9> names = {
        "face_detection_back_256.onnx",
        "facemesh_192.onnx",
        "iris_64.onnx",
        "selfie_segmentation_256.onnx",
        "movenet_multipose_256.onnx",
        "shape_predictor_5_face_landmarks.dat",
        "dlib_face_recognition_resnet_model_v1.dat",
        "haarcascade_frontalface_default.xml",
        "haarcascade_profileface.xml"};
    return names[size_t(model)];
}

std::string modelFolder() {
    State& s = state();
    {
        std::lock_guard lock(s.mutex);
        if (!s.folder.empty()) return s.folder;
    }
    return defaultFolder();
}

void setModelFolder(const std::string& folder) {
    State& s = state();
    std::lock_guard lock(s.mutex);
    s.folder = folder;
    ++s.generation;
}

int modelGeneration() {
    State& s = state();
    std::lock_guard lock(s.mutex);
    return s.generation;
}

std::optional<std::string> modelPath(ModelFile model) {
    const fs::path path = fs::path(modelFolder()) / fileName(model);
    std::error_code ec;
    if (fs::is_regular_file(path, ec)) return path.string();
    logOnce(model, "the model " + path.string() + " is missing");
    return std::nullopt;
}

void reportBrokenModel(ModelFile model, const std::string& why) {
    // Runtimes end their messages with line breaks; the log keeps one line per model.
    std::string reason;
    for (char c : why)
        reason += c == '\n' || c == '\r' ? ' ' : c;
    while (!reason.empty() && reason.back() == ' ')
        reason.pop_back();
    logOnce(model,
            std::string("the model ") + fileName(model) + " can't be loaded (" + reason + ")");
}

}  // namespace ql::vision
