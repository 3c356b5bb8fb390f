#include "Platform/Imaging/Private/ColorTransform.h"

#include <lcms2.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <utility>
#include <vector>

namespace tavrel {
namespace {

struct ProfileCloser {
  void operator()(void* profile) const { cmsCloseProfile(profile); }
};
using Profile = std::unique_ptr<void, ProfileCloser>;

struct TransformDeleter {
  void operator()(void* transform) const { cmsDeleteTransform(transform); }
};
using Transform = std::unique_ptr<void, TransformDeleter>;

using Layout = ColorTransform::Layout;

cmsUInt32Number formatOf(Layout layout) {
  switch (layout) {
    case Layout::bgra8: return TYPE_BGRA_8;
    case Layout::rgba16: return TYPE_RGBA_16;
    case Layout::cmykLight8: return TYPE_CMYK_8_REV;
  }
  std::abort();
}

Profile openProfile(std::span<const std::uint8_t> bytes) {
  return Profile(cmsOpenProfileFromMem(bytes.data(), static_cast<cmsUInt32Number>(bytes.size())));
}

Transform makeTransform(const Profile& from, cmsUInt32Number fromFormat, const Profile& to, cmsUInt32Number toFormat) {
  // Without little-cms's own cache of one pixel, threads may share a transform.
  cmsUInt32Number flags = cmsFLAGS_NOCACHE;
  if (T_EXTRA(fromFormat) == T_EXTRA(toFormat)) flags |= cmsFLAGS_COPY_ALPHA;
  // Which for 16 bits is a table that is coarse where colours are cut off.
  if (T_BYTES(fromFormat) == 2) flags |= cmsFLAGS_NOOPTIMIZE;
  return Transform(cmsCreateTransform(from.get(), fromFormat, to.get(), toFormat, INTENT_PERCEPTUAL, flags));
}

/// Whether conversion would change no colour by as much as half a step of 8 bits.
bool isNearSRGB(const Profile& profile) {
  constexpr int kSteps = 7;
  constexpr int kLargestDifference = 65535 / 255 * 2 / 5;
  const Transform transform = makeTransform(profile, TYPE_RGB_16, Profile(cmsCreate_sRGBProfile()), TYPE_RGB_16);
  if (!transform) return true;
  for (int i = 0; i < kSteps * kSteps * kSteps; ++i) {
    const auto level = [](int step) { return static_cast<std::uint16_t>(step % kSteps * 65535 / (kSteps - 1)); };
    const std::array<std::uint16_t, 3> before = {level(i), level(i / kSteps), level(i / kSteps / kSteps)};
    std::array<std::uint16_t, 3> after{};
    cmsDoTransform(transform.get(), before.data(), after.data(), 1);
    for (std::size_t c = 0; c < 3; ++c) {
      if (std::abs(before[c] - after[c]) > kLargestDifference) return false;
    }
  }
  return true;
}

class DirectTransform : public ColorTransform {
 public:
  DirectTransform(Transform transform, bool makesOpaque)
      : transform_(std::move(transform)), makesOpaque_(makesOpaque) {}
  void convert(const void* from, void* to, std::size_t pixels) const override {
    cmsDoTransform(transform_.get(), from, to, static_cast<cmsUInt32Number>(pixels));
    if (!makesOpaque_) return;
    for (std::size_t i = 0; i < pixels; ++i) static_cast<std::uint8_t*>(to)[i * 4 + 3] = 255;
  }

 private:
  const Transform transform_;
  const bool makesOpaque_;
};

/// Of grey pixels with three equal components: a table from their level. Others, of which the profile cannot be, keep
/// their colours.
class GrayTransform : public ColorTransform {
 public:
  GrayTransform(const Transform& transform, Layout from, Layout to)
      : colors_(std::size_t{65536} * 3), isDeep_(from == Layout::rgba16), staysDeep_(to == Layout::rgba16) {
    std::vector<std::uint16_t> levels(65536);
    for (std::size_t i = 0; i < levels.size(); ++i) levels[i] = static_cast<std::uint16_t>(i);
    cmsDoTransform(transform.get(), levels.data(), colors_.data(), 65536);
  }
  void convert(const void* from, void* to, std::size_t pixels) const override {
    const auto* const bytes = static_cast<const std::uint8_t*>(from);
    const auto* const words = static_cast<const std::uint16_t*>(from);
    for (std::size_t i = 0; i < pixels; ++i) {
      const auto component = [&](std::size_t c) {
        return isDeep_ ? words[i * 4 + c] : static_cast<std::uint16_t>(bytes[i * 4 + (c < 3 ? 2 - c : c)] * 257);
      };
      const std::uint16_t stored[] = {component(0), component(1), component(2)};
      const std::uint16_t alpha = component(3);
      const bool isGray = stored[0] == stored[1] && stored[0] == stored[2];
      const std::uint16_t* const color = isGray ? colors_.data() + stored[0] * std::size_t{3} : stored;
      if (staysDeep_) {
        auto* const pixel = static_cast<std::uint16_t*>(to) + i * 4;
        std::copy(color, color + 3, pixel);
        pixel[3] = alpha;
      } else {
        auto* const pixel = static_cast<std::uint8_t*>(to) + i * 4;
        for (std::size_t c = 0; c < 3; ++c) pixel[2 - c] = byteOf(color[c]);
        pixel[3] = byteOf(alpha);
      }
    }
  }

