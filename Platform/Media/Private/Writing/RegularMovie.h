#pragma once

#include <cstdint>
#include <vector>

#include "Platform/Foundation/Error.h"
#include "Platform/Media/Private/Writing/MovieFileOutput.h"

namespace tavrel {

/// Turns a QuickTime or MP4 file of fragments into a regular one, in place. ISO/IEC 14496-12 says what the boxes are.
///
///     while it grows        ftyp  free ············  moov  moof  mdat  moof  mdat …
///     finished              ftyp  free  moov  free ·  mdat ────────────────────────
///     without enough room   ftyp  free  mdat ──────────────────────────────────────  moov
///
/// All of it is prepared where nobody looks: in the room that was set aside, or in a `free` box at the end. Then one
/// byte is written, in the size of the room's header, which then covers nothing but itself and shows what was prepared;
/// the first moov is data now. Whenever the process or the machine dies, the file is the one or the other, and plays.
class RegularMovie {
 public:
  /// Sets aside room for `room` bytes of tables before the moov that was just written.
  static Expected<RegularMovie> reserve(MovieFileOutput& output, std::int64_t room);
  /// Makes the file regular. `moov` is the new box.
  Expected<void> complete(MovieFileOutput& output, const std::vector<std::uint8_t>& moov) const;

 private:
  RegularMovie(std::int64_t room, std::int64_t unit, std::int64_t end) : room_(room), unit_(unit), end_(end) {}

  std::int64_t tables() const;  // inside the room
  /// Both return where the file ends then.
  Expected<std::int64_t> prepareFront(MovieFileOutput& output, std::vector<std::uint8_t> moov) const;
  Expected<std::int64_t> prepareEnd(MovieFileOutput& output, const std::vector<std::uint8_t>& moov) const;

  std::int64_t room_;  // where it begins in the file
  std::int64_t unit_;  // how much room its size's one byte that is not as in an empty box counts in
  std::int64_t end_;   // where it ends
};

}  // namespace tavrel
