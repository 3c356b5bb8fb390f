#include "GPUImage/Filters/TavrelGPUImageTwoInputFilter.h"

#include <utility>

#include "GPUImage/Filters/Private/FilterImplementation.h"
#include "GPUImage/Private/FramebufferContents.h"

namespace tavrel {

const char* const kTavrelGPUImageTwoInputTextureVertexShaderString =
    "attribute vec4 position; attribute vec4 inputTextureCoordinate; attribute vec4 inputTextureCoordinate2; "
    "varying vec2 textureCoordinate; varying vec2 textureCoordinate2; void main() { gl_Position = position; "
    "textureCoordinate = inputTextureCoordinate.xy; textureCoordinate2 = inputTextureCoordinate2.xy; }";

namespace {

/// What has come.
struct Arrivals {
  MediaTime firstFrameTime = {};
  MediaTime secondFrameTime = {};
  bool hasSetFirstTexture = false;
  bool hasReceivedFirstFrame = false;
  bool hasReceivedSecondFrame = false;
};

}  // namespace

struct TavrelGPUImageTwoInputFilter::Implementation : Arrivals {
  TavrelGPUImageFramebufferLease secondInputFramebuffer;
  InputScaling scaling;
  const InputScaling::Scaled* scaledSecondInput = nullptr;
  TavrelGPUImageRotationMode inputRotation2 = kTavrelGPUImageNoRotation;
  bool firstFrameCheckDisabled = false;
  bool secondFrameCheckDisabled = false;
  // Without effect.
  bool firstFrameWasVideo = false;
  bool secondFrameWasVideo = false;

  bool keepsFirstInput() const { return firstFrameTime.isIndefinite() || firstFrameCheckDisabled; }
};

TavrelGPUImageTwoInputFilter::TavrelGPUImageTwoInputFilter(std::string_view fragmentShaderString)
    : TavrelGPUImageTwoInputFilter(kTavrelGPUImageTwoInputTextureVertexShaderString, fragmentShaderString) {}

TavrelGPUImageTwoInputFilter::TavrelGPUImageTwoInputFilter(std::string_view vertexShaderString,
                                                           std::string_view fragmentShaderString)
    : TavrelGPUImageFilter(vertexShaderString, fragmentShaderString,
                           {"position", "inputTextureCoordinate", "inputTextureCoordinate2"}),
      implementation_(std::make_unique<Implementation>()) {
  allowFusion();
}

TavrelGPUImageTwoInputFilter::~TavrelGPUImageTwoInputFilter() = default;

void TavrelGPUImageTwoInputFilter::disableFirstFrameCheck() {
  onVideoProcessingQueue([this] { implementation_->firstFrameCheckDisabled = true; });
}

void TavrelGPUImageTwoInputFilter::disableSecondFrameCheck() {
  onVideoProcessingQueue([this] { implementation_->secondFrameCheckDisabled = true; });
}

Index TavrelGPUImageTwoInputFilter::nextAvailableTextureIndex() const {
  return onVideoProcessingQueue([this]() -> Index { return implementation_->hasSetFirstTexture ? 1 : 0; });
}

Size TavrelGPUImageTwoInputFilter::rotatedSize(Size size, Index forIndex) const {
  if (forIndex == 0) return TavrelGPUImageFilter::rotatedSize(size, forIndex);
  return onVideoProcessingQueue([&] { return TavrelGPUImageRotatedSize(size, implementation_->inputRotation2); });
}

void TavrelGPUImageTwoInputFilter::setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer,
                                                       Index atIndex) {
  onVideoProcessingQueue([&] {
    if (atIndex == 0) {
      TavrelGPUImageFilter::setInputFramebuffer(std::move(newInputFramebuffer), atIndex);
      implementation_->hasSetFirstTexture = true;
    } else {
      implementation_->secondInputFramebuffer = TavrelGPUImageFramebufferLease(std::move(newInputFramebuffer));
    }
  });
}

void TavrelGPUImageTwoInputFilter::setInputSize(Size newSize, Index atIndex) {
  if (atIndex != 0) return;
  onVideoProcessingQueue([&] {
    TavrelGPUImageFilter::setInputSize(newSize, atIndex);
    if (isZero(newSize)) implementation_->hasSetFirstTexture = false;
  });
}

