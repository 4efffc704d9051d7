// A model loaded on first use and shared by every caller. Inference state is not thread-safe in
// either runtime, so callers take turns; a model that can't be loaded is tried again only after
// the model folder changes.
#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "Models.h"

namespace ql::vision {

template <class T>
class LoadedModel {
  public:
    using Loader = std::function<std::unique_ptr<T>(const std::string& path)>;

    LoadedModel(ModelFile file, Loader load) : file_(file), load_(std::move(load)) {}

    /// Runs `use` on the model under its lock; false when the model is unavailable.
    bool use(const std::function<void(T&)>& use) {
        std::lock_guard lock(mutex_);
        const int generation = modelGeneration();
        if (generation != generation_) {
            generation_ = generation;
            model_.reset();
            if (const auto path = modelPath(file_)) {
                try {
                    model_ = load_(*path);
                    if (!model_) reportBrokenModel(file_, "no network in the file");
                } catch (const std::exception& e) {
                    reportBrokenModel(file_, e.what());
                }
            }
        }
        if (!model_) return false;
        use(*model_);
        return true;
    }

    bool available() {
        return use([](T&) {});
    }

  private:
    ModelFile file_;
    Loader load_;
    std::mutex mutex_;
    int generation_ = -1;
    std::unique_ptr<T> model_;
};

}  // namespace ql::vision
