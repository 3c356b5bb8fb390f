#include <algorithm>
#include <utility>

#include "GPUImage/Filters/Private/FilterImplementation.h"
#include "GPUImage/Private/FramebufferContents.h"
#include "GPUImage/Private/Rehearsal.h"
#include "GPUImage/Private/StageProgram.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "GPUImage/TavrelGPUImageFramebufferCache.h"
#include "Platform/Graphics/ProgramPrecompiler.h"

namespace tavrel {
namespace {

/// Stands where the next filter will, and keeps what comes as it is.
class NextFilter : public TavrelGPUImageInput {
 public:
  TavrelGPUImageFramebufferLease take() { return std::move(frame_); }

  void newFrameReadyAtTime(MediaTime, Index) override {}
  void setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer, Index) override {
    if (newInputFramebuffer) FramebufferContents::accept(*newInputFramebuffer);
    frame_ = TavrelGPUImageFramebufferLease(std::move(newInputFramebuffer));
  }

 private:
  TavrelGPUImageFramebufferLease frame_;
};

TavrelGPUImageFramebufferLease framebufferOf(Size size) {
  return TavrelGPUImageFramebufferLease::adopt(
      TavrelGPUImageContext::sharedFramebufferCache()->fetchFramebufferForSize(size, {}, false));
}

}  // namespace

std::size_t TavrelGPUImageFilter::fusedProgramCount() { return StageProgram::count(); }

bool TavrelGPUImageFilter::canRehearse() const {
  const Implementation& state = *implementation_;
  return state.fusion.knows(*this) && !state.usingNextFrameForImageCapture && !state.preventRendering;
}

std::shared_ptr<void> TavrelGPUImageFilter::keepInputs() {
  struct Kept {
    Implementation& state;
    TavrelGPUImageFramebufferLease first;
    ~Kept() { state.firstInputFramebuffer = std::move(first); }
  };
  // An aggregate: NOLINTNEXTLINE(modernize-make-shared)
  return std::shared_ptr<Kept>(new Kept{*implementation_, std::move(implementation_->firstInputFramebuffer)});
}

void TavrelGPUImageFilter::rehearse(const Chain& filters, Size frameSize, const std::function<void()>& sendPictures) {
  const auto next = std::make_shared<NextFilter>();
  if (sendPictures) sendPictures();
  TavrelGPUImageFramebufferLease frame = framebufferOf(frameSize);
  for (const auto& filter : filters) {
    const Size size = frame.get()->size();
    if (!filter->canRehearse()) {
      // What it makes of a frame is its own affair.
      FramebufferContents::draw(*frame.get());
      frame = framebufferOf(size);
      continue;
    }
    const std::shared_ptr<void> inputs = filter->keepInputs();
    Rehearsal::current()->connect(*filter, next);
    filter->setInputFramebuffer(frame.get(), 0);
    frame.release();
    filter->setInputSize(size, 0);
    filter->newFrameReadyAtTime(MediaTime::zero(), 0);
    frame = next->take();
    if (!frame) return;
  }
  FramebufferContents::draw(*frame.get());
}

std::vector<PrecompiledProgram> TavrelGPUImageFilter::unknownPrograms(const Chain& filters, Size frameSize,
                                                                      const std::function<void()>& sendPictures) {
  TavrelGPUImageContext::useImageProcessingContext();
  std::vector<PrecompiledProgram> programs;
  {
    Rehearsal rehearsal(Rehearsal::Step::noting);
    rehearse(filters, frameSize, sendPictures);
    programs = std::move(rehearsal.programs());
  }
  // They have not been drawn, and filters that are in use show them.
  const auto isInUse = [](const auto& filter) { return !filter->targets().empty(); };
  if (sendPictures && std::ranges::any_of(filters, isInUse)) sendPictures();
  return programs;
}

bool TavrelGPUImageFilter::isChainPrepared(const Chain& filters, Size frameSize,
                                           const std::function<void()>& sendPictures) {
  return onVideoProcessingQueue([&] { return unknownPrograms(filters, frameSize, sendPictures).empty(); });
}

void TavrelGPUImageFilter::prepareChain(const Chain& filters, Size frameSize, const std::function<void()>& sendPictures,
                                        bool areFramesComing) {
  std::vector<PrecompiledProgram> programs;
  PrecompiledProgram::Texture target;
  bool isPrecompiling = areFramesComing;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    programs = unknownPrograms(filters, frameSize, sendPictures);
    isPrecompiling = areFramesComing && ProgramPrecompiler::isPossible();
    FramebufferContents::describe(*framebufferOf({16, 16}).get(), target);
  });
  if (programs.empty()) return;
  if (isPrecompiling) {
    ProgramPrecompiler::compile(programs, target.pixels);
  }
  std::vector<PendingDrawing> drawings;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    TavrelGPUImageContext::useImageProcessingContext();
    Rehearsal rehearsal(Rehearsal::Step::making);
    rehearse(filters, frameSize, sendPictures);
    drawings = std::move(rehearsal.drawings());
  });
  // One by one, so that frames pass between them.
  while (!drawings.empty()) {
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      TavrelGPUImageContext::useImageProcessingContext();
      const TavrelGPUImageFramebufferLease scratch = framebufferOf({16, 16});
      const auto program = TavrelGPUImageContext::sharedImageProcessingContext()->currentShaderProgram();
      scratch.get()->activateFramebuffer();
      drawings.back().draw();
      glFinish();
      if (program) TavrelGPUImageContext::setActiveShaderProgram(program);
      drawings.pop_back();
    });
  }
}

}  // namespace tavrel
