#pragma once

#include "Platform/Foundation/Export.h"

extern "C" {
/// Major and minor version of the loaded library as one number: 1.2.3 reads 1.2.
TAVREL_API extern const double TavrelCaptureBaseVersionNumber;
/// Full version of the loaded library, "major.minor.patch".
TAVREL_API extern const char* const TavrelCaptureBaseVersionString;
}
