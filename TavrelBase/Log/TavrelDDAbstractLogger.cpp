#include "TavrelBase/Log/TavrelDDAbstractLogger.h"

#include <utility>

#include "Platform/Foundation/FatalAssertion.h"
#include "TavrelBase/Log/Private/LogScope.h"
#include "TavrelBase/Log/TavrelDDLog.h"

namespace tavrel {

std::shared_ptr<DispatchQueue> TavrelDDAbstractLogger::loggerQueue() {
  std::call_once(queueOnce_, [this] { queue_ = DispatchQueue::create(loggerName()); });
  return queue_;
}

std::shared_ptr<TavrelDDLogFormatter> TavrelDDAbstractLogger::logFormatter() {
  return read(formatter_);
}

void TavrelDDAbstractLogger::setLogFormatter(std::shared_ptr<TavrelDDLogFormatter> formatter) {
  performOnLoggerQueue([&] { formatter_.swap(formatter); });
}

void TavrelDDAbstractLogger::performOnLoggerQueue(const std::function<void()>& block) {
  const auto queue = loggerQueue();
  if (queue->isCurrent()) return block();
  if (TavrelDDLog::isOnLoggingQueue()) return queue->sync(block);
  // The logging queue waits for the thread that is here.
  if (LogScope::isInside())
    fatalAssertion("The accessors of a logger must not be used by another logger while it writes");
  TavrelDDLog::loggingQueue()->sync([&] { queue->sync(block); });
}

}  // namespace tavrel
