#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

#include "Platform/Tracing/Private/TraceRing.h"

namespace tavrel {

/// The rings of all threads, each made with its thread's first event. Any thread.
struct TraceRings {
  /// Into the calling thread's ring.
  static void push(const TraceEvent& event);
  /// Calls `action` for every ring, and lets go of those whose threads are gone.
  static void forEach(const std::function<void(TraceRing&)>& action);
  /// Events that found their ring full, since the last `clear`.
  static std::uint64_t lostEvents();
  static void clear();
  /// See `Tracer::nameThread`.
  static void nameThread(std::string_view name);
};

}  // namespace tavrel
