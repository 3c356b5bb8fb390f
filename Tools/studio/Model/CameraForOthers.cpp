#include "Model/CameraForOthers.h"

#include <fmt/format.h>

namespace tavrel::studio {

void CameraForOthers::start(const std::string& name, Size size, double framesPerSecond) {
  TavrelGPUImageCameraOutput::Configuration wanted;
  wanted.name = name.empty() ? "Tavrel Studio" : name;
  wanted.size = size;
  wanted.framesPerSecond = framesPerSecond;
  output_.reset();  // two of one name would be confusing
  auto output = TavrelGPUImageCameraOutput::create(wanted);
  if (!output) {
    return messages_.fault(fmt::format("There can be no camera for other programs: {}. It needs PipeWire to run.",
                                       output.error().description));
  }
  (*output)->setFailureHandler([this](const Error& error) {
    messages_.fault(
        fmt::format("Other programs do not see the camera now: {}. It comes back by itself.", error.description));
  });
  name_ = wanted.name;
  output_ = std::move(*output);
}

std::string CameraForOthers::readersText() const {
  const int count = output_ ? output_->readerCount() : 0;
  if (count == 0) return "nobody reads it";
  return count == 1 ? "one program reads it" : fmt::format("{} programs read it", count);
}

}  // namespace tavrel::studio
