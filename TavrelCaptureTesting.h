#pragma once

/// \file
/// For tests of capturing programs: virtual devices that fail on demand, scenes and sounds whose recordings can be
/// measured, and a simulated clock. Applications do not need it to use the virtual devices, which `CaptureDevice` lists
/// like any other.

#include "Platform/Capture/CaptureClock.h"
#include "Platform/Capture/Virtual/FastClock.h"
#include "Platform/Capture/Virtual/FileScene.h"
#include "Platform/Capture/Virtual/FileSound.h"
#include "Platform/Capture/Virtual/SyntheticScene.h"
#include "Platform/Capture/Virtual/SyntheticSound.h"
#include "Platform/Capture/Virtual/VirtualCaptureSystem.h"
