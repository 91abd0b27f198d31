#pragma once

#include "TolveraService/Stream/StreamOutput.h"

#include "Async/Clock.h"
#include "Async/Gate.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace tolvera::service {

// The speech of one run on its way to the client: whole sentences come in, frames go out no faster than twice
// as fast as they are heard, and no faster than they are heard once the client has `lead` ahead. So little is
// under way that a stop silences the run. Frames are long because the client holds its microphone back for a
// while after each of them.
//
// What cannot be sent in time is dropped by whole sentences, the oldest first: half a sentence is no use, and
// the listener wants the newest one; the captions have the older ones. Shared by the connection, which sends,
// and the worker, which says.
class DubStream {
 public:
  static constexpr std::size_t frameSamples = 2UL * 24000;    // at most; longer sentences go in equal parts
  static constexpr std::chrono::seconds lead{5};              // sent and not yet heard
  static constexpr std::size_t waitingSamples = 15UL * 24000; // beyond the sentence that is being sent

  DubStream(Clock& clock, std::shared_ptr<StreamOutput> output) : clock_(clock), output_(std::move(output)) {}

  // Appends a sentence, signed samples at 24,000 Hz. Any thread.
  void say(std::vector<std::int16_t> sentence);
  // Nothing more is sent, now or later. Any thread, harmless to repeat.
  void drop();
  [[nodiscard]] bool dropped() const;

  // Sends what is said until it is dropped. Network thread, once.
  static Task<void> send(std::shared_ptr<DubStream> stream);

 private:
  using Sentence = std::vector<std::int16_t>;

  // Waits while the client does not read.
  Task<void> untilRead();
  std::optional<Sentence> take();
  // False when it was dropped meanwhile.
  Task<bool> sendWhole(Sentence sentence);
  Duration pauseAfter(Duration sound);

  Clock& clock_;
  std::shared_ptr<StreamOutput> output_;
  WallTime heardUntil_ = distantPast; // network thread

  mutable std::mutex mutex_; // guards the following
  std::deque<Sentence> sentences_;
  std::size_t waiting_ = 0; // samples in `sentences_`
  bool dropped_ = false;

  Gate said_; // opened by a sentence and by `drop`
};

} // namespace tolvera::service
