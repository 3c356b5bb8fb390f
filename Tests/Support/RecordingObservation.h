#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tavrel::test {

/// What can be seen and heard in a recording of the virtual devices, read back with the library's own reader.
struct RecordingObservation {
  std::string error;  ///< why the file does not play through; empty when it does
  std::vector<double> frameTimes;
  std::vector<std::optional<std::uint32_t>> counters;  ///< of each frame; none where it cannot be read, as in a blur
  double darkest = 255;                                ///< the mean brightness of the darkest frame
  std::vector<double> flashes;                         ///< when flashes began whose frame before is in the file too
  std::vector<double> beeps;
  std::vector<float> sound;
  int sampleRate = 0;
  double largestSoundStep = 0;  ///< in seconds, by which a buffer of sound does not follow the one before

  static RecordingObservation of(const std::filesystem::path& movie);
  double soundLength() const { return sampleRate > 0 ? static_cast<double>(sound.size()) / sampleRate : 0; }

  /// For each flash the time of its beep less its own, in seconds, by the time of the flash. Flashes without a beep
  /// within half a second are left out.
  struct Offset {
    double at = 0;
    double seconds = 0;
  };
  std::vector<Offset> offsets() const;
};

}  // namespace tavrel::test
