#pragma once

struct SDL_Window;

namespace tavrel::studio {

/// By how much the desktop wants programs to enlarge what they show, on displays that count in pixels: as GDK_SCALE
/// says, else as the X resource Xft.dpi does; 1 without either.
double desktopScale(SDL_Window* window);

}  // namespace tavrel::studio
