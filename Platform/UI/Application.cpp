#include "Platform/UI/Application.h"

namespace tavrel {

Application& Application::shared() {
  static auto* application = new Application;
  return *application;
}

}  // namespace tavrel
