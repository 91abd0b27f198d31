#include "Tolvera/App/QtMainExecutor.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEvent>

namespace tolvera {

class QtMainExecutor::Wakeup final : public QObject {
 public:
  explicit Wakeup(QtMainExecutor& executor) : executor_(executor) {}

  void post() { QCoreApplication::postEvent(this, new QEvent(QEvent::User)); }

 protected:
  void customEvent(QEvent*) override {
    {
      const std::lock_guard lock(executor_.mutex_);
      executor_.wakeupPosted_ = false;
    }
    executor_.runTurn();
  }

 private:
  QtMainExecutor& executor_;
};

QtMainExecutor::QtMainExecutor() : wakeup_(std::make_unique<Wakeup>(*this)) {}

QtMainExecutor::~QtMainExecutor() {
  stop();
  discard();
}

QtMainExecutor::Handle QtMainExecutor::executor() { return {*this, true}; }

void QtMainExecutor::push(std::unique_ptr<Handler> handler) {
  const std::lock_guard lock(mutex_);
  // Destroyed on return, and then the lock is free again.
  if (discarding_) return;
  waiting_.push_back(std::move(handler));
  if (wakeup_ && !std::exchange(wakeupPosted_, true)) wakeup_->post();
}

// The next handler, or null. While more wait a wake-up is under way, since a handler may itself run an
// event loop.
std::unique_ptr<QtMainExecutor::Handler> QtMainExecutor::pop() {
  const std::lock_guard lock(mutex_);
  if (waiting_.empty() || !wakeup_) return nullptr;
  auto handler = std::move(waiting_.front());
  waiting_.pop_front();
  if (!waiting_.empty() && !std::exchange(wakeupPosted_, true)) wakeup_->post();
  return handler;
}

void QtMainExecutor::runTurn() {
  const QDeadlineTimer end(longestTurn);
  for (int i = 0; i == 0 || (i < handlersPerTurn && !end.hasExpired()); ++i) {
    const auto handler = pop();
    if (!handler) return;
    ++running_;
    handler->run();
    --running_;
  }
}

bool QtMainExecutor::isRunningHandlersHere() const {
  return std::this_thread::get_id() == mainThread_ && running_ > 0;
}

void QtMainExecutor::stop() {
  std::unique_ptr<Wakeup> ended;
  const std::lock_guard lock(mutex_);
  ended = std::move(wakeup_);
}

void QtMainExecutor::discard() {
  while (true) {
    // Destroying a handler may post another one.
    std::deque<std::unique_ptr<Handler>> dropped;
    const std::lock_guard lock(mutex_);
    if (waiting_.empty()) {
      discarding_ = true;
      return;
    }
    dropped.swap(waiting_);
  }
}

} // namespace tolvera
