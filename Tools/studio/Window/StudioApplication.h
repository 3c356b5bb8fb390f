#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Model/Studio.h"
#include "Panels/StudioPanels.h"
#include "Window/DragWatch.h"
#include "Window/PanelInput.h"
#include "Window/PanelRenderer.h"
#include "Window/ShownPicture.h"
#include "Window/StateReport.h"
#include "Window/StudioWindow.h"

namespace tavrel::studio {

/// Joins window, panels and studio, and runs until a person quits. Main thread.
class StudioApplication {
 public:
  StudioApplication(std::unique_ptr<StudioWindow> window, Studio& studio);
  StudioApplication(const StudioApplication&) = delete;
  StudioApplication& operator=(const StudioApplication&) = delete;
  ~StudioApplication();

  /// Adds files to the effects, then runs.
  Expected<void> run(const std::vector<std::filesystem::path>& files);

 private:
  /// Waits until there is something to do.
  static void wait();
  void handleEvents();
  void handle(const SDL_Event& event);
  void dropFile(const SDL_Event& event);
  bool needsDrawing();
  void draw();
  void drawPanels(const Layout& layout);
  Layout layout() const;
  double pixelsPerPoint() const;

  const std::unique_ptr<StudioWindow> window_;
  const DragWatch drags_;
  Studio& studio_;
  std::unique_ptr<PanelRenderer> renderer_;
  std::unique_ptr<WindowTexture> fontTexture_;
  std::unique_ptr<PanelInput> input_;
  std::unique_ptr<StudioPanels> panels_;
  ShownPicture picture_;
  StateReport report_;
  double styledFor_ = 0;
  double drawn_ = 0;
  double lastEvent_ = 0;
  bool isEnding_ = false;
};

}  // namespace tavrel::studio
