#pragma once

#include <functional>
#include <memory>

#include "Platform/Foundation/Pimpl.h"
#include "TavrelBase/Log/TavrelDDLogger.h"

namespace tavrel {

/// Base class for loggers: owns the queue and the formatter.
///
/// Accessors may be called on any thread, except by another logger while it writes. They go through the logging queue
/// and then the logger's queue, so that a change takes effect between the records logged before and after it.
class TAVREL_API TavrelDDAbstractLogger : public TavrelDDLogger {
 public:
  ~TavrelDDAbstractLogger() override;

  /// Created on first use, labelled with `loggerName()`.
  std::shared_ptr<DispatchQueue> loggerQueue() override;
  std::shared_ptr<TavrelDDLogFormatter> logFormatter() override;
  void setLogFormatter(std::shared_ptr<TavrelDDLogFormatter> formatter);

 protected:
  TavrelDDAbstractLogger();
  /// Runs `block` on the logger's queue, after everything logged so far, and returns after it; directly if called on
  /// that queue.
  void performOnLoggerQueue(const std::function<void()>& block);
  /// Sets the formatter; for constructors.
  void setInitialFormatter(std::shared_ptr<TavrelDDLogFormatter> formatter);
  /// The formatter; on the logger's queue.
  const std::shared_ptr<TavrelDDLogFormatter>& currentFormatter() const;

  template <typename T>
  T read(const T& field) {
    T value{};
    performOnLoggerQueue([&] { value = field; });
    return value;
  }

 private:
  struct Implementation;

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
