#include "Platform/Media/FFmpegFunctions.h"

extern "C" __attribute__((visibility("default"))) const tavrel::FFmpegFunctions tavrelFFmpegFunctions = {
#define TAVREL_FUNCTION(name) ::name,
#include "Platform/Media/FFmpegFunctions.inc"
};
