#pragma once

// Which sanitizers the tests are built with. GCC tells by macros, Clang by features.

#ifndef __has_feature
#define __has_feature(name) 0
#endif

#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
#define TAVREL_SANITIZES_ADDRESSES 1
#else
#define TAVREL_SANITIZES_ADDRESSES 0
#endif

#if defined(__SANITIZE_THREAD__) || __has_feature(thread_sanitizer)
#define TAVREL_SANITIZES_THREADS 1
#else
#define TAVREL_SANITIZES_THREADS 0
#endif