void TavrelGPUImageTwoInputFilter::setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index atIndex) {
  if (atIndex == 0) return TavrelGPUImageFilter::setInputRotation(newInputRotation, atIndex);
  onVideoProcessingQueue([&] { implementation_->inputRotation2 = newInputRotation; });
}

void TavrelGPUImageTwoInputFilter::newFrameReadyAtTime(MediaTime frameTime, Index atIndex) {
  Implementation& state = *implementation_;
  // An update that comes back around a loop ends here.
  if (state.hasReceivedFirstFrame && state.hasReceivedSecondFrame) return;

  bool isOppositeStill = false;
  if (atIndex == 0) {
    state.hasReceivedFirstFrame = true;
    state.firstFrameTime = frameTime;
    if (state.secondFrameCheckDisabled) state.hasReceivedSecondFrame = true;
    isOppositeStill = !frameTime.isIndefinite() && state.secondFrameTime.isIndefinite();
  } else {
    state.hasReceivedSecondFrame = true;
    state.secondFrameTime = frameTime;
    if (state.firstFrameCheckDisabled) state.hasReceivedFirstFrame = true;
    isOppositeStill = !frameTime.isIndefinite() && state.firstFrameTime.isIndefinite();
  }
  if (!(state.hasReceivedFirstFrame && state.hasReceivedSecondFrame) && !isOppositeStill) {
    // Until the other one comes, what this one shows may change.
    const auto& first = filter().firstInputFramebuffer;
    if (first.isLocked()) FramebufferContents::draw(*first.get());
    return;
  }

  filter().secondInput = {.framebuffer = &state.secondInputFramebuffer,
                          .corners = textureCoordinatesForRotation(state.inputRotation2),
                          .isScaled = scalesSecondInput(),
                          .keepsFirst = state.keepsFirstInput()};
  TavrelGPUImageFilter::newFrameReadyAtTime(
      state.firstFrameTime.isIndefinite() ? state.secondFrameTime : state.firstFrameTime, 0);
  state.hasReceivedFirstFrame = false;
  state.hasReceivedSecondFrame = false;
}

std::shared_ptr<void> TavrelGPUImageTwoInputFilter::keepInputs() {
  struct Kept {
    std::shared_ptr<void> first;
    Implementation& state;
    TavrelGPUImageFramebufferLease second;
    Arrivals arrivals;
    ~Kept() {
      state.secondInputFramebuffer = std::move(second);
      static_cast<Arrivals&>(state) = arrivals;
    }
  };
  Implementation& state = *implementation_;
  // An aggregate: NOLINTNEXTLINE(modernize-make-shared)
  return std::shared_ptr<Kept>(new Kept{TavrelGPUImageFilter::keepInputs(), state,
                                        TavrelGPUImageFramebufferLease(state.secondInputFramebuffer.get()), state});
}

void TavrelGPUImageTwoInputFilter::scaleInputs(const GLfloat* vertices, const GLfloat* textureCoordinates) {
  TavrelGPUImageFilter::scaleInputs(vertices, textureCoordinates);
  if (!scalesSecondInput()) return;
  Implementation& state = *implementation_;
  state.scaledSecondInput = state.scaling.scale(
      state.secondInputFramebuffer, textureCoordinatesForRotation(state.inputRotation2), drawnSize(vertices));
}

void TavrelGPUImageTwoInputFilter::bindInputs(const GLfloat* textureCoordinates) {
  TavrelGPUImageFilter::bindInputs(textureCoordinates);
  if (const auto* scaled = implementation_->scaledSecondInput) {
    return filter().filterProgram.setTexture(1, QuadTexture(scaled->framebuffer.get().get()), 3,
                                             scaled->corners.data());
  }
  const QuadTexture second = TavrelGPUImageFilter::Implementation::textureOf(implementation_->secondInputFramebuffer);
  filter().filterProgram.setTexture(1, second, 3, textureCoordinatesForRotation(implementation_->inputRotation2));
}

// A picture that will not come again must not be drawn over before the next frame of the other input.
void TavrelGPUImageTwoInputFilter::unlockInputs() {
  Implementation& state = *implementation_;
  state.scaling.letGo();
  if (!state.keepsFirstInput()) TavrelGPUImageFilter::unlockInputs();
  if (!state.secondFrameTime.isIndefinite() && !state.secondFrameCheckDisabled) {
    implementation_->secondInputFramebuffer.release();
  }
}

}  // namespace tavrel
