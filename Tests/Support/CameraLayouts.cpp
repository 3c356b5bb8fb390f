#include "Support/CameraLayouts.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>

#include "Support/VirtualFrames.h"

namespace tavrel::test {
namespace {

using Rgb = std::array<double, 3>;

// No strong blue: libyuv's fixed-point factor for it ends at 2.0, a little short of what full ranges have.
constexpr std::array<Rgb, 4> kColors = {{{200, 40, 60}, {20, 180, 90}, {50, 60, 100}, {250, 245, 240}}};

struct Field {
  char component;
  int bits;
};
using Word = std::vector<Field>;
struct PlaneKind {
  int across = 1;
  int down = 1;
  bool isBigEndian = false;
  std::vector<Word> words;
};

std::vector<PlaneKind> parsed(const char* text) {
  std::vector<PlaneKind> planes;
  while (*text != 0) {
    PlaneKind plane;
    if (*text == '>') plane.isBigEndian = ++text != nullptr;
    plane.across = text[0] - '0';
    plane.down = text[1] - '0';
    text += 2;
    plane.words.emplace_back();
    for (++text; *text != 0 && *text != '/';) {
      if (*text == '|') {
        plane.words.emplace_back();
        ++text;
        continue;
      }
      const char component = *text;
      char* end = nullptr;
      const auto bits = static_cast<int>(std::strtol(text + 1, &end, 10));
      plane.words.back().push_back({component, bits});
      text = end;
    }
    if (*text == '/') ++text;
    planes.push_back(std::move(plane));
  }
  return planes;
}

std::size_t byteCountOf(const Word& word) {
  int bits = 0;
  for (const Field& field : word) bits += field.bits;
  return static_cast<std::size_t>(bits / 8);
}

std::size_t byteCountOf(const PlaneKind& plane) {
  std::size_t count = 0;
  for (const Word& word : plane.words) count += byteCountOf(word);
  return count;
}

struct Coefficients {
  double red;
  double blue;
};

Coefficients coefficientsOf(FrameMatrix matrix) {
  switch (matrix) {
    case FrameMatrix::bt709: return {0.2126, 0.0722};
    case FrameMatrix::bt2020: return {0.2627, 0.0593};
    default: return {0.299, 0.114};
  }
}

/// The components of a colour as numbers of 0 to 255, which are what a range makes of them.
class Encoding {
 public:
  Encoding(FrameMatrix matrix, bool isFullYCbCr, bool isFullColor)
      : k_(coefficientsOf(matrix)), isFullYCbCr_(isFullYCbCr), isFullColor_(isFullColor) {}

  double encode(char component, const Rgb& color) const {
    const double y = k_.red * color[0] + (1 - k_.red - k_.blue) * color[1] + k_.blue * color[2];
    const double luma = isFullYCbCr_ ? y : 16 + y * 219 / 255;
    const double chroma = isFullYCbCr_ ? 1 : 224.0 / 255;
    const auto colour = [&](double value) { return isFullColor_ ? value : 16 + value * 219 / 255; };
    switch (component) {
      case 'R': return colour(color[0]);
      case 'G': return colour(color[1]);
      case 'B': return colour(color[2]);
      case 'K': return colour(y);
      case 'Y': return luma;
      case 'U': return 128 + chroma * (color[2] - y) / (2 * (1 - k_.blue));
      case 'V': return 128 + chroma * (color[0] - y) / (2 * (1 - k_.red));
      default: return 85;
    }
  }

  /// B, G, R.
  Rgb decode(const std::map<char, double>& components) const {
    const auto colour = [&](double value) {
      return std::clamp(isFullColor_ ? value : (value - 16) * 255 / 219, 0.0, 255.0);
    };
    if (components.contains('K'))
      return {colour(components.at('K')), colour(components.at('K')), colour(components.at('K'))};
    if (components.contains('R'))
      return {colour(components.at('B')), colour(components.at('G')), colour(components.at('R'))};
    const double luma = isFullYCbCr_ ? components.at('Y') : (components.at('Y') - 16) * 255 / 219;
    const double scale = isFullYCbCr_ ? 1 : 255.0 / 224;
    const double red = luma + 2 * (1 - k_.red) * scale * (components.at('V') - 128);
    const double blue = luma + 2 * (1 - k_.blue) * scale * (components.at('U') - 128);
    const double green = (luma - k_.red * red - k_.blue * blue) / (1 - k_.red - k_.blue);
    return {std::clamp(blue, 0.0, 255.0), std::clamp(green, 0.0, 255.0), std::clamp(red, 0.0, 255.0)};
  }

