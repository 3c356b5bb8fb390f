#include "Window/PanelInput.h"

#include <imgui.h>

#include <utility>

namespace tavrel::studio {
namespace {

constexpr std::pair<ImGuiKey_, SDL_Scancode> kKeys[] = {
    {ImGuiKey_Tab, SDL_SCANCODE_TAB},
    {ImGuiKey_LeftArrow, SDL_SCANCODE_LEFT},
    {ImGuiKey_RightArrow, SDL_SCANCODE_RIGHT},
    {ImGuiKey_UpArrow, SDL_SCANCODE_UP},
    {ImGuiKey_DownArrow, SDL_SCANCODE_DOWN},
    {ImGuiKey_PageUp, SDL_SCANCODE_PAGEUP},
    {ImGuiKey_PageDown, SDL_SCANCODE_PAGEDOWN},
    {ImGuiKey_Home, SDL_SCANCODE_HOME},
    {ImGuiKey_End, SDL_SCANCODE_END},
    {ImGuiKey_Delete, SDL_SCANCODE_DELETE},
    {ImGuiKey_Backspace, SDL_SCANCODE_BACKSPACE},
    {ImGuiKey_Space, SDL_SCANCODE_SPACE},
    {ImGuiKey_Enter, SDL_SCANCODE_RETURN},
    {ImGuiKey_KeyPadEnter, SDL_SCANCODE_KP_ENTER},
    {ImGuiKey_Escape, SDL_SCANCODE_ESCAPE},
    {ImGuiKey_A, SDL_SCANCODE_A},
    {ImGuiKey_C, SDL_SCANCODE_C},
    {ImGuiKey_V, SDL_SCANCODE_V},
    {ImGuiKey_X, SDL_SCANCODE_X},
    {ImGuiKey_Y, SDL_SCANCODE_Y},
    {ImGuiKey_Z, SDL_SCANCODE_Z},
};

SDL_SystemCursor pointerFor(ImGuiMouseCursor cursor) {
  switch (cursor) {
    case ImGuiMouseCursor_TextInput: return SDL_SYSTEM_CURSOR_IBEAM;
    case ImGuiMouseCursor_ResizeAll: return SDL_SYSTEM_CURSOR_SIZEALL;
    case ImGuiMouseCursor_ResizeNWSE: return SDL_SYSTEM_CURSOR_SIZENWSE;
    case ImGuiMouseCursor_Hand: return SDL_SYSTEM_CURSOR_HAND;
    default: return SDL_SYSTEM_CURSOR_ARROW;
  }
}

}  // namespace

PanelInput::PanelInput(ImGuiIO& io) : io_(io) {
  for (const auto& [key, code] : kKeys) io_.KeyMap[key] = code;
  io_.BackendFlags |= ImGuiBackendFlags_HasMouseCursors;
  io_.ClipboardUserData = this;
  io_.SetClipboardTextFn = [](void*, const char* text) { SDL_SetClipboardText(text); };
  io_.GetClipboardTextFn = [](void* self) {
    char* const text = SDL_GetClipboardText();
    static_cast<PanelInput*>(self)->clipboard_ = text ? text : "";
    SDL_free(text);
    return static_cast<PanelInput*>(self)->clipboard_.c_str();
  };
}

PanelInput::~PanelInput() {
  for (SDL_Cursor* const pointer : pointers_) {
    if (pointer) SDL_FreeCursor(pointer);
  }
}

void PanelInput::advance(double pixelsPerPoint) {
  bool isPressed = false;
  bool hasMoved = false;
  while (!events_.empty() && !isPressed) {
    const SDL_Event event = events_.front();
    // What lies under the mouse has to be drawn as such before it can be pressed.
    if (hasMoved && (event.type == SDL_MOUSEBUTTONDOWN || event.type == SDL_MOUSEBUTTONUP)) return;
    hasMoved = hasMoved || event.type == SDL_MOUSEMOTION;
    events_.pop_front();
    isPressed = handle(event, pixelsPerPoint);
  }
}

bool PanelInput::handle(const SDL_Event& event, double pixelsPerPoint) {
  switch (event.type) {
    case SDL_MOUSEMOTION:
      io_.MousePos = ImVec2(static_cast<float>((event.motion.x + 0.5) * pixelsPerPoint),
                            static_cast<float>((event.motion.y + 0.5) * pixelsPerPoint));
      return false;
    case SDL_MOUSEBUTTONDOWN:
    case SDL_MOUSEBUTTONUP: return handleButton(event.button, pixelsPerPoint);
    case SDL_MOUSEWHEEL:
      io_.MouseWheel += event.wheel.preciseY;
      io_.MouseWheelH += event.wheel.preciseX;
      return true;
    case SDL_TEXTINPUT: io_.AddInputCharactersUTF8(event.text.text); return false;
    case SDL_KEYDOWN:
    case SDL_KEYUP: return handleKey(event.key);
    case SDL_WINDOWEVENT:
      if (event.window.event == SDL_WINDOWEVENT_FOCUS_LOST) io_.AddFocusEvent(false);
      if (event.window.event == SDL_WINDOWEVENT_FOCUS_GAINED) io_.AddFocusEvent(true);
      return false;
    default: return false;
  }
}

bool PanelInput::handleButton(const SDL_MouseButtonEvent& event, double pixelsPerPoint) {
  io_.MousePos = ImVec2(static_cast<float>((event.x + 0.5) * pixelsPerPoint),
                        static_cast<float>((event.y + 0.5) * pixelsPerPoint));
  const int button = event.button == SDL_BUTTON_LEFT ? 0 : event.button == SDL_BUTTON_RIGHT ? 1 : 2;
  io_.MouseDown[button] = event.state == SDL_PRESSED;
  // What is dragged out of the window is still held.
  SDL_CaptureMouse(io_.MouseDown[0] ? SDL_TRUE : SDL_FALSE);
  return true;
}

bool PanelInput::handleKey(const SDL_KeyboardEvent& event) {
  const bool isDown = event.type == SDL_KEYDOWN;
  io_.KeysDown[event.keysym.scancode] = isDown;
  io_.KeyShift = (event.keysym.mod & KMOD_SHIFT) != 0;
  io_.KeyCtrl = (event.keysym.mod & KMOD_CTRL) != 0;
  io_.KeyAlt = (event.keysym.mod & KMOD_ALT) != 0;
  return true;
}

void PanelInput::showPointer() {
  const SDL_SystemCursor wanted = pointerFor(ImGui::GetMouseCursor());
  SDL_Cursor*& pointer = pointers_[wanted];
  if (!pointer) pointer = SDL_CreateSystemCursor(wanted);
  if (pointer && pointer != SDL_GetCursor()) SDL_SetCursor(pointer);
}

}  // namespace tavrel::studio
