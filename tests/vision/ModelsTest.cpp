#include "vision/Models.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "vision/LoadedModel.h"

namespace ql::vision {
namespace {

namespace fs = std::filesystem;

// Puts the default folder back, whatever a test did.
struct ModelFolderGuard {
    ~ModelFolderGuard() { setModelFolder({}); }
};

TEST(Models, TheShippedModelsAreFoundFromTheBuildTree) {
    for (ModelFile m :
         {ModelFile::faceDetector, ModelFile::faceMesh, ModelFile::iris,
          ModelFile::selfieSegmentation, ModelFile::multiPose, ModelFile::faceAligner,
          ModelFile::faceDescriptor, ModelFile::faceCascade, ModelFile::profileCascade}) {
        const auto path = modelPath(m);
        ASSERT_TRUE(path) << fileName(m);
        EXPECT_GT(fs::file_size(*path), 100000u) << *path;
    }
}

TEST(Models, AMissingOrBrokenModelIsUnavailableUntilTheFolderChanges) {
    ModelFolderGuard guard;
    const fs::path folder = fs::temp_directory_path() / "ql_models_test";
    fs::remove_all(folder);
    fs::create_directories(folder);
    setModelFolder(folder.string());

    int loads = 0;
    LoadedModel<int> model(ModelFile::iris, [&](const std::string& path) {
        ++loads;
        std::ifstream in(path);
        int v = 0;
        if (!(in >> v)) throw std::runtime_error("not a number");
        return std::make_unique<int>(v);
    });
    EXPECT_FALSE(model.available());  // missing
    EXPECT_EQ(loads, 0);

    std::ofstream(folder / fileName(ModelFile::iris)) << "garbage";
    EXPECT_FALSE(model.available());  // still the old verdict: no file access per call
    setModelFolder(folder.string());
    EXPECT_FALSE(model.available());  // broken
    EXPECT_EQ(loads, 1);
    EXPECT_FALSE(model.available());
    EXPECT_EQ(loads, 1);

    std::ofstream(folder / fileName(ModelFile::iris)) << "42";
    setModelFolder(folder.string());
    int seen = 0;
    EXPECT_TRUE(model.use([&](int& v) { seen = v; }));
    EXPECT_EQ(seen, 42);
    EXPECT_TRUE(model.available());
    EXPECT_EQ(loads, 2);  // loaded once, then shared
    fs::remove_all(folder);
}

}  // namespace
}  // namespace ql::vision
