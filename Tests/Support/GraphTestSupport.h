#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Support/ConsoleCapture.h"
#include "TavrelCaptureBase.h"

namespace tavrel::test {

/// A colour with components in 0…255.
struct Pixel {
  int r = 0, g = 0, b = 0, a = 255;
  friend bool operator==(const Pixel&, const Pixel&) = default;
};
std::ostream& operator<<(std::ostream& stream, const Pixel& pixel);

/// A picture as rows of colours, top row first.
struct Picture {
  int width = 0;
  int height = 0;
  std::vector<Pixel> pixels;

  Picture() = default;
  Picture(int width, int height, const std::function<Pixel(int x, int y)>& color);
  const Pixel& at(int x, int y) const { return pixels.at(static_cast<std::size_t>(y * width + x)); }
};

/// A picture in which every pixel differs from its neighbours in a way that shows turns and mirrors.
Picture distinctPicture(int width, int height);

/// B, G, R, A in memory, straight in name, so that the graph uploads it as it is.
std::shared_ptr<Image> imageOf(const Picture& picture);
/// The colours as stored, whatever the byte order of the image.
Picture pictureOf(const Image& image);
/// A pixel buffer with these colours.
std::shared_ptr<PixelBuffer> pixelBufferOf(const Picture& picture);

/// The picture behind `last` when `source` goes through the graph once.
Picture process(const Picture& source, const std::shared_ptr<TavrelGPUImageOutput>& first,
                const std::shared_ptr<TavrelGPUImageOutput>& last);
inline Picture process(const Picture& source, const std::shared_ptr<TavrelGPUImageOutput>& filter) {
  return process(source, filter, filter);
}

/// The largest difference of any component; a huge number when the sizes differ.
int largestDifference(const Picture& left, const Picture& right);

/// A consumer that keeps what it is told.
class RecordingTarget : public TavrelGPUImageInput {
 public:
  struct Event {
    std::string name;
    Index slot = 0;
    Size size;
    MediaTime time;
    std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer;
  };

  void newFrameReadyAtTime(MediaTime time, Index inputSlot) override {
    events.push_back({"frame", inputSlot, {}, time, {}});
  }
  void setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer, Index inputSlot) override {
    events.push_back({"framebuffer", inputSlot, {}, {}, std::move(framebuffer)});
  }
  Index nextAvailableTextureIndex() const override { return slot; }
  void setInputSize(Size size, Index inputSlot) override { events.push_back({"size", inputSlot, size, {}, {}}); }
  void setInputRotation(TavrelGPUImageRotationMode rotation, Index inputSlot) override {
    events.push_back({"rotation " + std::to_string(rotation), inputSlot, {}, {}, {}});
  }
  void endProcessing() override { events.push_back({"end", 0, {}, {}, {}}); }
  bool shouldIgnoreUpdatesToThisTarget() const override { return isIgnored; }
  bool enabled() const override { return isEnabled; }
  bool wantsMonochromeInput() const override { return wantsMonochrome; }

  std::vector<std::string> names() const;
  int count(const std::string& name) const;

  std::vector<Event> events;
  Index slot = 0;
  bool isIgnored = false;
  bool isEnabled = true;
  bool wantsMonochrome = false;
};

}  // namespace tavrel::test
