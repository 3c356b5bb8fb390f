#pragma once

#include "TavrelBase/Log/QualifiedFunctionName.h"
#include "TavrelBase/Log/TavrelDDLog.h"

/// \file
/// Guarded log calls. A disabled call costs one load and one branch and evaluates neither arguments nor tag. The format
/// is fmt's, checked at compile time.
///
///     TAVREL_LOG_ERROR("TavrelCamera", "cannot set torch mode {}: {}", mode, error.description);
///
/// Error calls return after every logger has written; the others are asynchronous.

/// A call guarded by a given level, such as that of a `TavrelDDLogClass`.
#define TAVREL_LOG_AT(levelMask, messageFlag, tag, ...)                                                            \
  do {                                                                                                             \
    if (const unsigned tavrelLogMask = (levelMask); (tavrelLogMask & (messageFlag)) != 0) [[unlikely]] {           \
      constexpr std::string_view tavrelLogFunction = ::tavrel::qualifiedFunctionName(__PRETTY_FUNCTION__);         \
      ::tavrel::TavrelDDLog::log((messageFlag) != ::tavrel::TavrelDDLogFlagError, tavrelLogMask, (messageFlag), 0, \
                                 __FILE__, tavrelLogFunction, __LINE__, (tag), __VA_ARGS__);                       \
    }                                                                                                              \
  } while (false)

#define TAVREL_LOG(messageFlag, tag, ...) \
  TAVREL_LOG_AT(::tavrel::tavrelDDLogLevel.load(std::memory_order_relaxed), messageFlag, tag, __VA_ARGS__)

#define TAVREL_LOG_ERROR(tag, ...) TAVREL_LOG(::tavrel::TavrelDDLogFlagError, tag, __VA_ARGS__)
#define TAVREL_LOG_WARNING(tag, ...) TAVREL_LOG(::tavrel::TavrelDDLogFlagWarning, tag, __VA_ARGS__)
#define TAVREL_LOG_INFO(tag, ...) TAVREL_LOG(::tavrel::TavrelDDLogFlagInfo, tag, __VA_ARGS__)
#define TAVREL_LOG_DEBUG(tag, ...) TAVREL_LOG(::tavrel::TavrelDDLogFlagDebug, tag, __VA_ARGS__)
#define TAVREL_LOG_VERBOSE(tag, ...) TAVREL_LOG(::tavrel::TavrelDDLogFlagVerbose, tag, __VA_ARGS__)
