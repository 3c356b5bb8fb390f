#pragma once

#include <memory>
#include <string>

#include "Model/Messages.h"
#include "TavrelCaptureBase.h"

namespace tavrel::studio {

/// The studio as a camera for other programs. Main thread.
class CameraForOthers {
 public:
  explicit CameraForOthers(Messages& messages) : messages_(messages) {}

  bool isOn() const { return output_ != nullptr; }
  /// Says in a line if there can be none.
  void start(const std::string& name, Size size, double framesPerSecond);
  void stop() { output_.reset(); }
  /// For the recorder; nullptr while it is off.
  const std::shared_ptr<TavrelGPUImageCameraOutput>& output() const { return output_; }
  /// The name under which other programs list it.
  const std::string& name() const { return name_; }
  /// "nobody reads it", or how many programs do.
  std::string readersText() const;

 private:
  Messages& messages_;
  std::string name_;
  std::shared_ptr<TavrelGPUImageCameraOutput> output_;
};

}  // namespace tavrel::studio
