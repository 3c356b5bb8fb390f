#pragma once

#include "GPUImage/Private/OnVideoProcessingQueue.h"
#include "Platform/Foundation/Finite.h"

// A property of a class is the field of the same name in its implementation. The definitions below stand for those that
// do no more than read and set it.

/// The getter of a node's property, which is read on the video-processing queue.
#define TAVREL_NODE_VALUE(Class, Type, name)                                 \
  Type Class::name() const {                                                 \
    return onVideoProcessingQueue([this] { return implementation_->name; }); \
  }

/// The same with its setter.
#define TAVREL_NODE_PROPERTY(Class, Type, name, setName)               \
  TAVREL_NODE_VALUE(Class, Type, name)                                 \
  void Class::setName(Type newValue) {                                 \
    if (!isFinite(newValue)) return;                                   \
    onVideoProcessingQueue([&] { implementation_->name = newValue; }); \
  }

/// Getter and setter of a property that is an atomic field.
#define TAVREL_ATOMIC_PROPERTY(Class, Type, name, setName)    \
  Type Class::name() const { return implementation_->name; }  \
  void Class::setName(Type newValue) {                        \
    if (isFinite(newValue)) implementation_->name = newValue; \
  }

/// Getter and setter of a property that is a `SharedValue`.
#define TAVREL_SHARED_PROPERTY(Class, Type, name, setName)         \
  Type Class::name() const { return implementation_->name.get(); } \
  void Class::setName(const Type& newValue) { implementation_->name.set(newValue); }
