#pragma once

#include <string>
#include <vector>

namespace tavrel::test {

/// While one is there, the machine has an encoder that runs on a device, as libavcodec shows it: it takes NV12, VAAPI's
/// in frames of its own, and no options of libx264's, and breaks down. One at a time.
class FakeDevice {
 public:
  struct Behaviour {
    std::string encoder = "h264_nvenc";  ///< by libavcodec's name
    std::vector<std::string> nodes = {"/dev/nvidia0"};
    std::string openNode = {};         ///< the only one that opens; empty: all
    bool isLowPower = false;           ///< VAAPI: has that entry point only
    bool hasCap = true;                ///< VAAPI: knows constant quality with a highest rate
    double failsAt = 1e9;              ///< the time, in seconds, of the first picture that it refuses
    bool hasHeadersInPackets = false;  ///< and none beside them

    static Behaviour vaapi() { return {.encoder = "h264_vaapi", .nodes = {"/dev/dri/renderD128"}}; }
    static Behaviour v4l2() {
      return {.encoder = "h264_v4l2m2m", .nodes = {"/dev/video11"}, .hasHeadersInPackets = true};
    }
  };

  explicit FakeDevice(Behaviour behaviour);
  FakeDevice(const FakeDevice&) = delete;
  FakeDevice& operator=(const FakeDevice&) = delete;
  ~FakeDevice();

  /// How many pictures it has taken; those of a trial are not counted.
  int pictures() const;
  /// Whether the pictures of its trials had colours in them.
  bool hasSeenColors() const;
  /// VAAPI: where the last encoder was opened.
  std::string node() const;
};

}  // namespace tavrel::test
