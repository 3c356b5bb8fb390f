#include "PreviewCommand.h"

#include "Report.h"

namespace tavrel::tool {
namespace {

VirtualCamera::Configuration cameraConfiguration() {
  return {.width = 640, .height = 480, .frameRate = 30};
}

/// The preview that fills `window`, with the ring that a click shows.
std::shared_ptr<TavrelGPUImageView> previewIn(Window& window) {
  auto view = std::make_shared<TavrelGPUImageView>(window.rootView()->bounds());
  const auto ring = std::make_shared<TavrelFocusView>(Rect{{0, 0}, {50, 50}});
  view->setFillsSuperview(true);
  view->addSubview(ring);
  view->addGestureRecognizer(std::make_shared<TapGestureRecognizer>(
      [ring](TapGestureRecognizer& tap) { ring->show(tap.locationInView(ring->superview())); }));
  window.rootView()->addSubview(view);
  return view;
}

}  // namespace

PreviewCommand::PreviewCommand(CLI::App& app)
    : command_(app.add_subcommand("preview", "Look through the camera; q closes the window")), effects_(*command_) {
  command_->add_option("--camera", camera_, "front, back or file:PATH (a movie or picture)")
      ->type_name("NAME")
      ->capture_default_str();
}

int PreviewCommand::run() {
  // First of all: a window shows only what is drawn on the window system's own display.
  const auto userInterface = Application::shared().startUserInterface();
  const EffectChain effects = effects_.makeChain();  // wrong usage is said on machines without a display as well
  const auto camera = VirtualCamera::create(camera_, cameraConfiguration());
  if (!camera) return fail("{}", camera.error().description);
  if (!userInterface) {
    return fail("a window is asked for and none can be had: {}", userInterface.error().description);
  }
  const Size cameraSize = {static_cast<double>((*camera)->configuration().width),
                           static_cast<double>((*camera)->configuration().height)};
  const auto window = Window::create("tavrel preview", effects.sizeAfter(cameraSize));
  if (!window) return fail("a window is asked for and none can be had: {}", window.error().description);
  (*window)->setCloseHandler([] { RunLoop::main().stop(); });
  (*window)->setKeyHandler([](std::string_view key) {
    if (key == "Q") RunLoop::main().stop();
  });

  const auto input = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  effects.connect(input, cameraSize)->addTarget(previewIn(**window));
  (*camera)->start([&input](const std::shared_ptr<PixelBuffer>& picture,
                            MediaTime time) { input->processCVPixelBuffer(picture, time, false); },
                   DispatchQueue::create("org.tavrel.tool.camera"));
  RunLoop::main().run();
  (*camera)->stop();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});  // the last frame is shown
  return kSuccess;
}

}  // namespace tavrel::tool
