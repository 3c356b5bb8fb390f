#pragma once

#include <memory>
#include <utility>

#include "Platform/Graphics/Private/GLSharegroup.h"
#include "Platform/Graphics/TextureCache.h"

namespace tavrel {

/// What pixel buffers need of a texture cache: its sharegroup and a way onto its context's thread.
class TextureCacheCore {
 public:
  TextureCacheCore(std::shared_ptr<GLSharegroup> sharegroup, TextureCache::Executor executor)
      : sharegroup_(std::move(sharegroup)), executor_(std::move(executor)) {}

  const std::shared_ptr<GLSharegroup>& sharegroup() const { return sharegroup_; }

  /// Runs `work` with a context of the sharegroup current: on the calling thread if there is one, else through the
  /// executor, else (when the executor's context is gone) with the sharegroup's own. False when it could not run.
  bool run(const GLSharegroup::Work& work) const {
    if (sharegroup_->isCurrent()) return sharegroup_->perform(work);
    bool done = false;
    if (executor_) executor_([&] { done = sharegroup_->perform(work); });
    return done || sharegroup_->perform(work);
  }

 private:
  std::shared_ptr<GLSharegroup> sharegroup_;
  TextureCache::Executor executor_;
};

}  // namespace tavrel
