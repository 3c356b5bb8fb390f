#pragma once

namespace tavrel::test {

/// While one is there, the machine has an encoder of NVIDIA's, as libavcodec shows it: it takes NV12 and no options of
/// libx264's, and breaks down. One at a time.
class FakeDevice {
 public:
  struct Behaviour {
    double failsAt = 1e9;              ///< the time, in seconds, of the first picture that it refuses
    bool hasHeadersInPackets = false;  ///< and none beside them
  };

  explicit FakeDevice(Behaviour behaviour);
  FakeDevice(const FakeDevice&) = delete;
  FakeDevice& operator=(const FakeDevice&) = delete;
  ~FakeDevice();

  /// How many pictures it has taken; those of a trial are not counted.
  int pictures() const;
  /// Whether the pictures of its trials had colours in them.
  bool hasSeenColors() const;
};

}  // namespace tavrel::test