 private:
  static std::uint8_t byteOf(std::uint16_t level) { return static_cast<std::uint8_t>((level + 128U) / 257U); }

  std::vector<std::uint16_t> colors_;  // R, G, B
  const bool isDeep_;
  const bool staysDeep_;
};

std::shared_ptr<const ColorTransform> makeToSRGB(std::span<const std::uint8_t> bytes, Layout from, Layout to) {
  const Profile profile = openProfile(bytes);
  if (!profile) return nullptr;
  const Profile sRGB(cmsCreate_sRGBProfile());
  const cmsColorSpaceSignature space = cmsGetColorSpace(profile.get());
  const bool isInk = from == Layout::cmykLight8;
  if (space == cmsSigGrayData && !isInk) {
    const Transform transform = makeTransform(profile, TYPE_GRAY_16, sRGB, TYPE_RGB_16);
    return transform ? std::make_shared<GrayTransform>(transform, from, to) : nullptr;
  }
  if (space != (isInk ? cmsSigCmykData : cmsSigRgbData) || (!isInk && isNearSRGB(profile))) return nullptr;
  Transform transform = makeTransform(profile, formatOf(from), sRGB, formatOf(to));
  return transform ? std::make_shared<DirectTransform>(std::move(transform), isInk) : nullptr;
}

std::shared_ptr<const ColorTransform> makeFromSRGB(std::span<const std::uint8_t> bytes, Layout layout) {
  const Profile profile = openProfile(bytes);
  if (!profile || cmsGetColorSpace(profile.get()) != cmsSigRgbData || isNearSRGB(profile)) return nullptr;
  Transform transform = makeTransform(Profile(cmsCreate_sRGBProfile()), formatOf(layout), profile, formatOf(layout));
  return transform ? std::make_shared<DirectTransform>(std::move(transform), false) : nullptr;
}

struct Kept {
  Data profile;
  Layout from, to;
  bool isBack;
  std::shared_ptr<const ColorTransform> transform;
};

template <typename Make>
std::shared_ptr<const ColorTransform> kept(std::span<const std::uint8_t> profile, Layout from, Layout to, bool isBack,
                                           const Make& make) {
  constexpr std::size_t kMostKept = 4;
  static std::mutex mutex;
  static auto& all = *new std::deque<Kept>;
  if (profile.empty()) return nullptr;
  const std::lock_guard lock(mutex);
  for (const Kept& one : all) {
    const bool isWanted = one.from == from && one.to == to && one.isBack == isBack;
    if (isWanted && std::equal(profile.begin(), profile.end(), one.profile.begin(), one.profile.end()))
      return one.transform;
  }
  if (all.size() == kMostKept) all.pop_back();
  all.push_front({Data(profile.begin(), profile.end()), from, to, isBack, make()});
  return all.front().transform;
}

struct ToneCurveDeleter {
  void operator()(cmsToneCurve* curve) const { cmsFreeToneCurve(curve); }
};
using ToneCurve = std::unique_ptr<cmsToneCurve, ToneCurveDeleter>;

ToneCurve parametric(int type, std::initializer_list<double> parameters) {
  return ToneCurve(cmsBuildParametricToneCurve(nullptr, type, parameters.begin()));
}

template <typename Function>
ToneCurve tabulated(Function function) {
  std::vector<float> values(4096);
  for (std::size_t i = 0; i < values.size(); ++i)
    values[i] = static_cast<float>(std::clamp(function(static_cast<double>(i) / 4095.0), 0.0, 1.0));
  return ToneCurve(cmsBuildTabulatedToneCurveFloat(nullptr, 4096, values.data()));
}

ToneCurve curveOfSRGB() { return parametric(4, {2.4, 1 / 1.055, 0.055 / 1.055, 1 / 12.92, 0.04045}); }

double lightOfPQ(double value) {
  constexpr double kDiffuseWhite = 203;
  const double root = std::pow(value, 1 / 78.84375);
  return 10000 / kDiffuseWhite *
         std::pow(std::max(root - 0.8359375, 0.0) / (18.8515625 - 18.6875 * root), 1 / 0.1593017578125);
}

double lightOfHLG(double value) {
  constexpr double a = 0.17883277, b = 0.28466892, c = 0.55991073;
  const auto scene = [&](double v) { return v <= 0.5 ? v * v / 3 : (std::exp((v - c) / a) + b) / 12; };
  return std::pow(scene(value) / scene(0.75), 1.2);
}

/// nullptr for one that is not known.
ToneCurve curveOfTransfer(int transfer) {
  switch (transfer) {
    case 1:
    case 6:
    case 14:
    case 15: return parametric(4, {1 / 0.45, 1 / 1.099, 0.099 / 1.099, 1 / 4.5, 0.081});
    case 4: return parametric(1, {2.2});
    case 5: return parametric(1, {2.8});
    case 8: return parametric(1, {1.0});
    case 13: return curveOfSRGB();
    case 16: return tabulated(lightOfPQ);
    case 18: return tabulated(lightOfHLG);
    default: return nullptr;
  }
}

Data makeProfile(const ColorPrimaries& primaries, const ToneCurve& curve) {
  if (!curve) return {};
  const auto chromaticity = [](const double(&xy)[2]) { return cmsCIExyY{xy[0], xy[1], 1}; };
  const cmsCIExyY white = chromaticity(primaries.white);
  const cmsCIExyYTRIPLE triple = {chromaticity(primaries.red), chromaticity(primaries.green),
                                  chromaticity(primaries.blue)};
  std::array<cmsToneCurve*, 3> curves = {curve.get(), curve.get(), curve.get()};
  const Profile profile(cmsCreateRGBProfile(&white, &triple, curves.data()));
  cmsUInt32Number size = 0;
  if (!profile || !cmsSaveProfileToMem(profile.get(), nullptr, &size)) return {};
  Data bytes(size);
  return cmsSaveProfileToMem(profile.get(), bytes.data(), &size) ? bytes : Data();
}

}  // namespace

std::shared_ptr<const ColorTransform> ColorTransform::toSRGB(std::span<const std::uint8_t> profile, Layout from,
                                                             Layout to) {
  return kept(profile, from, to, false, [&] { return makeToSRGB(profile, from, to); });
}

std::shared_ptr<const ColorTransform> ColorTransform::fromSRGB(std::span<const std::uint8_t> profile, Layout layout) {
  return kept(profile, layout, layout, true, [&] { return makeFromSRGB(profile, layout); });
}

bool isProfileOfRGB(std::span<const std::uint8_t> bytes) {
  const Profile profile = bytes.empty() ? nullptr : openProfile(bytes);
  return profile && cmsGetColorSpace(profile.get()) == cmsSigRgbData;
}

Data makeColorProfile(const ColorPrimaries& primaries, double exponent) {
  return makeProfile(primaries, exponent == 0 ? curveOfSRGB() : parametric(1, {exponent}));
}

Data makeColorProfile(int colorPrimaries, int transferCharacteristics) {
  if (colorPrimaries == 1 && transferCharacteristics == 13) return {};
  struct Named {
    int code;
    ColorPrimaries primaries;
  };
  static constexpr Named kNamed[] = {
      {1, kSRGBPrimaries},
      {4, {{0.31, 0.316}, {0.67, 0.33}, {0.21, 0.71}, {0.14, 0.08}}},
      {5, {{0.3127, 0.329}, {0.64, 0.33}, {0.29, 0.6}, {0.15, 0.06}}},
      {6, {{0.3127, 0.329}, {0.63, 0.34}, {0.31, 0.595}, {0.155, 0.07}}},
      {7, {{0.3127, 0.329}, {0.63, 0.34}, {0.31, 0.595}, {0.155, 0.07}}},
      {8, {{0.31, 0.316}, {0.681, 0.319}, {0.243, 0.692}, {0.145, 0.049}}},
      {9, {{0.3127, 0.329}, {0.708, 0.292}, {0.17, 0.797}, {0.131, 0.046}}},
      {11, {{0.314, 0.351}, {0.68, 0.32}, {0.265, 0.69}, {0.15, 0.06}}},
      {12, {{0.3127, 0.329}, {0.68, 0.32}, {0.265, 0.69}, {0.15, 0.06}}},
      {22, {{0.3127, 0.329}, {0.63, 0.34}, {0.295, 0.605}, {0.155, 0.077}}},
  };
  for (const Named& named : kNamed) {
    if (named.code == colorPrimaries) return makeProfile(named.primaries, curveOfTransfer(transferCharacteristics));
  }
  return {};
}

}  // namespace tavrel
