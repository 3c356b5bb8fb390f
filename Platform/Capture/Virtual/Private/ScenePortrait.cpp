#include "Platform/Capture/Virtual/Private/ScenePortrait.h"

#include <array>
#include <cmath>
#include <numbers>
#include <string_view>

#include "Platform/Capture/Virtual/Private/SceneBrush.h"

namespace tavrel {
namespace {

constexpr SceneRgb kSkin = {236, 188, 158}, kShade = {176, 112, 88}, kLip = {190, 82, 84}, kDark = {34, 22, 20};
constexpr SceneRgb kPaper = {238, 232, 218}, kInk = {52, 54, 70};
constexpr SceneBox kEverywhere = {-10, -10, 10, 10};
constexpr double kFaceCentre = 0.03;

/// Light that is out of focus.
struct Bokeh {
  double u, v, radius;
  SceneRgb color;
};
constexpr Bokeh kBokeh[] = {
    {-0.56, -0.16, 0.055, {255, 214, 150}}, {-0.44, -0.27, 0.036, {255, 186, 120}},
    {-0.38, -0.08, 0.028, {255, 230, 190}}, {-0.62, 0.06, 0.042, {190, 200, 255}},
    {-0.47, 0.10, 0.050, {255, 190, 150}},  {-0.34, -0.30, 0.024, {200, 220, 255}},
    {-0.80, -0.06, 0.060, {255, 220, 170}}, {0.36, 0.20, 0.030, {255, 214, 160}},
    {0.80, 0.10, 0.055, {200, 210, 255}},
};

void drawWall(const SceneBrush& brush, const PortraitColors& colors, double width) {
  brush.paint(kEverywhere, [&](double u, double v) {
    // Bricks, out of focus: rows are shifted by a half.
    const double row = std::floor(v / 0.06), across = u / 0.15 + (std::fmod(std::abs(row), 2) < 1 ? 0 : 0.5);
    const double toRow = std::abs(v / 0.06 - row - 0.5), toColumn = std::abs(across - std::floor(across) - 0.5);
    const double joint = std::max(smooth(0.38, 0.5, toRow), smooth(0.45, 0.5, toColumn));
    const double brick = scatter(static_cast<int>(std::floor(across)), static_cast<int>(row)) * 14 - 7;
    const double rough = waves(u * 90, v * 90) * 4 + waves(u * 25 + 7, v * 25) * 5;
    const double light = 1.12 - 0.35 * std::hypot(u + 0.35, v + 0.25);
    const SceneRgb wall = colors.wall + colors.rightwards * (u / width + 0.5) + colors.downwards * (v + 0.5);
    const double shade = brick * (1 - joint) + rough - joint * 16;
    return SceneTouch{1, wall * light + SceneRgb{shade, shade, shade}};
  });
  for (const Bokeh& lamp : kBokeh) {
    const double reach = lamp.radius + 0.01;
    brush.paint({lamp.u - reach, lamp.v - reach, lamp.u + reach, lamp.v + reach}, [&](double u, double v) {
      const double distance = std::hypot(u - lamp.u, v - lamp.v);
      const double rim = 0.36 + 0.10 * smooth(0.75, 0.98, distance / lamp.radius);
      return SceneTouch{brush.cover(distance - lamp.radius, 0.010) * rim, lamp.color};
    });
  }
}

/// Seven rows of five dots.
constexpr struct {
  char letter;
  std::array<std::uint8_t, 7> rows;
} kLetters[] = {
    {'A', {14, 17, 17, 31, 17, 17, 17}}, {'E', {31, 16, 16, 30, 16, 16, 31}}, {'L', {16, 16, 16, 16, 16, 16, 31}},
    {'R', {30, 17, 17, 30, 20, 18, 17}}, {'T', {31, 4, 4, 4, 4, 4, 4}},       {'V', {17, 17, 17, 17, 17, 10, 4}},
};

bool hasInk(std::string_view text, double across, double down) {
  if (across < 0 || down < 0 || down >= 7) return false;
  const auto column = static_cast<std::size_t>(across);
  if (column / 6 >= text.size() || column % 6 == 5) return false;
  for (const auto& [letter, rows] : kLetters) {
    if (letter == text[column / 6]) return (rows[static_cast<std::size_t>(down)] >> (4 - column % 6) & 1) != 0;
  }
  return false;
}

void drawPoster(const SceneBrush& brush) {
  constexpr double kLeft = 0.385, kTop = -0.30, kWidth = 0.23, kHeight = 0.36;
  brush.paint({kLeft - 0.03, kTop - 0.03, kLeft + kWidth + 0.03, kTop + kHeight + 0.03}, [&](double u, double v) {
    const double x = u - kLeft, y = v - kTop;
    const double outside = std::max(std::max(-x, x - kWidth), std::max(-y, y - kHeight));
    if (outside > 0) return SceneTouch{0.45 * (1 - smooth(0, 0.02, outside)), kDark};
    SceneRgb color = kPaper * (0.99 - 0.12 * y / kHeight + 0.012 * waves(u * 300, v * 300));
    if (outside > -0.006) return SceneTouch{1, {92, 66, 48}};
    constexpr std::string_view kName = "TAVREL";
    // Ever smaller letters, then lines that come together, then rings.
    const double sizes[] = {0.0052, 0.0034, 0.0022};
    double top = 0.028;
    for (const double dot : sizes) {
      const double start = kWidth / 2 - dot * 6 * static_cast<double>(kName.size()) / 2;
      if (hasInk(kName, (x - start) / dot, (y - top) / dot)) color = kInk;
      top += dot * 7 + 0.012;
    }
    if (y > 0.155 && y < 0.225 && std::abs(x - kWidth / 2) < 0.085) {
      const double spread = 0.3 + 0.7 * (0.225 - y) / 0.07;
      const double phase = (x - kWidth / 2) / (0.016 * spread);
      if (std::abs(phase) < 5.25 && phase - std::floor(phase) < 0.5) color = kInk;
    }
    const double ring = std::hypot(x - kWidth / 2, y - 0.29);
    if (ring < 0.05) color = mixed(color, {196, 84, 60}, 0.5 + 0.5 * std::cos(ring * ring * 9000));
    return SceneTouch{1, color};
  });
}

double mixedNumber(double from, double to, double amount) { return from + (to - from) * amount; }

/// Strands along a direction, with a shine where the light falls.
SceneRgb hairAt(const PortraitColors& colors, double along, double across, double shine) {
  const double strand = waves(across * 190, along * 5) * 0.16 + waves(across * 60 + 3, along * 2.5) * 0.2;
  return colors.hair * (0.82 + strand + 0.5 * shine) + SceneRgb{70, 52, 40} * (shine * 0.55);
}

void drawHairBehind(const SceneBrush& brush, const PortraitColors& colors) {
  brush.paint({-0.32, -0.36, 0.32, 0.52}, [&](double u, double v) {
    const double below = std::max(0.0, v + 0.02);
    const double side = u + 0.008 * std::sin(below * 22);
    const double width = 0.262 + 0.022 * smooth(0.05, 0.3, below) - 0.13 * smooth(0.3, 0.52, below);
    const double distance = v < -0.02 ? ellipse(side, v + 0.02, 0.262, 0.315) : std::abs(side) - width;
    const double cover = brush.cover(distance, 0.004);
    if (cover <= 0) return SceneTouch{};
    const double shine =
        0.8 * bell(std::abs(u) - 0.22, v + 0.08, 0.03, 0.06) + 0.5 * bell(u + 0.24, v - 0.2, 0.02, 0.1);
    return SceneTouch{cover, hairAt(colors, v, side, shine) * (1 - 0.16 * smooth(-0.1, 0.1, v))};
  });
}

void drawBody(const SceneBrush& brush, const PortraitColors& colors) {
  brush.paint({-0.12, 0.2, 0.12, 0.52}, [&](double u, double v) {
    const double distance = std::abs(u) - (0.078 + 0.05 * smooth(0.36, 0.5, v));
    const double shadow = 0.85 * (1 - smooth(0.27, 0.42, v + std::abs(u) * 0.5)) + 0.35 * smooth(0.02, 0.09, u);
    return SceneTouch{brush.cover(distance), mixed(kSkin, kShade * 0.9, std::min(1.0, shadow))};
  });
  brush.paint({-0.6, 0.33, 0.6, 0.6}, [&](double u, double v) {
    const double shoulders = ellipse(u, v - 0.66, 0.46, 0.28);
    const double collar = -ellipse(u, v - 0.34, 0.105, 0.085);
    const double distance = std::max(shoulders, collar);
    const double cover = brush.cover(distance);
    if (cover <= 0) return SceneTouch{};
    // Knitted.
    const double stitch = std::sin((u + 0.18 * std::abs(std::fmod(v * 55, 2.0) - 1) * 0.05) * 420) * std::sin(v * 330);
    const double fold = waves(u * 9, v * 6) * 0.12 - 0.5 * smooth(0.1, 0.46, std::abs(u + 0.08));
    const double edge = collar > -0.016 ? 0.12 : 0;
    return SceneTouch{cover, colors.cloth * (1.05 + fold + 0.09 * stitch + edge)};
  });
}

/// Fine-grained, so that there is something to smooth: freckles on nose and cheeks, and a few spots.
SceneRgb skinAt(double u, double v, double x, double y, double pixel) {
  const double side = x / 0.2, up = y / 0.28;
  const double depth = std::sqrt(std::max(0.0, 1 - 0.92 * (side * side + up * up)));
  const double light = std::clamp(0.62 + 0.30 * depth - 0.16 * side - 0.08 * up, 0.0, 1.1);
  SceneRgb color = mixed(kShade, kSkin, smooth(0.35, 0.95, light)) * (0.94 + 0.09 * light);
  const auto blend = [&](const SceneRgb& other, double amount) {
    color = mixed(color, other, std::clamp(amount, 0.0, 1.0));
  };
  // Cheeks, forehead, nose and the hollows of the eyes.
  blend({226, 118, 104}, 0.42 * (bell(u + 0.112, v - 0.065, 0.05, 0.035) + bell(u - 0.112, v - 0.065, 0.05, 0.035)));
  blend({255, 232, 212}, 0.45 * bell(u + 0.03, v + 0.17, 0.09, 0.045));
  blend({255, 236, 218},
        0.60 * bell(u + 0.004, v - 0.02, 0.012, 0.07) + 0.75 * bell(u + 0.006, v - 0.083, 0.012, 0.010));
  blend(kShade, 0.50 * bell(u - 0.030, v - 0.075, 0.013, 0.030) + 0.32 * bell(u + 0.034, v - 0.085, 0.010, 0.022));
  blend(kShade, 0.40 * (bell(u - 0.048, v + 0.055, 0.022, 0.028) + bell(u + 0.048, v + 0.055, 0.022, 0.028)));
  blend(kShade, 0.50 * bell(u, v - 0.118, 0.035, 0.008) + 0.45 * bell(u, v - 0.228, 0.055, 0.014));
  blend(kShade, 0.16 * bell(u, v - 0.138, 0.008, 0.018));
  const int cellX = static_cast<int>(std::floor(u * 90)), cellY = static_cast<int>(std::floor(v * 90));
  const double zone =
      bell(u + 0.1, v - 0.045, 0.075, 0.045) + bell(u - 0.1, v - 0.045, 0.075, 0.045) + bell(u, v - 0.03, 0.06, 0.04);
  for (int j = cellY - 1; j <= cellY + 1 && zone > 0.05; ++j) {
    for (int i = cellX - 1; i <= cellX + 1; ++i) {
      if (scatter(i, j) > 0.42 * zone) continue;
      const double toU = u - (i + scatter(i + 91, j)) / 90, toV = v - (j + scatter(i, j + 57)) / 90;
      const double size = 0.0016 + 0.0018 * scatter(i + 13, j + 29);
      blend({176, 108, 74}, 0.52 * (1 - smooth(size * 0.6, size * 1.5 + pixel, std::hypot(toU, toV))));
    }
  }
  constexpr std::array<std::array<double, 3>, 6> kSpots = {{{-0.070, -0.155, 0.0060},
                                                            {0.052, -0.172, 0.0045},
                                                            {0.128, 0.118, 0.0065},
                                                            {-0.135, 0.130, 0.0050},
                                                            {0.058, 0.232, 0.0055},
                                                            {-0.094, 0.168, 0.0040}}};
  for (const auto& [spotU, spotV, size] : kSpots) {
    blend({206, 84, 72}, 0.75 * bell(u - spotU, v - spotV, size, size));
    blend({255, 226, 206}, 0.5 * bell(u - spotU + size * 0.35, v - spotV + size * 0.35, size * 0.3, size * 0.3));
  }
  const double grain =
      (scatter(static_cast<int>(std::lround(u / pixel)), static_cast<int>(std::lround(v / pixel))) - 0.5) * 15;
  const double pores = waves(u * 210, v * 210) * 5 + waves(u * 70 + 5, v * 70) * 3;
  return color + SceneRgb{1, 1, 1} * (grain + pores);
}

/// The face's edge, which becomes narrower towards the chin.
double faceEdge(double u, double v) {
  const double y = v - kFaceCentre;
  const double narrow = y > 0 ? 1 - 0.20 * smooth(0.02, 0.27, y) : 1;
  return ellipse(u / narrow, y, 0.19, y > 0 ? 0.27 : 0.28);
}

void drawFace(const SceneBrush& brush) {
  brush.paint({-0.21, -0.27, 0.21, 0.32}, [&](double u, double v) {
    const double cover = brush.cover(faceEdge(u, v), 0.002);
    return cover > 0 ? SceneTouch{cover, skinAt(u, v, u, v - kFaceCentre, brush.pixel())} : SceneTouch{};
  });
}

void drawEye(const SceneBrush& brush, const SceneRgb& iris, double side) {
  const double centreU = side * 0.083, centreV = -0.048;
  brush.paint({centreU - 0.065, centreV - 0.09, centreU + 0.065, centreV + 0.05}, [&](double u, double v) {
    const double x = (u - centreU) * side, y = v - centreV;  // x towards the temple
    const double tilt = y + x * 0.10;
    const double share = x / 0.043;
    const double open = std::max(0.0, 1 - share * share);
    const double upper = -0.0225 * std::pow(open, 0.75), lower = 0.0150 * open;
    const bool inside = std::abs(share) < 1 && tilt > upper && tilt < lower;
    SceneTouch touch;
    const auto put = [&](const SceneRgb& color, double cover) {
      touch.color = mixed(touch.color, color, touch.cover > 0 ? cover : 1);
      touch.cover = touch.cover + (1 - touch.cover) * std::clamp(cover, 0.0, 1.0);
    };
    if (inside) {
      const double round = 1 - 0.22 * share * share - 0.35 * (1 - smooth(0, 0.012, tilt - upper));
      put(SceneRgb{240, 234, 230} * round, 1);
      const double ring = std::hypot(x - 0.001, y + 0.003);
      const double rays =
          0.80 + 0.28 * waves(std::atan2(y + 0.003, x) * 9, ring * 120) + 0.25 * smooth(0.004, 0.02, y + 0.012);
      put(mixed(iris * rays, iris * 0.35, smooth(0.016, 0.0205, ring)), brush.cover(ring - 0.0205));
      put({12, 10, 12}, brush.cover(ring - 0.0088));
      put({255, 255, 255}, 0.95 * brush.cover(std::hypot(u - centreU + 0.0065, y + 0.0105) - 0.0042));
      put({255, 255, 255}, 0.35 * brush.cover(std::hypot(u - centreU - 0.006, y - 0.005) - 0.0028));
    }
    // Lashes, the lid's fold and the brow.
    if (std::abs(share) < 1.12) {
      const double thick = 0.0030 + 0.0024 * smooth(-1, 1, share);
      put(kDark, 0.95 * brush.cover(std::abs(tilt - upper + thick * 0.4) - thick) * (std::abs(share) < 1.05 ? 1 : 0.5));
      put({120, 66, 54}, 0.55 * brush.cover(std::abs(tilt - lower) - 0.0010));
      const double fold = -0.0335 * std::pow(std::max(0.0, 1 - share * share * 0.75), 0.8) + 0.001;
      put({150, 92, 72}, 0.60 * brush.cover(std::abs(tilt - fold) - 0.0012, 0.002));
    }
    const double along = (x + 0.043) / 0.104;
    if (along > 0 && along < 1) {
      const double arch =
          -0.058 - 0.018 * std::sin(std::min(1.0, along * 1.12) * std::numbers::pi * 0.8) + along * 0.008;
      const double thick = 0.0075 * (1 - 0.75 * along) * smooth(0, 0.12, along) + 0.001;
      const double hairs = 0.70 + 0.45 * waves((x * 1.3 + y * 0.8) * 420, y * 60);
      put(SceneRgb{62, 42, 34}, std::min(0.92, hairs) * brush.cover(std::abs(y - arch) - thick, 0.004));
    }
    return touch;
  });
}

void drawNostrilsAndMouth(const SceneBrush& brush) {
  brush.paint({-0.05, 0.08, 0.05, 0.13}, [&](double u, double v) {
    const double nostril = ellipse(std::abs(u) - 0.0185, v - 0.1035 + (std::abs(u) - 0.0185) * 0.3, 0.0082, 0.0042);
    return SceneTouch{0.85 * brush.cover(nostril, 0.003), {104, 54, 44}};
  });
  brush.paint({-0.09, 0.13, 0.09, 0.24}, [&](double u, double v) {
    const double share = u / 0.068;
    if (std::abs(share) >= 1) return SceneTouch{};
    const double open = 1 - share * share, y = v - 0.178 + 0.010 * share * share;  // smiling
    const double upper = -0.0175 * std::pow(open, 0.9) + 0.0052 * bell(u, 0, 0.011, 1);
    const double lower = 0.0235 * std::pow(open, 0.8);
    const double cover = brush.cover(std::max(upper - y, y - lower), 0.003);
    const double line = 0.0022 * std::cos(share * 5);
    SceneRgb color = y < line ? kLip * 0.84 : kLip * (1.02 + 0.10 * waves(u * 320, v * 40));
    color = mixed(color, {255, 206, 200}, 0.55 * bell(u + 0.012, y - 0.0125, 0.020, 0.0036));
    color = mixed(color, {92, 30, 34}, 0.85 * brush.cover(std::abs(y - line) - 0.0010, 0.0015));
    return SceneTouch{cover, color};
  });
}

void drawFringe(const SceneBrush& brush, const PortraitColors& colors) {
  brush.paint({-0.28, -0.36, 0.28, 0.42}, [&](double u, double v) {
    // Parted on the left, and down on both sides of the face.
    const double parting = -0.07;
    const double fromParting = u - parting;
    const double line = -0.245 + (fromParting > 0 ? 1.9 * fromParting * fromParting : 4.2 * fromParting * fromParting);
    const double ends = 0.004 * waves(u * 60, 3) + 0.0012 * waves(u * 180, 9);
    const double head = ellipse(u, v + 0.02, 0.255, 0.312);
    const double forehead = v - line + ends;
    const double below = std::max(0.0, v + 0.02);
    const double wave = 0.010 * std::sin(below * 19);
    const double sides = 0.170 - 0.02 * smooth(0.0, 0.3, v) + 0.09 * smooth(0.24, 0.42, v) - std::abs(u) + wave;
    const double outside = v < -0.02 ? head : std::abs(u) - (0.255 - 0.02 * smooth(0.1, 0.4, v));
    const double strands = std::max(outside, std::min(forehead + (v > -0.02 ? 1 : 0), sides));
    const double cover = brush.cover(strands, 0.003);
    if (cover <= 0) return SceneTouch{};
    const double shine = 0.9 * bell(fromParting * (fromParting > 0 ? 0.8 : 1.6) - 0.09,
                                    v + 0.235 - fromParting * fromParting, 0.09, 0.022) +
                         0.5 * bell(std::abs(u) - 0.205, v - 0.02, 0.02, 0.09);
    // Strands run from the parting, and fall at the sides.
    const double across = mixedNumber(std::atan2(fromParting, v + 0.42) * 0.35, u + wave, smooth(-0.16, 0.0, v));
    const double shadow = 1 - 0.25 * smooth(0.18, 0.15, std::abs(u)) * smooth(-0.1, 0.1, v);
    return SceneTouch{cover, hairAt(colors, v, across, shine) * shadow};
  });
}

/// What hair and chin keep the light from.
void drawShadows(const SceneBrush& brush) {
  brush.paint({-0.2, -0.3, 0.2, 0.3}, [&](double u, double v) {
    if (faceEdge(u, v) >= 0) return SceneTouch{};
    const double fromParting = u + 0.07;
    const double line = -0.245 + (fromParting > 0 ? 1.9 : 4.2) * fromParting * fromParting;
    const double below = v - line;
    const double beside = 0.168 - std::abs(u);
    const double amount = 0.34 * (1 - smooth(-0.01, 0.045, below)) + 0.30 * (1 - smooth(-0.005, 0.03, beside));
    return SceneTouch{std::min(0.5, amount), {92, 46, 34}};
  });
}

}  // namespace

void drawPortrait(const BgraCanvas& canvas, const PortraitColors& colors) {
  const SceneBrush brush(canvas);
  drawWall(brush, colors, canvas.width * brush.pixel());
  drawPoster(brush);
  drawHairBehind(brush, colors);
  drawBody(brush, colors);
  drawFace(brush);
  drawEye(brush, colors.iris, -1);
  drawEye(brush, colors.iris, 1);
  drawNostrilsAndMouth(brush);
  drawShadows(brush);
  drawFringe(brush, colors);
}

}  // namespace tavrel
