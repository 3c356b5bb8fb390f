#pragma once

/// Marks what applications may use: everything else is hidden in the shared library.
#define TAVREL_API __attribute__((visibility("default")))
