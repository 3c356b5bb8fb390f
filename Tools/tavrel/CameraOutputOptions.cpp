#include "CameraOutputOptions.h"

#include <utility>

#include "Report.h"

namespace tavrel::tool {

CameraOutputOptions CameraOutputOptions::ofCameraCommand(CLI::App& command) {
  return {command, "--to", "--name", "pipewire"};
}

CameraOutputOptions CameraOutputOptions::besides(CLI::App& command) {
  return {command, "--camera-output", "--camera-name", ""};
}

CameraOutputOptions::CameraOutputOptions(CLI::App& command, const char* destination, const char* name,
                                         std::string defaultDestination) {
  configuration_.destination = std::move(defaultDestination);
  command.add_option(destination, configuration_.destination, "Be a camera for other programs, there")
      ->type_name("pipewire|/dev/videoN")
      ->capture_default_str();
  command.add_option(name, configuration_.name, "The name of that camera")->type_name("NAME")->capture_default_str();
}

Expected<std::shared_ptr<TavrelGPUImageCameraOutput>> CameraOutputOptions::attachTo(TavrelRecorder& recorder, Size size,
                                                                                    double framesPerSecond) const {
  if (configuration_.destination.empty()) return nullptr;
  TavrelGPUImageCameraOutput::Configuration wanted = configuration_;
  wanted.size = size;
  wanted.framesPerSecond = framesPerSecond;
  auto output = TavrelGPUImageCameraOutput::create(wanted);
  if (!output) return output;
  (*output)->setFailureHandler([](const Error& error) {
    say("{}; the camera for other programs is back as soon as that is", error.description);
  });
  recorder.setCameraOutput(*output);
  return output;
}

}  // namespace tavrel::tool
