#include "Platform/Capture/Virtual/SyntheticSound.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

namespace tavrel {
namespace {

constexpr double kBeepFrequency = 1000;
constexpr double kBeepAmplitude = 0.5;
constexpr double kToneFrequency = 220;
constexpr double kToneAmplitude = 0.02;
constexpr double kNoiseAmplitude = 0.01;
/// The weakest tone of 1 kHz that counts as a beep.
constexpr double kFaintestBeep = 0.05;

/// -1 … 1, the same for the same sample number.
double noise(std::uint64_t number) {
  std::uint64_t mixed = number * 0x9E3779B97F4A7C15ULL;
  mixed = (mixed ^ (mixed >> 30)) * 0xBF58476D1CE4E5B9ULL;
  mixed ^= mixed >> 27;
  return static_cast<double>(mixed & 0xFFFF) / 32767.5 - 1;
}

/// A whole number of hertz repeats after each second, so its phase is taken from the sample's place in its second.
double sine(double frequency, int sampleInSecond, int sampleRate) {
  return std::sin(2 * std::numbers::pi * frequency * sampleInSecond / sampleRate);
}

/// How strong 1 kHz is in each stretch of 10 ms, as an amplitude; element i is about samples i … i + window.
std::vector<double> beepStrengths(std::span<const float> samples, int sampleRate, std::size_t window) {
  std::vector<double> strengths;
  if (window == 0 || samples.size() < window) return strengths;
  const auto mixedDown = [&](std::size_t i) {
    const double cycles = kBeepFrequency * static_cast<double>(i) / sampleRate;
    return std::polar(static_cast<double>(samples[i]), -2 * std::numbers::pi * (cycles - std::floor(cycles)));
  };
  strengths.reserve(samples.size() - window + 1);
  std::complex<double> sum;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    sum += mixedDown(i);
    if (i + 1 < window) continue;
    strengths.push_back(2 * std::abs(sum) / static_cast<double>(window));
    sum -= mixedDown(i + 1 - window);
  }
  return strengths;
}

}  // namespace

SyntheticSound::SyntheticSound(int sampleRate) : sampleRate_(std::max(1, sampleRate)) {}

Expected<void> SyntheticSound::render(std::span<float> samples, std::uint64_t first) {
  const int beepLength = sampleRate_ / 10;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const std::uint64_t number = first + i;
    const int inSecond = static_cast<int>(number % static_cast<std::uint64_t>(sampleRate_));
    double sample = kToneAmplitude * sine(kToneFrequency, inSecond, sampleRate_) + kNoiseAmplitude * noise(number);
    if (inSecond < beepLength) sample += kBeepAmplitude * sine(kBeepFrequency, inSecond, sampleRate_);
    samples[i] = static_cast<float>(sample);
  }
  return {};
}

std::vector<std::size_t> SyntheticSound::findBeepOnsets(std::span<const float> samples, int sampleRate) {
  std::vector<std::size_t> onsets;
  if (sampleRate <= 0) return onsets;
  const auto window = static_cast<std::size_t>(sampleRate / 100);
  const std::vector<double> strengths = beepStrengths(samples, sampleRate, window);
  if (strengths.empty()) return onsets;
  const double strongest = *std::max_element(strengths.begin(), strengths.end());
  if (strongest < kFaintestBeep) return onsets;

  // A stretch that is half beep has half its strength; so a crossing of half the strength has the onset in its middle.
  bool inBeep = strengths.front() >= strongest / 2;
  if (inBeep) onsets.push_back(0);
  for (std::size_t i = 1; i < strengths.size(); ++i) {
    if (!inBeep && strengths[i] >= strongest / 2) {
      onsets.push_back(i + window / 2);
      inBeep = true;
    } else if (inBeep && strengths[i] < strongest / 4) {
      inBeep = false;
    }
  }
  return onsets;
}

}  // namespace tavrel
