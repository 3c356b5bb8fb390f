#include "Window/StudioApplication.h"

#include <imgui.h>
#include <poll.h>

#include <algorithm>
#include <csignal>
#include <ctime>

#include "Panels/Style.h"

namespace tavrel::studio {
namespace {

volatile std::sig_atomic_t isInterrupted = 0;

/// What the calling thread has computed so far.
double threadSeconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

}  // namespace

StudioApplication::StudioApplication(std::unique_ptr<StudioWindow> window, Studio& studio)
    : window_(std::move(window)), studio_(studio) {
  ImGui::CreateContext();
  ImGui::GetIO().IniFilename = nullptr;  // the studio keeps its own settings
  input_ = std::make_unique<PanelInput>(ImGui::GetIO());
  panels_ = std::make_unique<StudioPanels>(studio_);
}

StudioApplication::~StudioApplication() {
  if (window_->beginDrawing()) {
    panels_.reset();
    renderer_.reset();
    fontTexture_.reset();
  }
  input_.reset();
  ImGui::DestroyContext();
}

Expected<void> StudioApplication::run(const std::vector<std::filesystem::path>& files) {
  if (!window_->beginDrawing()) return failure("studio", 3, "the window's graphics cannot be used");
  auto renderer = PanelRenderer::create();
  if (!renderer) return tl::unexpected(renderer.error());
  renderer_ = std::move(*renderer);
  window_->endDrawing();
  std::signal(SIGINT, [](int) { isInterrupted = 1; });
  Application::shared().observeSystem();
  studio_.open();
  for (const auto& file : files) studio_.addFile(std::filesystem::absolute(file));
  while (!isEnding_ && isInterrupted == 0 && !Application::shared().isTerminating()) {
    wait();
    RunLoop::main().drain();
    handleEvents();
    studio_.update();
    if (needsDrawing()) draw();
  }
  if (!window_->isSeen()) return {};
  studio_.settings().windowSize = window_->size();
  return {};
}

void StudioApplication::wait() {
  constexpr int kLongest = 5;  // milliseconds that the window's events may wait
  pollfd work = {RunLoop::main().fileDescriptor(), POLLIN, 0};
  poll(&work, 1, kLongest);
}

void StudioApplication::handleEvents() {
  for (SDL_Event event; SDL_PollEvent(&event) != 0;) {
    lastEvent_ = steadySeconds();
    handle(event);
    input_->add(event);
  }
}

void StudioApplication::handle(const SDL_Event& event) {
  const bool isTyping = ImGui::GetIO().WantTextInput;
  switch (event.type) {
    case SDL_QUIT: isEnding_ = true; return;
    case SDL_DROPFILE: return dropFile(event);
    case SDL_KEYDOWN: {
      if (event.key.repeat != 0) return;
      const std::string key = SDL_GetKeyName(event.key.keysym.sym);
      if (key == "Q" && (event.key.keysym.mod & KMOD_CTRL) != 0) isEnding_ = true;
      if (key == "F11") window_->toggleFullScreen();
      if (!isTyping && (event.key.keysym.mod & (KMOD_CTRL | KMOD_ALT)) == 0) panels_->press(key);
      return;
    }
    case SDL_KEYUP: return panels_->release(SDL_GetKeyName(event.key.keysym.sym));
    default: return;
  }
}

void StudioApplication::dropFile(const SDL_Event& event) {
  const std::filesystem::path file = event.drop.file;
  SDL_free(event.drop.file);
  const Point corner = window_->position();
  const Point held = drags_.place();
  const Point inWindow = {(held.x - corner.x + 0.5) * pixelsPerPoint(), (held.y - corner.y + 0.5) * pixelsPerPoint()};
  const Size frame = studio_.effects().frameSize();
  const Point place = layout().toFrame(inWindow, frame, studio_.settings().mirrors);
  const bool isOver = place.x >= 0 && place.y >= 0 && place.x < frame.width && place.y < frame.height;
  studio_.addFile(file, isOver ? std::optional(place) : std::nullopt);
}

double StudioApplication::pixelsPerPoint() const {
  return window_->sizeInPixels().width / std::max(1.0, window_->size().width);
}

Layout StudioApplication::layout() const {
  const ImFontAtlas& fonts = *ImGui::GetIO().Fonts;
  const double line = fonts.Fonts.empty() ? 15 : fonts.Fonts[0]->FontSize;
  return Layout::of(window_->sizeInPixels(), studio_.effects().frameSize(), line, studio_.settings().showsPanels);
}

bool StudioApplication::needsDrawing() {
  if (!window_->isSeen()) return false;
  std::shared_ptr<TavrelGPUImageView> view;
  if (studio_.recorder()) view = studio_.recorder()->previewView();
  if (studio_.before().isOn()) view = studio_.before().view();
  const Size frame = studio_.effects().frameSize();
  const Rect shown = layout().picture;
  // Never larger than the frame: enlarging is the window's work.
  const bool isNew = picture_.look(view, shown.size.width < frame.width ? shown.size : frame);
  const double now = steadySeconds();
  constexpr double kAfterEvent = 0.3;  // what an event changes may take some drawings to settle
  constexpr double kShortest = 1 / 70.0;
  constexpr double kLongest = 0.1;  // clock and level meter
  if (input_->isWaiting() || isNew) return true;
  return now - drawn_ > (now - lastEvent_ < kAfterEvent ? kShortest : kLongest);
}

void StudioApplication::draw() {
  if (!window_->beginDrawing()) return;
  drawn_ = steadySeconds();
  const double scale = window_->scale() * studio_.settings().zoomOfPanels;
  if (scale != styledFor_) {
    fontTexture_ = applyStyle(scale);
    styledFor_ = scale;
  }
  const Size size = window_->sizeInPixels();
  ImGuiIO& io = ImGui::GetIO();
  io.DisplaySize = ImVec2(static_cast<float>(size.width), static_cast<float>(size.height));
  io.DeltaTime = std::clamp(static_cast<float>(drawn_ - report_.drawnBefore()), 1e-4F, 0.1F);
  input_->advance(pixelsPerPoint());
  const Layout parts = layout();
  renderer_->begin(size, parts.room);
  const auto& picture = picture_.take();
  if (picture) {
    picture->waitUntilDrawn();
    renderer_->drawPicture(picture->texture(), parts.picture, studio_.settings().mirrors);
    picture->noteRead();
  }
  drawPanels(parts);
  window_->endDrawing();
  input_->showPointer();
}

void StudioApplication::drawPanels(const Layout& layout) {
  const double began = threadSeconds();
  ImGui::NewFrame();
  panels_->draw(layout);
  ImGui::Render();
  renderer_->drawPanels(*ImGui::GetDrawData());
  report_.notePanels(drawn_, threadSeconds() - began);
  report_.write(studio_, layout, {window_->position(), window_->size()});
}

}  // namespace tavrel::studio
