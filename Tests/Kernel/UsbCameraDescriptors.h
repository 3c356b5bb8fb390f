#pragma once

#include <cstdint>
#include <initializer_list>

#include "Platform/Foundation/Data.h"

namespace tavrel::test {

void append(Data& data, std::initializer_list<int> bytes);
void appendLittle(Data& data, std::uint64_t value, int bytes);

/// What a `UsbCamera` says that it is (USB 2.0, 9.6; USB Video Class 1.0, 3).
Data deviceDescriptor();
Data configurationDescriptor();
Data textDescriptor(int number);

}  // namespace tavrel::test
