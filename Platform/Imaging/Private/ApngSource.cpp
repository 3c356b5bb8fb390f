#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

#include "Platform/Imaging/Private/AnimationSource.h"
#include "Platform/Imaging/Private/Decoders.h"

// Animated PNG, as the third edition of the PNG standard has it. libpng reads no such frames: each is given to it as a
// PNG of its own, with the head of the whole.

namespace tavrel {
namespace {

using Bytes = std::span<const std::uint8_t>;

constexpr std::string_view kSignature = "\x89PNG\r\n\x1a\n";
/// The length, the type and the checksum around a chunk's bytes.
constexpr std::size_t kAroundChunk = 12;
constexpr std::size_t kFrameControlSize = 26;
constexpr std::size_t kHeaderSize = 13;
constexpr std::size_t kSequenceNumberSize = 4;

std::uint32_t bigEndian(Bytes bytes, std::size_t at) {
  return std::uint32_t{bytes[at]} << 24 | std::uint32_t{bytes[at + 1]} << 16 | std::uint32_t{bytes[at + 2]} << 8 |
         bytes[at + 3];
}

std::uint16_t shortAt(Bytes bytes, std::size_t at) {
  return static_cast<std::uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

void append(Data& data, std::uint32_t number) {
  for (const int shift : {24, 16, 8, 0}) data.push_back(static_cast<std::uint8_t>(number >> shift));
}

struct Chunk {
  std::string_view type;
  Bytes bytes;
};

/// Takes the first chunk from `rest`; nothing when it is not whole.
std::optional<Chunk> takeChunk(Bytes& rest) {
  if (rest.size() < kAroundChunk) return std::nullopt;
  const std::size_t length = bigEndian(rest, 0);
  if (length > rest.size() - kAroundChunk) return std::nullopt;
  const Chunk chunk = {{reinterpret_cast<const char*>(rest.data()) + 4, 4}, rest.subspan(8, length)};
  rest = rest.subspan(length + kAroundChunk);
  return chunk;
}

void appendChunk(Data& data, std::string_view type, Bytes first, Bytes second = {}) {
  append(data, static_cast<std::uint32_t>(first.size() + second.size()));
  const std::size_t start = data.size();
  data.insert(data.end(), type.begin(), type.end());
  data.insert(data.end(), first.begin(), first.end());
  data.insert(data.end(), second.begin(), second.end());
  append(data, static_cast<std::uint32_t>(crc32_z(0, data.data() + start, data.size() - start)));
}

AnimationFrame frameOf(Bytes control) {
  enum Disposal : std::uint8_t { none, background, previous };
  AnimationFrame frame = {.left = static_cast<int>(bigEndian(control, 12)),
                          .top = static_cast<int>(bigEndian(control, 16)),
                          .width = static_cast<int>(bigEndian(control, 4)),
                          .height = static_cast<int>(bigEndian(control, 8)),
                          .isOpaque = control[25] == 0};  // it takes the place of what was there
  const std::uint16_t divisor = shortAt(control, 22);
  frame.delay = shortAt(control, 20) / (divisor == 0 ? 100.0 : divisor);
  if (control[24] == background) frame.disposal = AnimationFrame::Disposal::clear;
  if (control[24] == previous) frame.disposal = AnimationFrame::Disposal::restore;
  return frame;
}

class ApngSource : public AnimationSource {
 public:
  using AnimationSource::AnimationSource;

  Expected<void> readStructure() {
    Bytes rest = bytes().subspan(kSignature.size());
    while (const auto chunk = takeChunk(rest)) {
      if (chunk->type == "IEND") break;
      if (auto read = readChunk(*chunk); !read) return read;
      if (isFull_) break;
    }
    finishFrame();
    return frames().empty() ? damagedPicture(name(), "it has no frame that can be read") : Expected<void>{};
  }

  const char* type() const override { return "image/apng"; }

 private:
  Expected<void> readChunk(const Chunk& chunk) {
    if (chunk.type == "IHDR") {
      if (chunk.bytes.size() != kHeaderSize) return damagedPicture(name(), "its header has a wrong size");
      header_ = chunk.bytes;
      return setCanvasSize(bigEndian(header_, 0), bigEndian(header_, 4));
    }
    if (chunk.type == "acTL" && chunk.bytes.size() == 8) {
      // Numbers beyond are as good as without end.
      setLoopCount(static_cast<int>(std::min<std::uint32_t>(bigEndian(chunk.bytes, 4), INT32_MAX)));
    } else if (chunk.type == "fcTL") {
      finishFrame();
      if (chunk.bytes.size() == kFrameControlSize) control_ = chunk.bytes;
    } else if (chunk.type == "IDAT") {
      isHead_ = false;
      // Without a control chunk before it, the first picture is for those who show no animations.
      if (!control_.empty()) parts_.push_back(chunk.bytes);
    } else if (chunk.type == "fdAT" && !control_.empty() && chunk.bytes.size() > kSequenceNumberSize) {
      parts_.push_back(chunk.bytes.subspan(kSequenceNumberSize));
    } else if (isHead_) {
      appendChunk(head_, chunk.type, chunk.bytes);
      hasTransparentColors_ |= chunk.type == "tRNS";
    }
    return {};
  }

  void finishFrame() {
    const Bytes control = std::exchange(control_, {});
    std::vector<Bytes> parts = std::exchange(parts_, {});
    if (control.empty() || parts.empty() || header_.empty()) return;
    AnimationFrame frame = frameOf(control);
    const bool isOnCanvas = frame.width > 0 && frame.height > 0 && frame.left >= 0 && frame.top >= 0 &&
                            frame.width <= width() - frame.left && frame.height <= height() - frame.top;
    if (!isOnCanvas) return;
    const bool isFirst = frames().empty();
    if (isFirst && frame.disposal == AnimationFrame::Disposal::restore) {
      frame.disposal = AnimationFrame::Disposal::clear;
    }
    const bool hasAlpha = (header_[9] & PNG_COLOR_MASK_ALPHA) != 0 || hasTransparentColors_;
    frame.isOpaque |= !hasAlpha;
    isFull_ = !addFrame(frame);
    if (!isFull_) frameData_.push_back(std::move(parts));
  }

  std::optional<std::string> draw(std::size_t index, Bitmap& canvas) override {
    const AnimationFrame& frame = frames()[index];
    Data file(kSignature.begin(), kSignature.end());
    Data size;
    append(size, static_cast<std::uint32_t>(frame.width));
    append(size, static_cast<std::uint32_t>(frame.height));
    appendChunk(file, "IHDR", size, header_.subspan(8));
    file.insert(file.end(), head_.begin(), head_.end());
    for (const Bytes part : frameData_[index]) appendChunk(file, "IDAT", part);
    appendChunk(file, "IEND", {});
    Bitmap picture(frame.width, frame.height);
    if (auto reason = decodePng(file, picture)) return reason;
    lay(picture, frame, !frame.isOpaque, canvas);
    return std::nullopt;
  }

  Bytes header_;
  /// What stands before the first picture, palette and colours for instance.
  Data head_;
  bool isHead_ = true;
  bool hasTransparentColors_ = false;
  bool isFull_ = false;
  /// Of the frame that is being read.
  Bytes control_;
  std::vector<Bytes> parts_;
  std::vector<std::vector<Bytes>> frameData_;
};

}  // namespace

bool isAnimatedPng(Bytes bytes) {
  Bytes rest = bytes.subspan(std::min(kSignature.size(), bytes.size()));
  while (const auto chunk = takeChunk(rest)) {
    if (chunk->type == "acTL") return true;
    if (chunk->type == "IDAT") return false;
  }
  return false;
}

Expected<std::shared_ptr<ImageSource>> createApngSource(std::shared_ptr<DataProvider> data, std::string name) {
  return createAnimation<ApngSource>(std::move(data), std::move(name));
}

}  // namespace tavrel
