#pragma once

#include "Async/Task.h"
#include "Platform/NotificationCenter.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace tolvera::adapters {

// Carries what the other adapters notice, on whichever thread, to the observers on the main thread. Made and
// destroyed on the main thread; registrations may outlive it, and go on the main thread too.
class ExecutorNotificationCenter final : public platform::NotificationCenter {
 public:
  // `main` is the main thread's executor.
  explicit ExecutorNotificationCenter(Executor main);
  ~ExecutorNotificationCenter() override;

  std::unique_ptr<Registration> addObserver(std::string_view name, std::function<void()> block) override;

  // Returns at once; the observers of that time are called later, in the order in which they came. Any
  // thread.
  void post(std::string_view name);

  // Posts as above, for adapters that may outlive the center: a post that comes too late goes nowhere. Any
  // thread.
  [[nodiscard]] std::function<void(std::string_view)> poster() const;

 private:
  struct Observer;
  struct Observers;
  class Entry;

  Executor main_;
  std::shared_ptr<Observers> observers_;
};

} // namespace tolvera::adapters
