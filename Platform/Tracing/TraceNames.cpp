#include "Platform/Tracing/TraceNames.h"

namespace tavrel {

const TraceNames& TraceNames::shared() {
  static const TraceNames names = {
      .framesIn = Tracer::name("frames in"),
      .framesDelivered = Tracer::name("frames delivered"),
      .framesShown = Tracer::name("frames shown"),
      .framesOut = Tracer::name("frames out"),
      .soundsIn = Tracer::name("sounds in"),
      .soundsOut = Tracer::name("sounds out"),
      .framebuffersCreated = Tracer::name("framebuffers created"),
      .framebuffersHeld = Tracer::name("framebuffers held"),
      .framebuffersCached = Tracer::name("framebuffers cached"),
      .toDelegate = Tracer::name("arrival to delegate"),
      .toFile = Tracer::name("arrival to file"),
      .soundAhead = Tracer::name("sound ahead of pictures"),
      .captureQueue = Tracer::name("wait for the capture queue"),
      .videoProcessingQueue = Tracer::name("wait for the video-processing queue"),
      .writerQueue = Tracer::name("wait for the writer queue"),
      .camera = Tracer::name("TavrelCamera"),
      .cameraDelegate = Tracer::name("TavrelCameraDelegate"),
      .microphone = Tracer::name("TavrelMicrophone"),
      .reading = Tracer::name("AssetReader"),
      .videoEncoder = Tracer::name("VideoEncoder"),
      .audioEncoder = Tracer::name("AudioEncoder"),
      .writing = Tracer::name("TavrelGPUImageMovieWriter, appending"),
      .cameraStage = Tracer::name("camera"),
      .writerStage = Tracer::name("writer"),
      .writerSoundStage = Tracer::name("writer, sound"),
      .late = Tracer::name("late"),
      .outOfBuffers = Tracer::name("outOfBuffers"),
      .discontinuity = Tracer::name("discontinuity"),
      .busy = Tracer::name("busy"),
      .whileSwitching = Tracer::name("whileSwitching"),
      .whileNotRunning = Tracer::name("whileNotRunning"),
      .beforeStart = Tracer::name("beforeStart"),
      .queueFull = Tracer::name("queueFull"),
      .encoderBusy = Tracer::name("encoderBusy"),
      .refused = Tracer::name("refused"),
  };
  return names;
}

}  // namespace tavrel
