#pragma once

#include "Async/Task.h"
#include "Platform/NotificationCenter.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace tolvera::adapters {

// Carries notifications that other adapters post on any thread to the observers on the main thread. Made and
// destroyed on the main thread, as are registrations, which may outlive it.
class ExecutorNotificationCenter final : public platform::NotificationCenter {
 public:
  // `main` is the main thread's executor.
  explicit ExecutorNotificationCenter(Executor main);
  ~ExecutorNotificationCenter() override;

  std::unique_ptr<Registration> addObserver(std::string_view name, std::function<void()> block) override;

  // Returns at once. The observers are called later, in the order of their registration. Any thread.
  void post(std::string_view name);

  // Does the same as `post`, for adapters that may outlive the center, and then does nothing. Any thread.
  [[nodiscard]] std::function<void(std::string_view)> poster() const;

 private:
  struct Observer;
  struct Observers;
  class Entry;

  Executor main_;
  std::shared_ptr<Observers> observers_;
};

} // namespace tolvera::adapters
