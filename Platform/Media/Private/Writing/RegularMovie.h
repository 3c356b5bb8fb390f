#pragma once

#include <cstdint>
#include <vector>

#include "Platform/Foundation/Error.h"
#include "Platform/Media/Private/Writing/MovieFileOutput.h"

namespace tavrel {

/// Turns a QuickTime or MP4 file of fragments into a regular one, in place. ISO/IEC 14496-12 says what the boxes are.
///
///     while it grows        ftyp  moov  free ············  moof  mdat  moof  mdat …
///     finished              ftyp  free ···  moov ·  free ·  mdat ─────────────────
///     without enough room   ftyp  free ···  mdat ─────────────────────────────────  moov
///
/// All of it is prepared where nobody looks: in the room that was set aside, or in a `free` box at the end. Then one
/// write of eight bytes, to the header of the first `moov`, hides that box together with the room's header and shows
/// what was prepared. Whenever the process or the machine dies, the file is the one or the other, and plays.
class RegularMovie {
 public:
  /// Sets aside room for `room` bytes of tables behind the header that was just written.
  static Expected<RegularMovie> reserve(MovieFileOutput& output, std::int64_t room);
  /// Makes the file regular. `moov` is the new box.
  Expected<void> complete(MovieFileOutput& output, const std::vector<std::uint8_t>& moov) const;

 private:
  RegularMovie(std::int64_t header, std::int64_t room, std::int64_t data) : header_(header), room_(room), data_(data) {}

  std::int64_t tables() const;  // inside the room
  /// Both return where the file ends then.
  Expected<std::int64_t> prepareFront(MovieFileOutput& output, std::vector<std::uint8_t> moov) const;
  Expected<std::int64_t> prepareEnd(MovieFileOutput& output, const std::vector<std::uint8_t>& moov) const;

  // Where they begin in the file.
  std::int64_t header_;  // the first moov
  std::int64_t room_;    // the free box behind it
  std::int64_t data_;    // the fragments
};

}  // namespace tavrel
