#include "Platform/Capture/CaptureSession.h"

#include <utility>

#include "Platform/Capture/Private/CaptureSessionCore.h"

namespace tavrel {

std::shared_ptr<CaptureSession> CaptureSession::create() {
  auto core = std::make_shared<CaptureSessionCore>();
  std::shared_ptr<CaptureSession> session(new CaptureSession(core));
  core->setOwner(session);
  return session;
}

CaptureSession::CaptureSession(std::shared_ptr<CaptureSessionCore> core) : core_(std::move(core)) {}

CaptureSession::~CaptureSession() { core_->stopRunning(); }

std::string CaptureSession::sessionPreset() const { return core_->sessionPreset(); }

bool CaptureSession::canSetSessionPreset(std::string_view preset) const { return core_->canSetSessionPreset(preset); }

void CaptureSession::setSessionPreset(std::string_view preset) { core_->setSessionPreset(preset); }

void CaptureSession::beginConfiguration() { core_->beginConfiguration(); }

void CaptureSession::commitConfiguration() { core_->commitConfiguration(); }

bool CaptureSession::canAddInput(const std::shared_ptr<CaptureDeviceInput>& input) const {
  return core_->canAddInput(input);
}

void CaptureSession::addInput(const std::shared_ptr<CaptureDeviceInput>& input) { core_->addInput(input); }

void CaptureSession::removeInput(const std::shared_ptr<CaptureDeviceInput>& input) { core_->removeInput(input); }

std::vector<std::shared_ptr<CaptureDeviceInput>> CaptureSession::inputs() const { return core_->inputs(); }

bool CaptureSession::canAddOutput(const std::shared_ptr<CaptureOutput>& output) const {
  return core_->canAddOutput(output);
}

void CaptureSession::addOutput(const std::shared_ptr<CaptureOutput>& output) { core_->addOutput(output); }

void CaptureSession::removeOutput(const std::shared_ptr<CaptureOutput>& output) { core_->removeOutput(output); }

std::vector<std::shared_ptr<CaptureOutput>> CaptureSession::outputs() const { return core_->outputs(); }

void CaptureSession::startRunning() { core_->startRunning(); }

void CaptureSession::stopRunning() { core_->stopRunning(); }

bool CaptureSession::isRunning() const { return core_->isRunning(); }

std::optional<Error> CaptureSession::runtimeError() const { return core_->runtimeError(); }

}  // namespace tavrel
