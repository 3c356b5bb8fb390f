// The camera's preview inside an SDL application that keeps its window, its renderer and its event loop to itself.
// A click focuses; q or closing the window ends it.
//   PreviewInSDL [SECONDS]
#include <SDL.h>
#include <fmt/format.h>
#include <poll.h>

#include <cstdlib>

#include "TavrelCaptureBase.h"

using namespace tavrel;

namespace {

constexpr int kWidth = 640;
constexpr int kHeight = 480;

/// Says on the main thread that there is a new picture, which also wakes the application's loop.
class FrameWatch : public TavrelCameraDelegate {
 public:
  void didGetProcessedFramebuffer(TavrelCamera&, const std::shared_ptr<TavrelGPUImageFramebuffer>&,
                                  const SampleTiming&) override {
    DispatchQueue::main()->async([this] { ++frames; });
  }

  int frames = 0;  // main thread
};

/// SDL's window, and a texture that shows what the library composes.
class Display {
 public:
  Display() {
    // Without GL: the library's compositor has a context of its own on this thread, of which SDL would know nothing.
    SDL_SetHint(SDL_HINT_FRAMEBUFFER_ACCELERATION, "0");
    SDL_Init(SDL_INIT_VIDEO);
    window_ = SDL_CreateWindow("Preview", SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED, kWidth, kHeight, 0);
    renderer_ = SDL_CreateRenderer(window_, -1, SDL_RENDERER_SOFTWARE);
    // R, G, B, A bytes, as the compositor gives them.
    texture_ = SDL_CreateTexture(renderer_, SDL_PIXELFORMAT_RGBA32, SDL_TEXTUREACCESS_STREAMING, kWidth, kHeight);
  }
  Display(const Display&) = delete;
  Display& operator=(const Display&) = delete;
  ~Display() {
    if (texture_) SDL_DestroyTexture(texture_);
    if (renderer_) SDL_DestroyRenderer(renderer_);
    if (window_) SDL_DestroyWindow(window_);
    SDL_Quit();
  }

  bool isOpen() const { return texture_ != nullptr; }
  void show(const Image& image) {
    SDL_UpdateTexture(texture_, nullptr, image.dataProvider()->bytes().data(), static_cast<int>(image.bytesPerRow()));
    SDL_RenderCopy(renderer_, texture_, nullptr, nullptr);
    SDL_RenderPresent(renderer_);
  }

 private:
  SDL_Window* window_ = nullptr;
  SDL_Renderer* renderer_ = nullptr;
  SDL_Texture* texture_ = nullptr;
};

/// False when the application shall end.
bool handle(const SDL_Event& event, TouchDispatcher& touches) {
  const Point mouse = {static_cast<double>(event.button.x), static_cast<double>(event.button.y)};
  if (event.type == SDL_MOUSEBUTTONDOWN) touches.touchBegan(0, mouse);
  if (event.type == SDL_MOUSEBUTTONUP) touches.touchEnded(0, mouse, SDL_GetTicks64() / 1000.0);
  return event.type != SDL_QUIT && !(event.type == SDL_KEYDOWN && event.key.keysym.sym == SDLK_q);
}

}  // namespace

int main(int argc, char** argv) {
  const Uint64 end = argc > 1 ? static_cast<Uint64>(std::atof(argv[1]) * 1000) : UINT64_MAX;
  Display display;
  TavrelCameraConfiguration configuration;
  configuration.size = {kWidth, kHeight};
  configuration.preferredSessionPreset = kCaptureSessionPresetMedium;
  const auto camera = TavrelCamera::create(configuration);
  if (!display.isOpen() || !camera) {
    fmt::print(stderr, "{}\n", camera ? SDL_GetError() : camera.error().description);
    return 1;
  }
  const auto watch = std::make_shared<FrameWatch>();
  (*camera)->setDelegate(watch);
  const auto root = std::make_shared<View>(Rect{{0, 0}, {kWidth, kHeight}});
  (*camera)->previewView()->setFrame(root->bounds());
  root->addSubview((*camera)->previewView());
  TouchDispatcher touches(root);
  Compositor compositor;
  (*camera)->startWithCompletion({});

  int shown = 0;
  for (bool isRunning = true; isRunning && SDL_GetTicks64() < end;) {
    // Until the library has work for the main thread, but no longer than events may wait.
    pollfd work = {RunLoop::main().fileDescriptor(), POLLIN, 0};
    poll(&work, 1, 10);
    RunLoop::main().drain();
    for (SDL_Event event; isRunning && SDL_PollEvent(&event) != 0;) isRunning = handle(event, touches);
    if (watch->frames == shown) continue;
    shown = watch->frames;
    if (const auto image = compositor.imageOf(*root, {.scale = 1})) display.show(**image);
  }
  (*camera)->stop();
  fmt::print("{} frames shown\n", shown);
}
