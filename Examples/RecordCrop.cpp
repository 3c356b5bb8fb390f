// Two seconds of the camera, cropped to its middle, into movie.mov.
#include "TavrelCaptureBase.h"

using namespace tavrel;

int main() {
  auto input = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  auto crop = std::make_shared<TavrelGPUImageCropFilter>(Rect{{0.25, 0}, {0.5, 1}});
  auto writer = std::make_shared<TavrelGPUImageMovieWriter>("movie.mov", Size{320, 360});
  input->addTarget(crop);
  crop->addTarget(writer);
  writer->startRecording();

  auto camera = VirtualCamera::create("front", {.width = 640, .height = 360}).value();
  camera->start([&](auto frame, MediaTime time) { input->processCVPixelBuffer(frame, time, true); },
                DispatchQueue::create("camera"));
  RunLoop::main().runFor(std::chrono::seconds(2));
  camera->stop();

  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});  // the last frame has passed the graph
  DispatchSemaphore finished(0);
  writer->finishRecordingWithCompletionHandler([&] { finished.signal(); });
  finished.wait();
}
