#pragma once

/// Exports a symbol from the shared library; all others are hidden.
#define TAVREL_API __attribute__((visibility("default")))
