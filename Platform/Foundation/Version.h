#pragma once

#include "Platform/Foundation/Export.h"

extern "C" {
/// Major and minor version of the loaded library as a number: 1.2 for 1.2.3.
TAVREL_API extern const double TavrelCaptureBaseVersionNumber;
/// Full version of the loaded library, "major.minor.patch".
TAVREL_API extern const char* const TavrelCaptureBaseVersionString;
}
