// A model folder holding only some of the shipped models, for tests of what works without the rest.
#pragma once

#include <filesystem>
#include <vector>

#include "tests/support/Fixtures.h"
#include "vision/Models.h"

namespace ql::vision {

struct PartialModels {
    testing::TempDir dir;
    explicit PartialModels(const std::vector<ModelFile>& present) {
        for (ModelFile m : present)
            std::filesystem::create_symlink(std::filesystem::path(modelFolder()) / fileName(m),
                                            dir.path() / fileName(m));
        setModelFolder(dir.path().string());
    }
    ~PartialModels() { setModelFolder({}); }
};

}  // namespace ql::vision
