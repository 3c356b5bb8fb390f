#pragma once

/// \file
/// The bench on which programs that capture are tested: virtual devices that fail on demand, scenes and sounds whose
/// recordings can be measured, and a clock without real time. Applications do without it: the virtual devices
/// themselves are ordinary ones of `CaptureDevice`.

#include "Platform/Capture/Virtual/FastClock.h"
#include "Platform/Capture/Virtual/FileScene.h"
#include "Platform/Capture/Virtual/FileSound.h"
#include "Platform/Capture/Virtual/SyntheticScene.h"
#include "Platform/Capture/Virtual/SyntheticSound.h"
#include "Platform/Capture/Virtual/VirtualCaptureSystem.h"
