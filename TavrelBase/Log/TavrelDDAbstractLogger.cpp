#include "TavrelBase/Log/TavrelDDAbstractLogger.h"

#include <mutex>
#include <utility>

#include "Platform/Foundation/FatalAssertion.h"
#include "TavrelBase/Log/Private/LogScope.h"
#include "TavrelBase/Log/TavrelDDLog.h"

namespace tavrel {

struct TavrelDDAbstractLogger::Implementation {
  std::once_flag queueOnce;
  std::shared_ptr<DispatchQueue> queue;
  std::shared_ptr<TavrelDDLogFormatter> formatter;
};

TavrelDDAbstractLogger::TavrelDDAbstractLogger() : implementation_(std::make_unique<Implementation>()) {}

TavrelDDAbstractLogger::~TavrelDDAbstractLogger() = default;

std::shared_ptr<DispatchQueue> TavrelDDAbstractLogger::loggerQueue() {
  std::call_once(implementation_->queueOnce,
                 [this] { implementation_->queue = DispatchQueue::create(loggerName(), {.forkRank = 2}); });
  return implementation_->queue;
}

void TavrelDDAbstractLogger::setInitialFormatter(std::shared_ptr<TavrelDDLogFormatter> formatter) {
  implementation_->formatter = std::move(formatter);
}

const std::shared_ptr<TavrelDDLogFormatter>& TavrelDDAbstractLogger::currentFormatter() const {
  return implementation_->formatter;
}

std::shared_ptr<TavrelDDLogFormatter> TavrelDDAbstractLogger::logFormatter() {
  return read(implementation_->formatter);
}

void TavrelDDAbstractLogger::setLogFormatter(std::shared_ptr<TavrelDDLogFormatter> formatter) {
  performOnLoggerQueue([&] { implementation_->formatter.swap(formatter); });
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
