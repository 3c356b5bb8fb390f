#pragma once

#include <functional>
#include <map>

#include "GPUImage/Filters/Private/FilterFusion.h"
#include "GPUImage/Filters/Private/InputScaling.h"
#include "GPUImage/Filters/Private/StillDrawing.h"
#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "GPUImage/Private/OnVideoProcessingQueue.h"
#include "GPUImage/Private/QuadProgram.h"
#include "GPUImage/TavrelGPUImageFramebufferLease.h"
#include "Platform/Dispatch/DispatchSemaphore.h"

namespace tavrel {

/// What sets a program's uniforms again, by location.
using UniformStateBlocks = std::map<GLint, std::function<void()>>;

/// A filter's state, for the filters of this folder. On the video-processing queue, but for the semaphore.
struct TavrelGPUImageFilter::Implementation {
  QuadProgram filterProgram;
  FilterFusion fusion;
  FilterFusion::SecondInput secondInput;
  StillDrawing still;
  UniformStateBlocks uniformStateRestorationBlocks;
  TavrelGPUImageFramebufferLease firstInputFramebuffer;
  InputScaling scaling;
  /// What is drawn instead of the first input, where that has another size.
  const InputScaling::Scaled* scaledInput = nullptr;
  bool isInputDeep = false;
  TavrelGPUImageRotationMode inputRotation = kTavrelGPUImageNoRotation;
  Size currentFilterSize;
  GLfloat backgroundColorRed = 0;
  GLfloat backgroundColorGreen = 0;
  GLfloat backgroundColorBlue = 0;
  GLfloat backgroundColorAlpha = 0;
  bool preventRendering = false;
  bool currentlyReceivingMonochromeInput = false;
  bool isEndProcessing = false;

  // A request takes the semaphore's unit, and the frame that is kept for it gives it back.
  bool usingNextFrameForImageCapture = false;
  TavrelGPUImageFramebufferLease capturedFramebuffer;
  DispatchSemaphore imageCaptureSemaphore{1};

  void useProgram(std::string_view vertexShader, std::string_view fragmentShader,
                  std::initializer_list<std::string_view> attributes = {"position", "inputTextureCoordinate"}) {
    filterProgram = {*TavrelGPUImageContext::sharedImageProcessingContext(), vertexShader, fragmentShader, attributes};
    fusion.setShaders(vertexShader, fragmentShader);
  }
  /// Makes the output a framebuffer that is not drawn yet, of the input's frame with these coordinates at its corners.
  /// False where the filter must draw itself.
  bool defer(TavrelGPUImageFilter& self, const GLfloat* corners);
  /// The texture of an input; that of a single transparent pixel for one that is absent.
  static QuadTexture textureOf(const TavrelGPUImageFramebufferLease& input);
};

}  // namespace tavrel
