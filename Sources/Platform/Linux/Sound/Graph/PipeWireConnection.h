#pragma once

#include "Platform/Linux/Sound/Graph/PipeWireHandles.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace tolvera::adapters {

// The program's one connection to the sound server: a loop thread, the registry of the server's objects, and
// a new connection each time the server comes back. Shared by everything that talks to PipeWire.
//
// It opens nothing until `open` is called. From then on the loop lock guards its state and that of its
// listeners; the listeners are called on the loop thread with the lock held, in the order in which they were
// added.
class PipeWireConnection {
 public:
  struct Global {
    std::uint32_t id;
    const char* type;
    const spa_dict* properties; // may be null
  };

  class Listener {
   public:
    Listener() = default;
    virtual ~Listener() = default;
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    virtual void added(const Global&) {}
    virtual void removed(std::uint32_t /*id*/) {}
    // A burst of changes is over, and every answer to it is in.
    virtual void settled() {}
    // The server is gone: its objects are void, and every proxy must be dropped at once.
    virtual void disconnected() {}
  };

  PipeWireConnection() = default;
  ~PipeWireConnection();
  PipeWireConnection(const PipeWireConnection&) = delete;
  PipeWireConnection& operator=(const PipeWireConnection&) = delete;

  // Starts the loop if there is none, and connects. True if the server has listed its objects; waits up to
  // `patience` for that. Any thread, without the lock.
  bool open(std::chrono::milliseconds patience);
  // True once a server has listed its objects, also if it has gone since. Any thread.
  [[nodiscard]] bool wasReady() const { return wasReady_; }

  [[nodiscard]] pw_thread_loop* loop() const { return loop_; } // null before the first `open`

  // Everything below is called under the lock. A listener that is to hear of every object is added before
  // `open`.
  void addListener(Listener& listener);
  void removeListener(Listener& listener);
  [[nodiscard]] pw_core* core() const { return core_; } // null without a server
  // Such as "1.4.2"; of the last server that was there.
  [[nodiscard]] const std::string& serverVersion() const { return serverVersion_; }
  [[nodiscard]] pw_registry* registry() const { return registry_; }
  void changed(); // `settled` is due after a round trip to the server
  // Waits until the condition holds. It is tested each time the loop is signalled; the lock is released
  // meanwhile. Not on the loop thread.
  void waitFor(const std::function<bool()>& condition, std::chrono::milliseconds patience);
  // As `waitFor`, until the server has answered all requests and the answers have been handled.
  void roundTrip(std::chrono::milliseconds patience);
  // `settled` is due after `delay` at the latest. A listener for which it comes too early asks again.
  void retryIn(std::chrono::milliseconds delay);

 private:
  struct Events;

  bool startLoop();
  bool connect();
  void disconnect();
  void arm(std::chrono::milliseconds delay);
  void onTimer();
  void onDone(int sequence);

  std::mutex starting_; // guards the start of the loop
  std::atomic<pw_thread_loop*> loop_ = nullptr;
  pw_context* context_ = nullptr;
  spa_source* timer_ = nullptr;
  pw_core* core_ = nullptr;
  pw_registry* registry_ = nullptr;
  Hook coreHook_;
  Hook registryHook_;
  std::vector<Listener*> listeners_;
  std::optional<std::chrono::steady_clock::time_point> due_; // when the timer fires
  std::set<int> roundTrips_;                                 // sequence numbers that `roundTrip` waits for
  int awaited_ = 0;                                          // sequence number of the round trip under way
  bool waiting_ = false;                                     // a round trip is under way
  bool dirty_ = false; // something has changed since the round trip began
  bool ready_ = false; // the server has listed its objects
  std::atomic<bool> wasReady_ = false;
  std::string serverVersion_;
  bool lost_ = false; // the server is gone, and its connection is still to be dropped
};

} // namespace tolvera::adapters
