#pragma once

/// \file
/// Everything that applications use, in one include.

#include "Platform/Dispatch/DispatchGroup.h"
#include "Platform/Dispatch/DispatchOnce.h"
#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Dispatch/DispatchSemaphore.h"
#include "Platform/Dispatch/DispatchTimer.h"
#include "Platform/Dispatch/RunLoop.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Foundation/NotificationCenter.h"
#include "Platform/Foundation/Version.h"
#include "Platform/Media/MediaTime.h"
