#pragma once

#include <chrono>
#include <thread>

namespace tolvera::test {

// Waits in real time for up to `limit` until `condition` holds; true if it did.
template<typename Condition>
bool eventually(const Condition& condition, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

} // namespace tolvera::test
