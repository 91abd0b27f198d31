#pragma once

#include "Platform/MachineFacts.h"
#include "Platform/Platform.h"

#include <memory>

namespace tolvera::adapters {

// The Linux desktop as a Platform: builds every adapter, and the background thread that network and timers
// run on. Made by `main` on the main thread, before anything that uses it, and destroyed after it.
class LinuxPlatform {
 public:
  // `main` is the main thread's executor.
  explicit LinuxPlatform(const Executor& main);
  ~LinuxPlatform();

  [[nodiscard]] platform::Platform& platform();
  // Looks at the machine. It waits up to some seconds for what does not answer.
  [[nodiscard]] platform::MachineFacts machineFacts() const;

  // Ends the background thread. Pending network requests and waits do not finish after this.
  void stop();

 private:
  struct Adapters;
  std::unique_ptr<Adapters> adapters_;
};

} // namespace tolvera::adapters
