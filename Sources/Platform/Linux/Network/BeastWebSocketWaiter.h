#pragma once

#include "Async/Suspension.h"
#include "Platform/Linux/Network/BeastErrors.h"
#include "Platform/URLSession.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace tolvera::adapters {

// A PlatformError as a plain value. The copies of an exception share its text, and these go to callers on
// other threads.
struct Failure {
  Failure(const platform::PlatformError& error)
      : code(static_cast<TransportError>(error.code())), text(error.what()) {}

  [[noreturn]] void raise() const { throw transportError(code, text); }

  TransportError code;
  std::string text;
};

// A suspended caller of `send` or `receive`. Used on the executor alone until the caller is resumed.
struct Waiter {
  std::optional<Resumption> resumption;
  std::optional<platform::WebSocketTask::Message> message; // to send, or received
  std::optional<Failure> failure;

  void succeed() { resume(); }
  void fail(const Failure& why) {
    if (resumption) failure = why;
    resume();
  }

 private:
  void resume() {
    if (auto once = std::exchange(resumption, std::nullopt)) (*once)();
  }
};
using WaiterPointer = std::shared_ptr<Waiter>;

} // namespace tolvera::adapters
