#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "GPUImage/Private/PendingDrawing.h"
#include "Platform/Graphics/ProgramPrecompiler.h"

namespace tavrel {

class TavrelGPUImageInput;
class TavrelGPUImageOutput;

/// While it lives, frames that pass through nodes only tell with which programs they would be drawn: they show nothing,
/// and no block of an application is called. On the video-processing queue, inside one block.
class Rehearsal {
 public:
  enum class Step {
    noting,  ///< nothing is drawn
    making   ///< pictures that a filter keeps are drawn; what is pending is kept, to be drawn small
  };

  explicit Rehearsal(Step step);
  Rehearsal(const Rehearsal&) = delete;
  Rehearsal& operator=(const Rehearsal&) = delete;
  ~Rehearsal();

  /// The calling thread's, or nullptr.
  static Rehearsal* current();
  static bool isNoting() { return current() && current()->step_ == Step::noting; }

  /// Frames of `node` go to `target`, and to none of its own.
  void connect(const TavrelGPUImageOutput& node, std::shared_ptr<TavrelGPUImageInput> target) {
    node_ = &node;
    target_ = std::move(target);
  }
  /// Where frames of `node` go; nullptr if to its own targets.
  std::shared_ptr<TavrelGPUImageInput> targetOf(const TavrelGPUImageOutput& node) const {
    return node_ == &node ? target_ : nullptr;
  }

  /// A program that was never drawn with is about to be.
  void note(PrecompiledProgram program) { programs_.push_back(std::move(program)); }
  /// A pending framebuffer is to be drawn.
  void meet(PendingDrawing drawing);

  std::vector<PrecompiledProgram>& programs() { return programs_; }
  std::vector<PendingDrawing>& drawings() { return drawings_; }

 private:
  const Step step_;
  const TavrelGPUImageOutput* node_ = nullptr;
  std::shared_ptr<TavrelGPUImageInput> target_;
  std::vector<PrecompiledProgram> programs_;
  std::vector<PendingDrawing> drawings_;
};

}  // namespace tavrel