 private:
  Coefficients k_;
  bool isFullYCbCr_;
  bool isFullColor_;
};

/// How many of a field's steps one of 255 is. Y Cb Cr has room above 235 in more bits, too; all else ends at the top.
double stepsOf(const Field& field) {
  const bool isYCbCr = field.component == 'Y' || field.component == 'U' || field.component == 'V';
  if (isYCbCr && field.bits >= 8) return std::exp2(field.bits - 8);
  return (std::exp2(field.bits) - 1) / 255;
}

std::uint64_t valueOf(const Field& field, double number) {
  return static_cast<std::uint64_t>(std::clamp(std::round(number * stepsOf(field)), 0.0, std::exp2(field.bits) - 1));
}

}  // namespace

bool isMultiPlanar(std::uint32_t v4l2) {
  return std::ranges::count(std::array{V4L2_PIX_FMT_NV12M, V4L2_PIX_FMT_NV21M, V4L2_PIX_FMT_NV16M, V4L2_PIX_FMT_NV61M,
                                       V4L2_PIX_FMT_YUV420M, V4L2_PIX_FMT_YVU420M, V4L2_PIX_FMT_YUV422M,
                                       V4L2_PIX_FMT_YVU422M, V4L2_PIX_FMT_YUV444M, V4L2_PIX_FMT_YVU444M},
                            v4l2) > 0;
}

const std::vector<CameraLayout>& cameraLayouts() {
  static const std::vector<CameraLayout> layouts = {
      {"BGRA", V4L2_PIX_FMT_ABGR32, true, "11 B8|G8|R8|X8", {V4L2_PIX_FMT_BGR32}},
      {"BGRx", V4L2_PIX_FMT_XBGR32, true, "11 B8|G8|R8|X8"},
      {"RGBA", V4L2_PIX_FMT_RGBA32, true, "11 R8|G8|B8|X8"},
      {"RGBx", V4L2_PIX_FMT_RGBX32, true, "11 R8|G8|B8|X8"},
      {"ARGB", V4L2_PIX_FMT_ARGB32, true, "11 X8|R8|G8|B8", {V4L2_PIX_FMT_RGB32}},
      {"xRGB", V4L2_PIX_FMT_XRGB32, true, "11 X8|R8|G8|B8"},
      {"ABGR", V4L2_PIX_FMT_BGRA32, true, "11 X8|B8|G8|R8"},
      {"xBGR", V4L2_PIX_FMT_BGRX32, true, "11 X8|B8|G8|R8"},
      {"BGR", V4L2_PIX_FMT_BGR24, true, "11 B8|G8|R8"},
      {"RGB", V4L2_PIX_FMT_RGB24, true, "11 R8|G8|B8"},
      {"GBR", 0, true, "11 G8/11 B8/11 R8"},
      {"YUY2", V4L2_PIX_FMT_YUYV, true, "21 Y8|U8|Y8|V8"},
      {"UYVY", V4L2_PIX_FMT_UYVY, true, "21 U8|Y8|V8|Y8"},
      {"YVYU", V4L2_PIX_FMT_YVYU, true, "21 Y8|V8|Y8|U8"},
      {"VYUY", V4L2_PIX_FMT_VYUY, true, "21 V8|Y8|U8|Y8"},
      {"NV12", V4L2_PIX_FMT_NV12, true, "11 Y8/22 U8|V8", {V4L2_PIX_FMT_NV12M}},
      {"NV21", V4L2_PIX_FMT_NV21, true, "11 Y8/22 V8|U8", {V4L2_PIX_FMT_NV21M}},
      {"NV16", V4L2_PIX_FMT_NV16, true, "11 Y8/21 U8|V8", {V4L2_PIX_FMT_NV16M}},
      {"NV61", V4L2_PIX_FMT_NV61, true, "11 Y8/21 V8|U8", {V4L2_PIX_FMT_NV61M}},
      {"NV24", V4L2_PIX_FMT_NV24, true, "11 Y8/11 U8|V8"},
      {"NV42", V4L2_PIX_FMT_NV42, false, "11 Y8/11 V8|U8"},
      {"I420", V4L2_PIX_FMT_YUV420, true, "11 Y8/22 U8/22 V8", {V4L2_PIX_FMT_YUV420M}},
      {"YV12", V4L2_PIX_FMT_YVU420, true, "11 Y8/22 V8/22 U8", {V4L2_PIX_FMT_YVU420M}},
      {"Y42B", V4L2_PIX_FMT_YUV422P, true, "11 Y8/21 U8/21 V8", {V4L2_PIX_FMT_YUV422M}},
      {"YM61", V4L2_PIX_FMT_YVU422M, false, "11 Y8/21 V8/21 U8"},
      {"Y444", V4L2_PIX_FMT_YUV444M, true, "11 Y8/11 U8/11 V8"},
      {"YM42", V4L2_PIX_FMT_YVU444M, false, "11 Y8/11 V8/11 U8"},
      {"P010_10LE", V4L2_PIX_FMT_P010, true, "11 Y10X6/22 U10X6|V10X6"},
      {"I420_10LE", 0, true, "11 X6Y10/22 X6U10/22 X6V10"},
      {"I422_10LE", 0, true, "11 X6Y10/21 X6U10/21 X6V10"},
      {"Y444_10LE", 0, true, "11 X6Y10/11 X6U10/11 X6V10"},
      {"AYUV", V4L2_PIX_FMT_AYUV32, true, "11 X8|Y8|U8|V8", {V4L2_PIX_FMT_XYUV32, V4L2_PIX_FMT_YUV32}},
      {"v308", V4L2_PIX_FMT_YUV24, true, "11 Y8|U8|V8"},
      {"IYU2", 0, true, "11 U8|Y8|V8"},
      {"YUVA", V4L2_PIX_FMT_YUVA32, false, "11 Y8|U8|V8|X8", {V4L2_PIX_FMT_YUVX32}},
      {"VUYA", V4L2_PIX_FMT_VUYA32, false, "11 V8|U8|Y8|X8", {V4L2_PIX_FMT_VUYX32}},
      {"xRGB_210LE", 0, true, "11 X2R10G10B10"},
      {"ARGB_210LE", 0, true, "11 X2R10G10B10"},
      {"xBGR_210LE", 0, true, "11 X2B10G10R10"},
      {"ABGR_210LE", 0, true, "11 X2B10G10R10"},
      {"RGBx_102LE", 0, true, "11 R10G10B10X2"},
      {"RGBA_102LE", 0, true, "11 R10G10B10X2"},
      {"BGRx_102LE", 0, true, "11 B10G10R10X2"},
      {"BGRA_102LE", 0, true, "11 B10G10R10X2"},
      {"r210", 0, true, ">11 X2R10G10B10"},
      {"ARGB64", 0, true, "11 X16|R16|G16|B16"},
      {"AYUV64", 0, true, "11 X16|Y16|U16|V16"},
      {"BGRH", V4L2_PIX_FMT_BGR666, false, ">11 B6G6R6X14"},
      {"RGB16", V4L2_PIX_FMT_RGB565, true, "11 R5G6B5"},
      {"BGR16", 0, true, "11 B5G6R5"},
      {"RGBR", V4L2_PIX_FMT_RGB565X, false, ">11 R5G6B5"},
      {"RGB15", V4L2_PIX_FMT_RGB555, true, "11 X1R5G5B5", {V4L2_PIX_FMT_ARGB555, V4L2_PIX_FMT_XRGB555}},
      {"BGR15", V4L2_PIX_FMT_ABGR555, true, "11 X1B5G5R5", {V4L2_PIX_FMT_XBGR555}},
      {"RGBQ", V4L2_PIX_FMT_RGB555X, false, ">11 X1R5G5B5", {V4L2_PIX_FMT_ARGB555X, V4L2_PIX_FMT_XRGB555X}},
      {"RA15", V4L2_PIX_FMT_RGBA555, false, "11 R5G5B5X1", {V4L2_PIX_FMT_RGBX555}},
      {"BA15", V4L2_PIX_FMT_BGRA555, false, "11 B5G5R5X1", {V4L2_PIX_FMT_BGRX555}},
      {"R444", V4L2_PIX_FMT_RGB444, false, "11 X4R4G4B4", {V4L2_PIX_FMT_ARGB444, V4L2_PIX_FMT_XRGB444}},
      {"AB12", V4L2_PIX_FMT_ABGR444, false, "11 X4B4G4R4", {V4L2_PIX_FMT_XBGR444}},
      {"RA12", V4L2_PIX_FMT_RGBA444, false, "11 R4G4B4X4", {V4L2_PIX_FMT_RGBX444}},
      {"GA12", V4L2_PIX_FMT_BGRA444, false, "11 B4G4R4X4", {V4L2_PIX_FMT_BGRX444}},
      {"RGB1", V4L2_PIX_FMT_RGB332, false, "11 R3G3B2"},
      {"YUVP", V4L2_PIX_FMT_YUV565, false, "11 Y5U6V5"},
      {"YUVO", V4L2_PIX_FMT_YUV555, false, "11 X1Y5U5V5"},
      {"Y444", V4L2_PIX_FMT_YUV444, false, "11 X4Y4U4V4"},
      {"GRAY8", V4L2_PIX_FMT_GREY, true, "11 K8"},
      {"Y10", V4L2_PIX_FMT_Y10, false, "11 X6K10"},
      {"Y12", V4L2_PIX_FMT_Y12, false, "11 X4K12"},
      {"Y14", V4L2_PIX_FMT_Y14, false, "11 X2K14"},
      {"GRAY16_LE", V4L2_PIX_FMT_Y16, true, "11 K16"},
      {"GRAY16_BE", V4L2_PIX_FMT_Y16_BE, true, ">11 K16"},
  };
  return layouts;
}

LayoutPicture::LayoutPicture(const CameraLayout& layout, int width, int height, FrameMatrix matrix, FrameRange range,
                             int padding)
    : middleX_(width / 4 * 2), middleY_(height / 4 * 2) {
  const Encoding encoding(matrix, range == FrameRange::full, range != FrameRange::limited);
  const auto kinds = parsed(layout.planes);
  const std::size_t lumaBytes = std::max<std::size_t>(byteCountOf(kinds[0]), 1);
  const auto columns = [&](const PlaneKind& kind) {
    return static_cast<std::size_t>((width + kind.across - 1) / kind.across);
  };
  const std::size_t tight = columns(kinds[0]) * lumaBytes;
  // Of a length that halves go into.
  const std::size_t lumaRow = padding == 0 ? tight : (tight + 7) / 8 * 8 + static_cast<std::size_t>(padding);
  std::array<std::map<char, double>, 4> written;
  for (const PlaneKind& kind : kinds) {
    Plane plane;
    const std::size_t group = byteCountOf(kind);
    const bool isTight = padding == 0 && width % 2 != 0;
    plane.bytesPerRow = &kind == &kinds[0] ? lumaRow
                        : isTight          ? columns(kind) * group
                                           : lumaRow * group / lumaBytes / static_cast<std::size_t>(kind.across);
    const int rows = (height + kind.down - 1) / kind.down;
    plane.bytes.assign(plane.bytesPerRow * static_cast<std::size_t>(rows), 77);
    for (int y = 0; y < rows; ++y) {
      std::uint8_t* at = plane.bytes.data() + static_cast<std::size_t>(y) * plane.bytesPerRow;
      for (std::size_t x = 0; x < columns(kind); ++x) {
        const int left = static_cast<int>(x) * kind.across;
        const std::size_t quarter = (y * kind.down < middleY_ ? 0U : 2U) + (left < middleX_ ? 0U : 1U);
        for (const Word& word : kind.words) {
          std::uint64_t value = 0;
          for (const Field& field : word) {
            const std::uint64_t number = valueOf(field, encoding.encode(field.component, kColors.at(quarter)));
            value = value << field.bits | number;
            written.at(quarter)[field.component] = static_cast<double>(number) / stepsOf(field);
          }
          const std::size_t count = byteCountOf(word);
          for (std::size_t i = 0; i < count; ++i) {
            const std::size_t place = kind.isBigEndian ? count - 1 - i : i;
            at[place] = static_cast<std::uint8_t>(value >> (8 * i));
          }
          at += count;
        }
      }
    }
    planes_.push_back(std::move(plane));
  }
  for (std::size_t i = 0; i < colors_.size(); ++i) {
    if (!written.at(i).empty()) colors_.at(i) = encoding.decode(written.at(i));
  }
}

std::vector<std::uint8_t> LayoutPicture::block() const {
  std::vector<std::uint8_t> bytes;
  for (const Plane& plane : planes_) bytes.insert(bytes.end(), plane.bytes.begin(), plane.bytes.end());
  return bytes;
}

std::string LayoutPicture::differenceOf(const std::shared_ptr<PixelBuffer>& picture) const {
  const VirtualPicture seen(picture);
  for (const int y : {0, std::max(middleY_ - 1, 0), middleY_, seen.height() - 1}) {
    for (const int x : {0, std::max(middleX_ - 1, 0), middleX_, seen.width() - 1}) {
      const auto* pixel = seen.pixel(x, y);
      const auto& wanted = colorAt(x, y);
      const bool isRight = std::abs(pixel[0] - wanted[0]) <= 2 && std::abs(pixel[1] - wanted[1]) <= 2 &&
                           std::abs(pixel[2] - wanted[2]) <= 2 && pixel[3] == 255;
      if (isRight) continue;
      return fmt::format("B, G, R, A {} {} {} {} instead of {:.1f} {:.1f} {:.1f} 255 at {}, {}", pixel[0], pixel[1],
                         pixel[2], pixel[3], wanted[0], wanted[1], wanted[2], x, y);
    }
  }
  return {};
}

std::string faultOfConversion(const CameraLayout& layout, const RawFrame& kind) {
  struct Shape {
    int width;
    int height;
    int padding;
  };
  FrameConverter converter;
  for (const Shape& shape : {Shape{18, 6, 0}, Shape{17, 5, 0}, Shape{17, 5, 8}, Shape{64, 48, 24}, Shape{1, 1, 0}}) {
    const auto picture = PixelBuffer::create(static_cast<std::size_t>(shape.width),
                                             static_cast<std::size_t>(shape.height), PixelFormat::bgra32);
    for (const auto matrix : {FrameMatrix::bt601, FrameMatrix::bt709, FrameMatrix::bt2020}) {
      for (const auto range : {FrameRange::unsaid, FrameRange::limited, FrameRange::full}) {
        const LayoutPicture drawn(layout, shape.width, shape.height, matrix, range, shape.padding);
        const auto& planes = drawn.planes();
        const auto block = drawn.block();
        for (const bool isInBlocks : {false, true}) {
          RawFrame frame = kind;
          frame.matrix = matrix;
          frame.range = range;
          frame.width = shape.width;
          frame.height = shape.height;
          frame.bytesPerRow = planes[0].bytesPerRow;
          frame.bytes = isInBlocks ? planes[0].bytes.data() : block.data();
          frame.byteCount = isInBlocks ? planes[0].bytes.size() : block.size();
          for (std::size_t i = 1; isInBlocks && i < planes.size(); ++i) {
            frame.chroma.at(i - 1) = {planes[i].bytes.data(), planes[i].bytes.size(), planes[i].bytesPerRow};
          }
          const auto converted = converter.convert(frame, **picture);
          const std::string fault = converted ? drawn.differenceOf(*picture) : converted.error().description;
          if (fault.empty()) continue;
          return fmt::format("{}x{}+{}, matrix {}, range {}, {}: {}", shape.width, shape.height, shape.padding,
                             static_cast<int>(matrix), static_cast<int>(range), isInBlocks ? "blocks" : "one block",
                             fault);
        }
      }
    }
  }
  return {};
}

}  // namespace tavrel::test
