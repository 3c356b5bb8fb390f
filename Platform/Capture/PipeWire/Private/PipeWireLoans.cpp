#include "Platform/Capture/PipeWire/Private/PipeWireLoans.h"

#include <gbm.h>
#include <libyuv/planar_functions.h>

#include <algorithm>
#include <utility>

#include "Platform/Capture/PipeWire/Private/DmaBufReading.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Graphics/PixelBufferAttachments.h"

namespace tavrel {
namespace {

/// One to be filled, one on its way, and one on its way back.
constexpr std::ptrdiff_t kLeftToCamera = 3;

/// What the planes of a layout are to the GPU. Colours are opaque.
std::array<std::uint32_t, 2> deviceFormatsOf(FrameLayout layout) {
  switch (layout) {
    case FrameLayout::bgra: return {GBM_FORMAT_XRGB8888};
    case FrameLayout::rgba: return {GBM_FORMAT_XBGR8888};
    case FrameLayout::argb: return {GBM_FORMAT_BGRX8888};
    case FrameLayout::abgr: return {GBM_FORMAT_RGBX8888};
    case FrameLayout::nv12: return {GBM_FORMAT_R8, GBM_FORMAT_GR88};
    default: return {};
  }
}

std::string_view nameOf(FrameMatrix matrix) {
  switch (matrix) {
    case FrameMatrix::bt709: return kYCbCrMatrixITU_R_709_2;
    case FrameMatrix::bt2020: return kYCbCrMatrixITU_R_2020;
    case FrameMatrix::bt601: break;
  }
  return kYCbCrMatrixITU_R_601_4;
}

bool read(const RawFrame& frame, const PixelLayout& layout, std::uint8_t* bytes) {
  if (layout.planeCount == 1) return FrameConverter().convert(frame, bytes, layout.planes[0].bytesPerRow).has_value();
  const auto planes = FrameConverter::planesOf(frame);
  for (std::size_t i = 0; planes && i < layout.planeCount; ++i) {
    const PixelPlane& plane = layout.planes.at(i);
    libyuv::CopyPlane(planes->at(i).bytes, static_cast<int>(planes->at(i).bytesPerRow), bytes + plane.offset,
                      static_cast<int>(plane.bytesPerRow), static_cast<int>(plane.width * plane.bytesPerSample),
                      static_cast<int>(plane.height));
  }
  return planes.has_value();
}

}  // namespace

std::vector<std::uint64_t> importableModifiers(FrameLayout layout) {
  const auto [first, second] = deviceFormatsOf(layout);
  if (first == 0) return {};
  auto modifiers = LentPixelBuffer::modifiersOf(first);
  // Planes that lie otherwise than in rows are not read back.
  const auto chroma = second != 0 ? LentPixelBuffer::modifiersOf(second) : modifiers;
  std::erase_if(modifiers, [&, isPlanar = second != 0](std::uint64_t modifier) {
    return (isPlanar && !isLinear(modifier)) || std::ranges::count(chroma, modifier) == 0;
  });
  return modifiers;
}

PipeWireLoans::~PipeWireLoans() {
  while (!loans_.empty()) remove(*loans_.begin()->first);
}

void PipeWireLoans::begin(const PipeWireAgreement& agreed) {
  // Buffers of another layout come only when those of this one have gone.
  for (auto& [buffer, loan] : loans_) {
    if (!loan.out) loan.picture = nullptr;
  }
  modifier_ = agreed.modifier.value_or(DeviceMemory::kImplicit);
  const bool isNarrow = agreed.frame.layout != FrameLayout::nv12 && agreed.frame.range == FrameRange::limited;
  isImported_ = !isRefused_ && !isNarrow && !importableModifiers(agreed.frame.layout).empty();
}

void PipeWireLoans::remove(const pw_buffer& buffer) {
  const auto found = loans_.find(&buffer);
  if (found == loans_.end()) return;
  if (found->second.out) found->second.picture->end();
  loans_.erase(found);
}

bool PipeWireLoans::hasSpareBuffers() const {
  const auto out = std::ranges::count_if(loans_, [](const auto& each) { return each.second.out != nullptr; });
  return out + kLeftToCamera < std::ssize(loans_);
}

std::array<DeviceMemory, 2> PipeWireLoans::memoryOf(const pw_buffer& buffer, const RawFrame& frame,
                                                    const Blocks& blocks) const {
  const spa_buffer& parts = *buffer.buffer;
  const auto formats = deviceFormatsOf(frame.layout);
  const auto width = static_cast<std::uint32_t>(frame.width);
  const auto height = static_cast<std::uint32_t>(frame.height);
  const auto numberOf = [](std::size_t value) { return static_cast<std::uint32_t>(value); };
  std::array<DeviceMemory, 2> memory;
  memory[0] = {.format = formats[0], .width = width, .height = height, .modifier = modifier_};
  if (!isLinear(modifier_)) {
    for (std::uint32_t i = 0; i < std::min(parts.n_datas, numberOf(memory[0].parts.size())); ++i) {
      const spa_data& data = parts.datas[i];
      memory[0].parts.at(i) = {static_cast<int>(data.fd), data.mapoffset + data.chunk->offset,
                               numberOf(static_cast<std::size_t>(data.chunk->stride))};
    }
    return memory;
  }
  const auto planes = FrameConverter::planesOf(frame);
  if (!planes || frame.isBottomUp) return {};
  memory[1] = {.format = formats[1], .width = (width + 1) / 2, .height = (height + 1) / 2, .modifier = modifier_};
  for (std::size_t i = 0; i < memory.size() && formats.at(i) != 0; ++i) {
    const RawFrame::Plane& plane = planes->at(i);
    // Planes may share the first block.
    const std::size_t number = i < parts.n_datas ? i : 0;
    const Block& block = blocks.at(number);
    if (plane.bytes < block.bytes || plane.bytes >= block.bytes + block.length) return {};
    memory.at(i).parts[0] = {static_cast<int>(parts.datas[number].fd),
                             numberOf(block.offset + static_cast<std::size_t>(plane.bytes - block.bytes)),
                             numberOf(plane.bytesPerRow)};
  }
  return memory;
}

bool PipeWireLoans::prepare(Loan& loan, const pw_buffer& buffer, const RawFrame& frame, const Blocks& blocks) {
  const auto memory = memoryOf(buffer, frame, blocks);
  if (memory[0].format == 0) return false;
  if (loan.picture && loan.picture->planes() == memory) return true;
  LentPixelBuffer::Picture picture = {.planes = memory};
  if (frame.range == FrameRange::full) picture.planarFormat = PixelFormat::biPlanar420FullRange;
  if (isLinear(modifier_)) {
    picture.read = [frame, &memoryToRead = *buffer.buffer](const PixelLayout& layout, std::uint8_t* bytes) {
      const DmaBufReading reading(memoryToRead);
      return read(frame, layout, bytes);
    };
  }
  auto made = LentPixelBuffer::create(std::move(picture));
  if (!made) {
    ConsoleLog::write("The camera's buffers are copied, for the GPU does not take them: {}", made.error().description);
    isRefused_ = true;
    isImported_ = false;
    return false;
  }
  loan.picture = std::move(*made);
  if (const auto planes = PixelBuffer::planesOf(loan.picture->lend())) {
    planes->setAttachment(std::string(kPixelBufferYCbCrMatrixKey), std::string(nameOf(frame.matrix)), true);
  }
  return true;
}

std::shared_ptr<PixelBuffer> PipeWireLoans::lend(pw_buffer& buffer, const RawFrame& frame, const Blocks& blocks) {
  const spa_buffer& parts = *buffer.buffer;
  const auto isDevice = [](const spa_data& data) { return data.type == SPA_DATA_DmaBuf && data.chunk; };
  const auto found = loans_.find(&buffer);
  if (!isImported_ || found == loans_.end() || !std::all_of(parts.datas, parts.datas + parts.n_datas, isDevice) ||
      !hasSpareBuffers() || !prepare(found->second, buffer, frame, blocks)) {
    return nullptr;
  }
  found->second.out = &buffer;
  return found->second.picture->lend();
}

bool PipeWireLoans::copy(const pw_buffer& buffer, const RawFrame& frame, PixelBuffer& picture) {
  const auto found = loans_.find(&buffer);
  if (isLinear(modifier_) || !isImported_ || found == loans_.end() || !prepare(found->second, buffer, frame, {})) {
    return false;
  }
  const auto lent = found->second.picture->lend();
  lent->lockBaseAddress(PixelBufferLock::readOnly);
  picture.lockBaseAddress(PixelBufferLock::readWrite);
  libyuv::ARGBCopy(lent->baseAddress(), static_cast<int>(lent->bytesPerRow()), picture.baseAddress(),
                   static_cast<int>(picture.bytesPerRow()), frame.width, frame.height);
  picture.unlockBaseAddress(PixelBufferLock::readWrite);
  lent->unlockBaseAddress(PixelBufferLock::readOnly);
  return true;
}

bool PipeWireLoans::isOut(const pw_buffer& buffer) const {
  const auto found = loans_.find(&buffer);
  return found != loans_.end() && found->second.out;
}

std::vector<pw_buffer*> PipeWireLoans::takeReturned() {
  std::vector<pw_buffer*> returned;
  for (auto& [buffer, loan] : loans_) {
    if (!loan.out || loan.picture->isOut()) continue;
    returned.push_back(std::exchange(loan.out, nullptr));
  }
  return returned;
}

}  // namespace tavrel
