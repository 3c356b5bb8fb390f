#pragma once

#include "Support/GraphTestSupport.h"

// What pictures of other sizes should be, computed in double precision.

namespace tavrel::test {

/// Rings that become finer than any pixel of a reduced picture, and noise.
Picture zonePlate(int width, int height);

double triangle(double x);
double bicubic(double x);

/// Each pixel is the mean of those around its place, weighted by `kernel`, which is as wide as the pixels of the
/// coarser picture.
Picture scaled(const Picture& source, int width, int height, double (*kernel)(double), bool inLight);

}  // namespace tavrel::test
