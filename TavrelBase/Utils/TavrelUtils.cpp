#include "TavrelBase/Utils/TavrelUtils.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Dispatch/RunLoop.h"
#include "TavrelBase/Log/LogCall.h"

namespace tavrel {
namespace {

std::string describeStatus(std::int32_t status) {
  std::array<char, 4> characters{};
  for (int i = 0; i < 4; ++i) characters[i] = static_cast<char>(static_cast<std::uint32_t>(status) >> (24 - 8 * i));
  const bool isText = std::ranges::all_of(characters, [](char c) { return c >= ' ' && c <= '~'; });
  return isText ? std::string(characters.data(), characters.size()) : fmt::to_string(status);
}

}  // namespace

Error TavrelNewError(std::int64_t code, std::string description) {
  return Error{kTavrelErrorDomain, code, std::move(description)};
}

bool TavrelCheckStatus(std::int32_t status, std::string_view description, std::optional<Error>* error) {
  if (status == 0) {
    if (error) error->reset();
    return true;
  }
  std::string message = fmt::format("{}: {}", description, describeStatus(status));
  TAVREL_LOG_ERROR("TavrelUtils", "{}", message);
  if (error) *error = TavrelNewError(kTavrelErrorCode, std::move(message));
  return false;
}

void TavrelDispatchSyncMain(const std::function<void()>& block) {
  if (RunLoop::isMainThread()) {
    block();
  } else {
    DispatchQueue::main()->sync(block);
  }
}

AffineTransform TavrelGetTransform(const Rect& rectangle, Size frameSize, float rotation) {
  const double unit = frameSize.width / 2;
  return AffineTransform{}
      .translatedBy((rectangle.midX() - frameSize.width / 2) / unit, (rectangle.midY() - frameSize.height / 2) / unit)
      .rotatedBy(rotation)
      .scaledBy(rectangle.size.width / frameSize.width, rectangle.size.height / frameSize.height);
}

}  // namespace tavrel
