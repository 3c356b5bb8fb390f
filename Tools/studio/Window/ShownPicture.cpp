#include "Window/ShownPicture.h"

namespace tavrel::studio {

bool ShownPicture::look(const std::shared_ptr<TavrelGPUImageView>& view, Size size) {
  if (!view) {
    latest_.reset();
    return false;
  }
  view_ = view;
  if (view->bounds().size != size) {
    view->setContentScaleFactor(1);
    view->setFrame({{0, 0}, size});
    view->layoutIfNeeded();
  }
  const auto& layer = static_cast<const DrawableLayer&>(*view->layer());
  if (auto frame = layer.drawable()->latestFrame()) latest_ = std::move(frame);
  return latest_ && latest_->sequenceNumber() != taken_;
}

const std::shared_ptr<const GLDrawableFrame>& ShownPicture::take() {
  if (latest_) taken_ = latest_->sequenceNumber();
  return latest_;
}

}  // namespace tavrel::studio
