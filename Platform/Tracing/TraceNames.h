#pragma once

#include "Platform/Foundation/Export.h"
#include "Platform/Tracing/Tracer.h"

namespace tavrel {

/// Names shared between the code that records and the code that reports.
struct TAVREL_API TraceNames {
  static const TraceNames& shared();

  // Counts.
  TraceName framesIn, framesDelivered, framesShown, framesOut, soundsIn, soundsOut, framebuffersCreated;
  // Levels.
  TraceName framebuffersHeld, framebuffersCached;
  // Latencies, and an offset.
  TraceName toDelegate, toFile, soundAhead;
  // Queues in which frames wait.
  TraceName captureQueue, videoProcessingQueue, writerQueue;
  // Work outside nodes.
  TraceName camera, cameraDelegate, microphone, reading, videoEncoder, audioEncoder, writing;
  // Stages that drop, and their reasons.
  TraceName cameraStage, writerStage, writerSoundStage;
  TraceName late, outOfBuffers, discontinuity, busy, whileSwitching, whileNotRunning;
  TraceName beforeStart, queueFull, encoderBusy, refused;
};

}  // namespace tavrel
