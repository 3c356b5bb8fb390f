#include "Capture/Private/RecordedDevices.h"

#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

#include "Platform/Capture/CaptureDelivery.h"
#include "Platform/Capture/CaptureDevice.h"
#include "Platform/Capture/CaptureDeviceInput.h"
#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/CaptureSession.h"
#include "Platform/Media/MediaError.h"

namespace tavrel {
namespace {

/// What the session's device delivers.
std::optional<CaptureDelivery> deliveryOf(const CaptureSession& session) {
  const auto inputs = session.inputs();
  return inputs.empty() ? std::nullopt : inputs.front()->device()->delivery();
}

/// Why no picture came.
Error reasonForNoPicture(const CaptureSession& session) {
  std::string text = "no picture came from the camera while it was being recorded";
  if (const auto delivery = deliveryOf(session)) text += "; it delivers " + delivery->description();
  return session.runtimeError().value_or(makeError(CaptureErrorCode::deviceSilent, text));
}

}  // namespace

bool isStamped(const CaptureSession& session) {
  const auto delivery = deliveryOf(session);
  return delivery && delivery->isStamped;
}

TavrelRecording withPictures(TavrelRecording recording, const CaptureSession& camera) {
  const bool isOtherFailure = recording.error && !(*recording.error == MediaErrorCode::emptyMovie);
  if (isOtherFailure || recording.statistics.framesWritten > 0) return recording;
  recording.error = reasonForNoPicture(camera);
  recording.playableSeconds = 0;
  std::error_code ignored;
  std::filesystem::remove(recording.file, ignored);
  return recording;
}

}  // namespace tavrel
